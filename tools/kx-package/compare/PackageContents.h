// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/FastPackage.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kx::tool
{

/// Something that a package says, by its name.
struct Fact {
    std::string name;
    std::string value;
    bool isSecret = false; ///< the value must not be shown
};

/// A step, as far as a panel reads it.
struct StepFacts {
    std::size_t number = 0;    ///< of the step, counted from 1; the first one's of two that bring a
                               ///< fast folder
    std::string kind;          ///< name of the kind, or what stands in its place
    std::vector<Fact> facts;   ///< no name stands twice
    std::vector<Fact> scripts; ///< by what they are for
};

/// A file that a package brings to a panel, or holds.
struct PackageFile {
    const archive::PackageEntry* entry = nullptr; ///< null for a text of the description
    std::string text;                             ///< that text
    std::uint64_t size = 0;
    std::string mode; ///< as chmod takes it
    bool isRecorded = false;
};

/// What a package is, does and brings, for a comparison with another one.
struct PackageContents {
    std::vector<Fact> identity;
    const archive::PackageEntry* updater = nullptr; ///< null where there is none
    std::vector<StepFacts> steps;
    std::map<std::string, Fact> settings;      ///< used ones by kind and name, as the last step
                                               ///< leaves them
    std::map<std::string, PackageFile> files;  ///< by path on the panel, likewise
    std::set<std::string> folders;             ///< that the files lie in, or that are copied
    std::map<std::string, PackageFile> unused; ///< files that no step copies, by name
};

/// Looks into a package.
/// @param package  must live as long as the result
/// @throws Error where no panel reads its description, or its links lead out of it
[[nodiscard]] PackageContents ContentsOf(const format::FastPackage& package);

} // namespace kx::tool
