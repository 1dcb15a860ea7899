// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ZipStructure.h"

#include <string>

namespace kx::archive
{

// What the device's unzip makes of an entry's name and attributes.

/// The name that the device's unzip gives to an entry, and what it changed to get there.
struct UnpackedName {
    std::string name; ///< parts split by '/', none at the end; empty when nothing is left
    bool isFolder = false;
    bool wasAbsolute = false;    ///< a '/' at the beginning was cut
    bool wentUp = false;         ///< ".." was cut
    bool hadBackslashes = false; ///< '\' became '/'
    bool hadControl = false;     ///< control characters were dropped
    bool hadVersion = false;     ///< ";1" at the end was cut
};

/// Returns the name that unpacking gives to an entry.
[[nodiscard]] UnpackedName NameOnPanel(const ZipMember& member);

/// Tells whether the entry's attributes hold a file mode.
[[nodiscard]] bool HasFileMode(const ZipMember& member);

/// Tells whether unpacking makes a symbolic link of the entry.
[[nodiscard]] bool IsLink(const ZipMember& member);

/// Tells whether the entry names a disk instead of a file: unpacking passes over it.
[[nodiscard]] bool IsDiskLabel(const ZipMember& member);

} // namespace kx::archive
