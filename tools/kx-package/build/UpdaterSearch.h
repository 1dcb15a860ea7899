// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "package/Processor.h"

#include <string>

/// Where updaters may be found on this machine.
struct UpdaterPlaces {
    std::string toolFolder;            ///< folder in which this program lies
    const Processor* native = nullptr; ///< this machine's processor, if known
};

/// Returns the places of the running program.
[[nodiscard]] UpdaterPlaces FindUpdaterPlaces();

/// Returns the path of the installed updater for a processor: that in
/// ../lib/kx_Updater/PROCESSOR/ of the tool's folder, or the machine's own beside the tool.
/// @throws Error when there is none
[[nodiscard]] std::string FindUpdater(const Processor& processor, const UpdaterPlaces& places);

/// Refuses a file that is no program for the processor.
/// @throws Error
void RefuseOtherUpdater(const std::string& path, const Processor& processor);
