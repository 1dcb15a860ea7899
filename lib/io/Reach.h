// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"

#include <functional>
#include <string>

#include <sys/stat.h>

namespace kx::io
{

// What is there, what is not, and what may not be looked at: three answers that call for different
// remedies, and have different exit codes.

/// Tells whether an errno says that a path leads to nothing: there is no such name, a link leads
/// nowhere or round, what should be a folder is none, or a name is too long for any file.
[[nodiscard]] bool MeansMissing(int number);

/// Tells whether there is anything at a path; links are followed.
/// @throws Error (kNoAccess) when that may not be looked at
[[nodiscard]] bool IsThere(const std::string& path);

/// Makes the error of something to be read that could not be reached: kProblems when there is no
/// such thing, with the name that was probably meant, else kNoAccess.
/// @param number  an errno
[[nodiscard]] Error ReadError(const std::string& path, const std::string& doing, int number);

/// Finds what a path was probably meant to be: one that differs in the case of letters, in `\`
/// instead of '/', or in a few letters of a name. Returns an empty text when there is no such
/// thing, or nothing is wrong with the path.
/// @param folder  in which a path begins that is not a full one; empty for the current folder
[[nodiscard]] std::string NearestPath(const std::string& folder, const std::string& path);

/// Says "there is 'NEAREST'" of NearestPath, or nothing.
[[nodiscard]] std::string NearestPathRemedy(const std::string& folder, const std::string& path);

/// What is done with each thing below a folder: its path below that folder, the path to open it by,
/// and what lstat says of it.
/// @return of a folder: whether what is in it is wanted, too
using BelowVisitor =
    std::function<bool(const std::string& name, const std::string& path, const struct stat& info)>;

/// Visits everything below a folder, in no order. Links are visited, and not followed.
/// @throws Error for what cannot be looked at or listed, by its own path
void ForEachBelow(const std::string& folder, const BelowVisitor& visit);

} // namespace kx::io
