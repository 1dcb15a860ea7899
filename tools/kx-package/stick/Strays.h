// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"
#include "io/Error.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kx::tool
{

/// What a thing at the top of a drive is to a panel that is to install a package from there.
enum class StrayKind {
    kPackage,   ///< another package: the panel installs none of several
    kTwin,      ///< a hidden file that counts as one
    kOtherCase, ///< the package's own name, in other letters
    kFolder,   ///< a folder that counts as a package; it may be anything, and is nobody's to remove
    kUnpacked, ///< the unpacked folder of a package
    kInTheWay, ///< something else where the package will be unpacked: the panel removes it
    kUnfinished, ///< a file that an interrupted DriveCopy left
};

/// A thing at the top of a drive that belongs to packages, but is not the package.
struct Stray {
    std::string name;
    StrayKind kind;
    std::uint64_t bytes = 0; ///< that it takes on the drive
};

/// Looks for what is on a drive besides the package, only where the panel looks: at the top.
/// @param folder       the drive, open
/// @param shown        what errors call it
/// @param package      the name of the package's file
/// @param isCaseBlind  the file system takes names that differ in case alone for one
/// @return sorted by name
/// @throws Error when the drive cannot be read
[[nodiscard]] std::vector<Stray> FindStrays(const io::Descriptor& folder, const std::string& shown,
                                            const std::string& package, bool isCaseBlind);

/// A word for the kind, for programs.
[[nodiscard]] const char* StrayWord(StrayKind kind);

/// Tells whether RemoveStray may remove it.
[[nodiscard]] bool IsRemovable(StrayKind kind);

/// Says what a stray is and what to do about it.
/// @param shown  the path of the stray, for people
[[nodiscard]] io::Error StrayProblem(const Stray& stray, const std::string& shown);

/// Removes a stray with all that is in it. Links are removed, not followed, and what is mounted in
/// it stays.
/// @param shown  what errors call the stray
/// @throws Error when it cannot be removed, and for kinds that are not removable
void RemoveStray(const io::Descriptor& folder, const Stray& stray, const std::string& shown);

/// How many bytes a file or a folder at the top of a drive takes there; 0 when there is none.
[[nodiscard]] std::uint64_t BytesTaken(const io::Descriptor& folder, const std::string& name);

} // namespace kx::tool
