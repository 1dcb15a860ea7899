// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/RootedFolder.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kx::rehearsal
{

/// The files of a panel as far as an installation looks at them: what is there, and what the
/// commands so far would have made of it. Nothing outside is ever changed.
///
/// Paths are followed part by part as Linux does; a relative one counts from "/". Links of the
/// given panel never lead out of it.
///
/// Every function may throw Error when something of the given panel cannot be looked at.
class VirtualPanel
{
public:
    enum class Kind { kNone, kFile, kFolder };
    using Bytes = std::shared_ptr<const std::string>;

    /// @param root  folder with the files of a panel to begin with; empty: a fresh panel
    ///              (panel/FreshPanel.h)
    /// @throws Error when the folder cannot be opened
    explicit VirtualPanel(std::string root);
    VirtualPanel(const VirtualPanel&) = delete;
    VirtualPanel& operator=(const VirtualPanel&) = delete;
    ~VirtualPanel() = default;

    /// Tells what the path leads to. A FIFO, a socket, a device count as files.
    [[nodiscard]] Kind KindOf(const std::string& path) const;

    /// Returns the path without links that the path leads to, whether there is something or not;
    /// empty when its folder is not there.
    [[nodiscard]] std::string Resolved(const std::string& path) const;

    /// Returns the size of what Content would return, without reading it; 0 for nothing.
    [[nodiscard]] std::uint64_t SizeOf(const std::string& path) const;

    /// Returns the bytes of a file that was given some or is a regular one of the given panel;
    /// otherwise null.
    /// @throws Error also when there are more than @p limit bytes
    [[nodiscard]] Bytes Content(const std::string& path, std::uint64_t limit) const;

    /// Returns the names in a folder, sorted byte by byte.
    [[nodiscard]] std::vector<std::string> Names(const std::string& folder) const;

    /// Makes a folder with its parents, as `mkdir -p` does. False when a file is in the way.
    bool MakeFolder(const std::string& path);

    /// Makes or replaces a file. False when its folder is not there, or it is a folder.
    bool MakeFile(const std::string& path, Bytes content = nullptr);

    /// Makes a link to a file or folder, there or not. False when its folder is not there, or it is
    /// a folder.
    bool MakeLink(const std::string& path, const std::string& target);

    /// Copies a file to a file or into a folder. False when `cp -f` would fail.
    bool CopyFile(const std::string& source, const std::string& target);

    /// Removes a file, a link, or a folder with all in it. False when `rm -r` would refuse.
    bool Remove(const std::string& path);

    /// How much work all the looks so far were: about the bytes that they compared.
    [[nodiscard]] std::uint64_t Effort() const { return m_effort; }

private:
    struct Node {
        Kind kind = Kind::kNone; ///< kNone hides what the given panel has there
        Bytes content;           ///< of a link: where it leads
        bool isLink = false;
        std::uint64_t size = 0; ///< of a regular file of the given panel
    };
    class PathParts;
    /// What a path leads to.
    struct Found {
        std::string path; ///< without links; empty when its folder is not there
        Kind kind = Kind::kNone;
        bool isLink = false; ///< a link that was not followed
    };

    Found Walk(const std::string& path, bool isLastFollowed, VirtualPanel* maker = nullptr) const;
    bool Step(const std::string& next, PathParts& parts, bool isLastFollowed, VirtualPanel* maker,
              Found& place) const;
    void PutFreshPanel();
    void MakeMissing(const std::string& plain);
    [[nodiscard]] const Node& At(const std::string& plain) const;
    [[nodiscard]] const Node& Given(const std::string& plain) const;
    [[nodiscard]] bool IsGivenHidden(const std::string& plain) const;

    std::string m_root;
    std::optional<io::RootedFolder> m_folder; ///< that of the given panel
    /// What differs from the given panel, by path without links.
    std::map<std::string, Node> m_nodes;
    /// What was looked at of the given panel.
    mutable std::unordered_map<std::string, Node> m_given;
    mutable std::uint64_t m_effort = 0;
};

} // namespace kx::rehearsal
