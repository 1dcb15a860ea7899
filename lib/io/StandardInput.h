// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <cstdint>
#include <string>

namespace kx::io
{

/// What stands for standard input where a package is named.
constexpr const char* kStandardInput = "-";

/// What a package from standard input is taken to be called.
constexpr const char* kStandardInputName = "package.kx-update";

/// Writes all of standard input to an open file.
/// @param shown   what an error calls that file
/// @param limit   for standard input, in bytes
/// @param remedy  what to do about more; may be empty
/// @return how many bytes there were
/// @throws Error when standard input is a terminal, cannot be read, or is larger than @p limit, and
///         when the file cannot be written
std::uint64_t CopyStandardInput(const Descriptor& file, const std::string& shown,
                                std::uint64_t limit, const std::string& remedy = {});

/// All of standard input, in a file without a name: packages are read from their end.
class StandardInput
{
public:
    /// Reads standard input to its end.
    /// @throws Error as CopyStandardInput; also when the temporary folder ($TMPDIR, otherwise /tmp)
    ///         has no room for it
    StandardInput();

    /// A path under which the file can be opened as long as this object lives.
    [[nodiscard]] const std::string& Path() const { return m_path; }

private:
    Descriptor m_file;
    std::string m_path;
};

} // namespace kx::io
