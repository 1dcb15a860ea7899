// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::tool
{

/// The beginning and the end of a text that may be endless. What is kept does not depend on the
/// pieces that the text came in.
class BoundedText
{
public:
    static constexpr std::size_t kUsualLimit = std::size_t{1} << 20;

    /// @param limit  bytes that are kept, when there are more than half as many again
    explicit BoundedText(std::size_t limit = kUsualLimit) : m_half(limit / 2) {}

    void Append(std::string_view piece);

    /// How many bytes between the beginning and the end were not kept.
    [[nodiscard]] std::uint64_t Omitted() const { return m_omitted + Surplus(); }

    /// All bytes as they came; nothing when some were left out.
    [[nodiscard]] std::optional<std::string> Bytes() const;

    /// The lines, without their ends. Where bytes were left out, a line tells so.
    [[nodiscard]] std::vector<std::string> Lines() const;

private:
    /// How much of m_end is not of the text's end any more.
    [[nodiscard]] std::size_t Surplus() const { return m_omitted > 0 ? m_end.size() - m_half : 0; }

    std::size_t m_half;
    std::string m_begin;
    std::string m_end;
    std::uint64_t m_omitted = 0;
};

} // namespace kx::tool
