// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "trial/BoundedText.h"
#include "trial/PanelChanges.h"
#include "trial/Restart.h"
#include "trial/Road.h"
#include "trial/RunTrace.h"
#include "trial/ShellFailure.h"
#include "trial/StepLog.h"
#include "trial/TrialPanel.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kx::tool
{

/// How far a trial has come.
struct TrialProgress {
    bool isInstalling = false; ///< it is unpacked before
    int step = 0;              ///< that is running, counted from 1; 0 before the first
    int steps = 0;             ///< of the package; 0 as long as they are not known
    bool isEnding = false;     ///< the person interrupted: the panel is being removed
};

/// What to try, and with what.
struct TrialRequest {
    std::string package; ///< a file, a folder, or "-" for standard input
    /// Writes the package to a file that is not there yet, instead of one that is; may be empty.
    std::function<void(const std::string& file)> build;
    std::string whyNoUpdater; ///< what to say of a package without one; empty: that it is a mistake
    Road road;                ///< of the package's name
    std::string device;       ///< folder of the sandboxed device
    std::string updater;
    TrialBounds bounds;
    std::vector<std::string> environment;
    std::string keepAt; ///< full path at which the panel is kept; empty for not at all
    bool isTwice = false;
    /// Name of the panel's processor; empty for the one that the package's updater is for.
    std::string processor;
    std::function<void(const TrialProgress&)> onProgress; ///< several times a second, or none
    unsigned bootSeconds = 0; ///< that the start-up script is given at a restart; 0: there is none
    /// Returns the line that a shell on the panel begins with; without it there is no shell.
    std::function<std::string(bool isInstalled)> shellGreeting;
    std::optional<ShellFailure> failure; ///< of the first installation
};

/// What a panel recorded of an installation.
struct TrialRecord {
    std::vector<std::string> folders;
    std::vector<std::string> files;
};

/// What a trial tells of the panel.
enum class Verdict {
    kInstalled,
    kNotInstalled,
    kNotJudged, ///< what was tried here is not what a panel would do
};

/// One installation of the package.
struct Installation {
    std::optional<int> exitCode;      ///< of the updater; absent when it was not started
    bool isUnpacked = false;          ///< the package lay on the drive unpacked
    bool isInstalled = false;         ///< the updater ended with 0
    bool isRefused = false;           ///< the command that was to fail was reached
    std::vector<std::string> remarks; ///< what else is to be said
    BoundedText log;                  ///< of the updater; or of the unpacking, when that failed
    PanelChanges changes;
    std::optional<TrialRecord> record;
    std::vector<std::string> doubts;      ///< why it cannot be judged; none when it can
    std::vector<StartedProgram> programs; ///< those of the package that it started
    std::vector<StepFailure> failedSteps; ///< skipped or not

    [[nodiscard]] Verdict Outcome() const;
};

/// What the person did in the shell.
struct ShellVisit {
    int exitStatus = 0;
    std::vector<std::string> remarks;
    PanelChanges changes;
};

struct TrialResult {
    std::string recordName;                  ///< of the record's folder
    std::vector<Installation> installations; ///< one, or two
    std::optional<Restart> restart;
    std::optional<ShellVisit> shell;
    bool isKept = false; ///< the panel, at TrialRequest::keepAt

    /// That of the last installation; when one cannot be judged, none can be relied on.
    [[nodiscard]] Verdict Outcome() const;
};

/// Returns a path of the package that ends in its name: "." and the like become full paths.
/// @throws Error when there is nothing, or it cannot be read
[[nodiscard]] std::string NamedPath(const std::string& path);

/// Installs a package on a panel of the sandboxed device, the way a panel does.
/// @throws Error when the package cannot be read, there is no device, or the person interrupted;
///         nothing is left then
[[nodiscard]] TrialResult RunTrial(const TrialRequest& request);

} // namespace kx::tool
