// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ZipOf.h"
#include "checks/Findings.h"
#include "signature/TrustedKeys.h"

#include <functional>
#include <string>
#include <vector>

namespace kx::checks
{

/// A package without a fault, to be spoiled in one thing.
class Recipe
{
public:
    Recipe();

    std::string fileName = "hello.kx-update";
    std::string folderName = "hello";    ///< when it is checked as a folder
    std::string description;             ///< with its byte order mark
    std::vector<archive::ZipPart> parts; ///< without the description
    std::string neighbour;               ///< name of a file beside the package; none when empty
    std::string processor;               ///< the panel's; not known when empty
    std::string panel;                   ///< the panel's description; nothing known when empty
    std::vector<std::string> panelFiles; ///< in the copy of its files; no copy without any
    std::string ownName;                 ///< by the manifest; not known when empty
    std::function<signature::TrustedKeys()> trusted; ///< keys of the panel; not known when unset
    bool requiresSignature = false;
    std::function<void(std::string& zip)> damage; ///< done to the finished archive, when set

    /// Replaces a text in the description; it must be there.
    void Replace(const std::string& from, const std::string& to);

    /// Returns the part of that name; it must be there.
    archive::ZipPart& Part(const std::string& name);

    /// The bytes of the archive.
    [[nodiscard]] std::string Archive() const;

    /// Checks the archive as a file in a folder of its own.
    [[nodiscard]] Findings Check() const;

    /// Checks the parts as a folder.
    [[nodiscard]] Findings CheckFolder() const;
};

/// "error payload-missing DB_StepSets.$values[0]…", sorted as found; of errors and warnings only.
std::vector<std::string> Problems(const Findings& findings);

/// The head of a program for a processor of 64 bits; 62 is x86_64, 183 aarch64.
std::string ProgramBytes(unsigned machine);

} // namespace kx::checks
