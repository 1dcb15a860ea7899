// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"

#include <string>
#include <vector>

namespace kx::rehearsal
{

/// One shell command of an installation.
struct PlannedCommand {
    enum class Process { kWindow, kInstaller };

    Process process = Process::kWindow;
    int step = 0;                   ///< the step that runs it, counted from 1; 0 outside of steps
    std::string command;            ///< letter for letter
    bool isAfterScript = false;     ///< whether it is run was decided by files that a script before
                                    ///< it may have changed
    bool isReadDifferently = false; ///< the shell reads something in it as more than a text
    bool isUnknown = false;         ///< its result is not known; it is taken for a success
};

/// What a panel would do with a package.
struct Plan {
    std::string packageFile;  ///< where the package lies on the panel
    std::string record;       ///< the folder of the record
    bool isFound = false;     ///< the window takes the file for a package: by its name
    bool isAborted = false;   ///< the description's root is no JSON object: the window dies of it
    bool isShown = false;     ///< the window gets as far as its question
    bool isStarted = false;   ///< the package brings an updater that can be started
    bool isInstalled = false; ///< the installer ends with 0
    int result = 0;           ///< of the installer, before it becomes an exit code
    std::vector<PlannedCommand> commands;
    std::vector<std::string> log;     ///< the installer's lines, without those of scripts and tools
    std::vector<std::string> folders; ///< what is recorded, in order
    std::vector<std::string> files;
};

/// Plays the installation of a package with the updater's own code, on files that are only thought:
/// nothing is run and nothing is changed. Call it once in a process: the updater's tables are the
/// process's.
///
/// A folder stands for the package file that unpacks to it, Foo.kx-update for Foo and for Foo.temp.
///
/// @param drive  folder of the panel in which the package lies, "/mnt/usb"
/// @param root   folder with a panel's files, or empty for a fresh panel
/// @throws Error when the package or the files cannot be read, and when the commands would have no
/// end:
///         links of the payload multiply its folders
[[nodiscard]] Plan Rehearse(const archive::Package& package, const std::string& drive,
                            const std::string& root);

} // namespace kx::rehearsal
