// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/Processor.h"

#include <optional>
#include <string>

namespace kx::tool
{

struct Manifest;

/// Where updaters may be found on this machine.
struct Machine {
    std::string toolFolder;                    ///< folder in which this program lies
    const format::Processor* native = nullptr; ///< this machine's processor, if known
};

/// Returns the machine of the running program.
[[nodiscard]] Machine ThisMachine();

/// Returns the folder of the sources of a tool that lies where it was built, where the build left a
/// file that names it; empty for a tool that lies elsewhere.
[[nodiscard]] std::string SourcesOf(const std::string& toolFolder);

/// Returns the path of the updater for a processor: that in ../lib/kx_Updater/PROCESSOR/ of the
/// tool's folder, the machine's own beside the tool, or, for a tool that lies where it was built,
/// that which scripts/cross has built for another processor.
/// @throws Error that tells how to get one when there is none
[[nodiscard]] std::string FindUpdater(const format::Processor& processor, const Machine& machine);

/// Reads what the beginning of an updater tells about the program.
/// @return nothing when it is not the file of a program
/// @throws Error "cannot open the updater: …"
[[nodiscard]] std::optional<format::ProgramHead> ReadUpdaterHead(const std::string& path);

/// Refuses a file that is no program for the processor.
/// @throws Error
void RefuseOtherUpdater(const std::string& path, const format::Processor& processor);

/// Returns the path of the updater for a package: the one that was asked for, the manifest's own,
/// or the installed one.
/// @param wanted  path; may be empty
/// @throws Error when there is none, or it is no program for the manifest's processor
[[nodiscard]] std::string UpdaterFor(const Manifest& manifest, const std::string& wanted);

/// Returns the path of the updater that a manifest's package gets when nobody names another one,
/// or nothing where this machine has none for its processor.
/// @throws Error when it is no program for the manifest's processor, or the manifest's own cannot
///         be read
[[nodiscard]] std::string UpdaterIfAny(const Manifest& manifest);

} // namespace kx::tool
