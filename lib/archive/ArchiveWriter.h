// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kx::archive
{

/// One thing to put into an archive.
struct ArchiveItem {
    std::string name;                   ///< path in the archive, parts split by '/'
    std::string source;                 ///< file to take the content from
    std::optional<std::string> content; ///< the content itself, instead of a file's
    bool isFolder = false;
    bool isExecutable = false;                   ///< mode 755 instead of 644; folders have 755
    std::optional<unsigned> mode = std::nullopt; ///< of a file, 0 to 0777, instead of these two
};

/// How an archive is written.
struct ArchiveOptions {
    std::time_t moment = 0;                          ///< date of all entries; not before 1980
    std::function<void(double fraction)> onProgress; ///< told how far it is, 0 to 1
};

/// What came of it.
struct WrittenArchive {
    std::uint64_t size = 0;     ///< bytes of the archive
    std::uint64_t unpacked = 0; ///< bytes of all files in it
};

/// Writes a zip archive. The same items give the same bytes, whatever the order in which they are
/// given, the dates and modes of their files, the time zone and the locale. Names must
/// be UTF-8; those beyond ASCII are marked as such.
///
/// A signal that asks the program to end leaves neither the archive nor a part of it; an older file
/// stays.
/// @param path  the file, or AtomicFile::kStandardOutput
/// @throws Error when something cannot be read or written
WrittenArchive WriteArchive(const std::string& path, std::vector<ArchiveItem> items,
                            const ArchiveOptions& options);

} // namespace kx::archive
