// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/Remains.h"

#include "journal/Baseline.h"
#include "journal/History.h"
#include "road/StepFolder.h"

#include <optional>
#include <string_view>

namespace kx::guard
{

namespace
{

/// Removes files that were to replace others and never did, in a folder and those in it.
void RemoveHalfWritten(const StateFolder& folder)
{
    constexpr std::string_view kNew = ".new";
    for (const std::string& name : folder.Names()) {
        if (name.front() == '.' && name.size() > kNew.size() &&
            name.compare(name.size() - kNew.size(), kNew.size(), kNew) == 0) {
            folder.Remove(name);
        }
    }
}

Ending InterruptedEnding(const std::string& message)
{
    constexpr int kStatus = 3;
    return {Outcome::kInterrupted, kStatus, Speaker::kPanel, message};
}

} // namespace

void ClearWork(const StateFolder& state)
{
    state.Remove(kCopyName);
    state.Remove(kWorkName);
}

std::string ClearRemains(const State& state, const std::string& stepFolder,
                         const io::RootedFolder& panel)
{
    const StateFolder& folder = state.Folder();
    const std::optional<Begun> begun = FindBegun(folder);
    std::string found;
    if (begun.has_value()) {
        const bool isRecorded = IsRecorded(panel, *begun);
        if (isRecorded) {
            RaiseVersion(folder, begun->name, begun->version);
        }
        found = "the installation of " + begun->name + " " + begun->version +
                " was interrupted; the panel's record says that " +
                (isRecorded ? "all of its steps were done" : "not all of its steps were done");
        StepFolder::Remove(stepFolder);
    }
    CompleteHistory(folder, [&begun, &found](std::uint64_t id) {
        return InterruptedEnding(begun.has_value() && begun->historyId == id
                                     ? found
                                     : "it was interrupted before the updater was started");
    });
    ClearWork(folder);
    RemoveHalfWritten(folder);
    for (const char* const name : {"history", "versions"}) {
        if (const std::optional<StateFolder> inner = folder.Find(name); inner.has_value()) {
            RemoveHalfWritten(*inner);
        }
    }
    state.ForgetInstaller();
    if (begun.has_value()) {
        ForgetBegun(folder);
    }
    return found;
}

} // namespace kx::guard
