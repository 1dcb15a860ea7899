// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ArchiveWriter.h"
#include "archive/Package.h"
#include "compose/Layout.h"
#include "manifest/Manifest.h"

#include <functional>
#include <memory>
#include <string>

namespace kx::tool
{

/// A manifest, and what it makes: a package that is not built yet.
struct PackageSource {
    Manifest manifest;
    Layout layout;
    std::string updater; ///< file of the packed updater; empty where this machine has none for it
};

/// Tells whether a path names the source of a package: a file *.toml that is no archive, or a
/// folder with a manifest and without a description. A folder with both is an unpacked package;
/// its manifest is named by its own path.
[[nodiscard]] bool IsSource(const std::string& path);

/// Reads a manifest and finds the files that it names.
/// @param path  the manifest or its folder
/// @throws Errors for all that is wrong, each with its place in the manifest
[[nodiscard]] PackageSource ReadSource(const std::string& path);

/// Returns the package that a source makes, to be looked into without being built.
/// @param source  may be gone before it
[[nodiscard]] std::unique_ptr<archive::Package> PackageOf(const PackageSource& source);

/// Returns the name of the package that `build` makes of a manifest.
[[nodiscard]] std::string PackageFileName(const Manifest& manifest);

/// Writes the package.
/// @param path      the file, or AtomicFile::kStandardOutput
/// @param updater   file of the packed updater; empty for none
/// @param progress  told how far it is, 0 to 1; may be empty
/// @throws what WriteArchive throws
archive::WrittenArchive WritePackage(const std::string& path, const Manifest& manifest,
                                     const Layout& layout, const std::string& updater,
                                     std::function<void(double fraction)> progress);

/// A package to look into, whatever it came as.
struct OpenedPackage {
    std::unique_ptr<PackageSource> source;     ///< null for a package that there is already
    std::unique_ptr<archive::Package> package; ///< of a source, what would be built
};

/// Tells whether it is a source whose updater this machine does not have: the one that builds it
/// will.
[[nodiscard]] bool IsUpdaterElsewhere(const OpenedPackage& opened);

/// Opens what the command line names as a package: an archive whatever its name, the folder of an
/// unpacked package, a source, or "-" for the archive on standard input.
/// @throws Errors when it is none of these, cannot be read, or its manifest has mistakes
[[nodiscard]] OpenedPackage OpenAsPackage(const std::string& path);

} // namespace kx::tool
