// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <list>
#include <string>
#include <string_view>
#include <unordered_set>

/// A doubly linked list of byte strings in the order of their insertion, each at most once, with an
/// index beside it.
///
/// The engine records in two such lists what an installation wrote. A package may hold tens of
/// thousands of files, so "is it there already" must not walk the list: every way of changing the
/// list keeps the index in step.
class PathList
{
public:
    using const_iterator = std::list<std::string>::const_iterator;

    PathList() = default;
    PathList(const PathList&) = delete;
    PathList& operator=(const PathList&) = delete;
    ~PathList() = default;

    /// Appends @p text unless an equal text (byte for byte) is in the list. There is no other way
    /// in, so each text is there at most once.
    void AppendOnce(std::string text);

    /// Tells whether a text equal to @p text (byte for byte) is in the list.
    [[nodiscard]] bool Contains(std::string_view text) const { return index.count(text) != 0; }

    /// Removes every entry.
    void clear();

    [[nodiscard]] std::size_t size() const { return texts.size(); }
    [[nodiscard]] bool empty() const { return texts.empty(); }
    [[nodiscard]] const_iterator begin() const { return texts.begin(); }
    [[nodiscard]] const_iterator end() const { return texts.end(); }

private:
    std::list<std::string> texts;
    std::unordered_set<std::string_view> index; ///< views of the list's own, immovable texts
};
