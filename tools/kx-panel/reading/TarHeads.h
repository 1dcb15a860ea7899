// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kx::guard
{

/// Finds the files in an archive for `tar`, and how each begins, in bytes that come piece by piece.
/// It knows what kx-package writes, files and long names of GNU's format, and ends at anything
/// else.
class TarHeads
{
public:
    /// @param name  as in the archive
    /// @param head  the first bytes
    using Taker = std::function<void(const std::string& name, const std::string& head)>;

    /// @param headSize  how many bytes of each file are wanted; at least 1
    TarHeads(std::size_t headSize, Taker take);

    /// Takes the bytes that come next.
    /// @return false when nothing more can be found
    bool Add(std::string_view piece);

private:
    [[nodiscard]] bool TakeHeader();
    void AddContent(std::string_view piece);
    void Tell();

    std::size_t m_headSize;
    Taker m_take;
    std::string m_header;        ///< as much of one as has come
    std::string m_name;          ///< of the present file, or what is to be that of the next one
    std::string m_head;          ///< of the present content
    std::uint64_t m_content = 0; ///< bytes that are still to come of it
    std::uint64_t m_padding = 0; ///< and behind it, up to a whole block
    bool m_isName = false;       ///< the present content is a name
    bool m_isTold = true;        ///< the present content was told, or there is none
};

} // namespace kx::guard
