// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "format/FastSteps.h"
#include "format/Processor.h"
#include "format/Secrets.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kx::format
{

/// One item of a copy step, with what the package holds for it.
struct SummaryItem {
    std::string source; ///< as the author had it
    std::string target;
    std::string mode;        ///< of a file item; empty means 777
    bool isMissing = false;  ///< there is no payload for it
    std::uint64_t files = 0; ///< in the payload
    std::uint64_t size = 0;  ///< bytes of these
};

/// One hardware setting.
struct SummarySetting {
    std::string kind; ///< name of the kind; empty when the updater knows none
    std::string id;   ///< what the description says
    bool isUsed = false;
    std::vector<std::pair<std::string, std::string>> items;
};

/// One step.
struct SummaryStep {
    std::string kind; ///< name of the kind; empty when the updater knows none
    std::string id;   ///< what the description says
    std::string comment;
    bool canSkip = false;
    bool isRecorded = false;
    std::vector<SummaryItem> items;
    std::string install;
    std::string uninstall;
    std::vector<SummarySetting> settings;
};

/// The updater in a package.
struct SummaryUpdater {
    std::uint64_t size = 0;
    bool isExecutable = false;
    std::optional<ProgramHead> program; ///< absent when it is no program
};

/// What is in a package; not what a panel does with it, which the rehearsal tells. Fields that a
/// description lacks, or has as something else, are empty.
struct Summary {
    std::string recordName;
    std::string title;
    std::string version;
    std::string comment;
    std::string model;
    std::string osVersion;
    std::string date;
    std::optional<SummaryUpdater> updater;
    std::vector<SummaryStep> steps;
    std::vector<FastSteps> fastFolders;
    std::uint64_t files = 0; ///< of the payload
    std::uint64_t size = 0;  ///< bytes of these
};

/// Looks into a package.
/// @throws Error when its description cannot be read, or is no JSON object
[[nodiscard]] Summary Summarize(const archive::Package& package, Secrets secrets = Secrets::kMask);

} // namespace kx::format
