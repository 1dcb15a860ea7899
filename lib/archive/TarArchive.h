// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "io/Descriptor.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kx::archive
{

/// One file to put into an archive for `tar`.
struct TarItem {
    std::string name;       ///< path below the folder that it is unpacked to
    unsigned mode = 0;      ///< 0 to 0777
    std::uint64_t size = 0; ///< bytes of the content
    std::function<void(const ContentSink& sink)> stream; ///< hands the content out
};

/// Makes an item of a file on the disk.
/// @throws Error when it cannot be looked at
[[nodiscard]] TarItem TarItemOf(const std::string& name, const std::string& source, unsigned mode);

/// Writes an archive that GNU's and BusyBox's tar unpack alike, at the beginning of a file. The
/// same items give the same bytes, whatever the order in which they are given and the dates and
/// modes of their sources: all is owned by root, and dated 1970.
/// @param shown  what an error calls the archive
/// @return bytes of the archive
/// @throws Error when something cannot be read or written, a source changes meanwhile, or the
///         program is asked to end
std::uint64_t WriteTar(const io::Descriptor& file, const std::string& shown,
                       std::vector<TarItem> items);

/// One file of such an archive.
struct TarEntry {
    std::string name; ///< as in TarItem
    std::uint64_t size = 0;
    unsigned mode = 0;
    std::uint64_t offset = 0; ///< of the content in the archive
};

/// Reads an archive for `tar` from the beginning of a file.
/// @param take   is told of each file, in order, and returns what takes its content: an empty
///               function when nobody wants it
/// @return false when it is damaged, or holds what WriteTar does not write; something may have been
///         taken by then
/// @throws Error when it cannot be read
[[nodiscard]] bool ReadTar(const io::Descriptor& file, const std::string& shown,
                           const std::function<ContentSink(const TarEntry& entry)>& take);

} // namespace kx::archive
