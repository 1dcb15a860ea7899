// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "compare/PackageContents.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kx::tool
{

/// Something that is said otherwise; one side is missing for what is gone or new. Secrets are
/// masked.
struct FactChange {
    std::string name;
    std::optional<std::string> before;
    std::optional<std::string> after;
};

/// A script that is another one.
struct ScriptChange {
    std::string name;    ///< "install", "uninstall", "start-up"
    std::string unified; ///< its hunks
};

/// A step that is gone, new, or another one.
struct StepChange {
    std::optional<std::size_t> before; ///< its number, counted from 1
    std::optional<std::size_t> after;
    std::string kind; ///< of the new one, if there is one
    std::vector<FactChange> facts;
    std::vector<ScriptChange> scripts;
};

/// A file that is gone, new, or another one.
struct PackageFileChange {
    std::string path;
    std::optional<PackageFile> before;
    std::optional<PackageFile> after;
    bool isContentChanged = false; ///< where it is on both sides
};

/// What a panel keeps.
struct KeptPath {
    std::string path;
    bool isFolder = false;
    bool isRecorded = false; ///< of a file: the record of the first package lists it
};

/// What is different between two packages.
struct PackageDifference {
    std::vector<FactChange> identity;
    std::vector<StepChange> steps;
    std::vector<FactChange> settings;
    std::vector<PackageFileChange> files;  ///< by path on the panel
    std::vector<PackageFileChange> unused; ///< that no step copies, by name in the package
    std::vector<KeptPath> kept; ///< what the first one brought and the second one does not

    /// Tells whether a panel makes no difference between them.
    [[nodiscard]] bool IsNone() const;
};

/// Compares two packages.
/// @throws Error what ContentsOf throws, and where contents cannot be read
[[nodiscard]] PackageDifference ComparePackages(const format::FastPackage& before,
                                                const format::FastPackage& after);

} // namespace kx::tool
