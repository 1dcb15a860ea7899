// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "panel/Names.h"

#include <stdexcept>
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

/// The updater runs a command that the rehearsal cannot play: a fault of the program, and of no
/// package.
class UnknownCommand : public std::logic_error
{
public:
    explicit UnknownCommand(const std::string& command);
};

/// How far an installation gets.
enum class Outcome {
    kNotFound,    ///< the window takes the file for no package: by its name
    kNotAlone,    ///< the window finds another package beside it, and refuses both
    kNotUnpacked, ///< the window cannot unpack it
    kAborted,     ///< the description's root is no JSON object: the window dies of it
    kNotShown,    ///< the window cannot read the description
    kNotStarted,  ///< there is no updater that can be started
    kNotRead,     ///< the installer cannot read the whole description, or it has no list of steps
    kStepFailed,  ///< a step fails: Plan::failedStep
    kNotRecorded, ///< the steps succeed, but the record cannot be written
    kInstalled,   ///< all of it succeeds
};

/// What a panel would do with a package.
struct Plan {
    std::string packageFile;     ///< where the package lies on the panel
    std::string record;          ///< the folder of the record
    std::string descriptionLink; ///< where the description leads to; empty when it is no link
    Outcome outcome = Outcome::kNotFound;
    int steps = 0;    ///< how many the description has; 0 as long as the installer has not read it
    int lastStep = 0; ///< the last one that begins, counted from 1; 0 when none does
    int failedStep = 0; ///< the step that ends the installation, counted from 1; 0 when none does
    std::vector<PlannedCommand> commands;
    /// The lines of both processes, without those of scripts and tools.
    std::vector<std::string> log;
    /// What the record lists, in order. Empty where none is written.
    std::vector<std::string> folders;
    std::vector<std::string> files;

    /// The package's file is unpacked without a complaint.
    [[nodiscard]] bool IsUnpacked() const { return outcome > Outcome::kNotUnpacked; }
    /// The window gets as far as its question.
    [[nodiscard]] bool IsShown() const { return outcome > Outcome::kNotShown; }
    /// An installer is started.
    [[nodiscard]] bool IsStarted() const { return outcome > Outcome::kNotStarted; }
    /// The installer ends with 0.
    [[nodiscard]] bool IsInstalled() const { return outcome == Outcome::kInstalled; }
};

/// Where a package is installed, and how.
struct Circumstances {
    std::string drive = panel::kDriveFolder; ///< folder of the panel in which the package lies
    std::string root;             ///< folder with a panel's files; empty for a fresh panel
    bool hasOtherUpdater = false; ///< the window is told an updater, and does not look for the
                                  ///< package's own (-q_Updater)
};

/// Plays the installation of a package with the updater's own code, on a model of a panel's files:
/// nothing is run and nothing is changed. Not for several threads: the updater's tables are the
/// process's.
///
/// A folder stands for the package file that unpacks to it, Foo.kx-update for Foo and for Foo.temp.
///
/// @throws Error when the package or the files cannot be read, and when the installation would have
///         no end: links of the payload multiply its folders, lists of the description stand in
///         each other
/// @throws UnknownCommand when the updater runs a command that this room cannot play
[[nodiscard]] Plan Rehearse(const archive::Package& package, const Circumstances& where = {});

} // namespace kx::rehearsal
