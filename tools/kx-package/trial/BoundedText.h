// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The beginning and the end of a text that may be endless.
class BoundedText
{
public:
    static constexpr std::size_t kUsualLimit = std::size_t{1} << 20;

    /// @param limit  bytes that are kept at least, when there are so many; twice as many at most
    explicit BoundedText(std::size_t limit = kUsualLimit) : m_half(limit / 2) {}

    void Append(std::string_view piece);

    /// How many bytes between the beginning and the end were not kept.
    [[nodiscard]] std::uint64_t Omitted() const { return m_omitted; }

    /// The lines, without their ends. Where bytes were left out, a line tells so.
    [[nodiscard]] std::vector<std::string> Lines() const;

private:
    std::size_t m_half;
    std::string m_begin;
    std::string m_end;
    std::uint64_t m_omitted = 0;
};
