// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kx::io
{

/// Reads a whole file.
/// @throws Error when it cannot be read, is no regular file, or is larger than @p limit bytes
[[nodiscard]] std::string ReadWholeFile(const std::string& path, std::uint64_t limit);

/// Reads the first @p size bytes of a file, fewer of a shorter one.
/// @param doing  what the file is opened for, in an error's words
/// @throws Error when it cannot be read, or is no regular file
[[nodiscard]] std::string ReadFileHead(const std::string& path, std::size_t size,
                                       const std::string& doing = "open");

} // namespace kx::io
