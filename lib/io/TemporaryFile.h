// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <string>

#include <sys/types.h>

namespace kx::io
{

/// A file that was just made, for reading and writing.
struct NewFile {
    Descriptor file;
    std::string path; ///< empty when the file has no name; otherwise the caller removes it
    int error = 0;    ///< errno when no file could be made
};

/// Makes a file in a folder: one without a name, which the system removes by itself, or where the
/// file system knows none of these, one with a name.
/// @param stem  what the name is made of: ".STEM.PROCESS-NUMBER"; a long one is cut
/// @param mode  of the file, less the umask
[[nodiscard]] NewFile MakeFileIn(const std::string& folder, const std::string& stem, mode_t mode);

/// Gives a file of MakeFileIn a name, one that nothing has, if it has none yet.
/// @return 0, or an errno; then it still has none
[[nodiscard]] int NameFileIn(const std::string& folder, const std::string& stem, NewFile& file);

/// A folder that was just made.
struct NewFolder {
    std::string path; ///< the caller removes it
    int error = 0;    ///< errno when it could not be made
};

/// Makes a folder in a folder, by a name that nothing has: ".STEM.PROCESS-NUMBER"; a long stem is
/// cut.
[[nodiscard]] NewFolder MakeFolderIn(const std::string& folder, const std::string& stem);

/// Makes a file for this process alone, which is gone when it is closed, in the folder that
/// $TMPDIR names, otherwise in /tmp.
/// @throws Error "cannot make a temporary file: …", at the folder
[[nodiscard]] Descriptor MakeTemporaryFile();

} // namespace kx::io
