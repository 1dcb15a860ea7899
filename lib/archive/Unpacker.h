// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace kx::archive
{

/// Unpacks bytes piece by piece.
class Unpacker
{
public:
    enum class Step { kMore, kEnd, kDamaged };

    Unpacker() = default;
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;
    virtual ~Unpacker() = default;

    /// Unpacks from @p in, which it shortens; when that is empty at the call, nothing follows.
    /// @param room  a place for what is unpacked
    /// @param out   set to what was unpacked: it lies in the room, or in what was read
    /// @return kMore when it wants more bytes or more room
    virtual Step Go(std::string_view& in, std::string& room, std::string_view& out) = 0;
};

/// Returns an unpacker of the method "deflate64", also called "enhanced deflate": deflate with
/// distances up to 64 KiB and lengths up to as much. Its memory is some 150 KiB.
[[nodiscard]] std::unique_ptr<Unpacker> MakeInflater64();

} // namespace kx::archive
