// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "decision/Decision.h"
#include "journal/PastInstallation.h"
#include "journal/State.h"
#include "panel/Names.h"
#include "policy/Policy.h"
#include "road/Judge.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace kx::guard
{

/// Where an installation finds and makes things, and how patient it is; a test hands in others.
struct RoadPlaces {
    StatePlace state;
    std::string updater;                               ///< the program that installs, a full path
    std::string stepFolder = panel::kStepScriptFolder; ///< made anew for the updater's scripts
    /// How long to wait for what an updater that was killed has left running.
    std::chrono::milliseconds patience = std::chrono::seconds(60);
    std::string root = "/"; ///< the panel's files, for its records
};

/// Returns the places of this panel.
[[nodiscard]] RoadPlaces PlacesOf(const Policy& policy);

/// Where an installation stands.
enum class RoadStep {
    kClearing, ///< what an earlier one left is removed
    kLooking,  ///< what can be told before anything is copied
    kCopying,
    kDeciding,
    kUnpacking,
    kInstalling,
};

/// Is told how an installation goes on.
class IRoadObserver
{
public:
    virtual void OnStep(RoadStep step) = 0;
    /// A line of the updater's, or of what it runs: printable, passwords masked.
    virtual void OnLine(const std::string& line) = 0;
    /// A remark of kx-panel's for people: a sentence without its full stop.
    virtual void OnRemark(const std::string& text) = 0;

protected:
    ~IRoadObserver() = default;
};

/// What became of an installation.
struct Installation {
    Decision decision;
    Ending ending;
    std::uint64_t historyId = 0; ///< 0: nothing could be noted
};

/// Installs a package: one at a time, from a copy in the state folder that nobody else can change;
/// what is judged, unpacked and installed is that copy. It is unpacked under its signed name, and
/// the panel's own updater installs it. Everything is noted in the history, refusals too.
///
/// Before the updater runs, a signal that asks the program to end (io::Interruption) ends it
/// cleanly; whoever wants to tell what became of it has an Interruption of his own around this
/// call. While the updater runs, it is waited for: an installation that is cut short is worse than
/// one that ends late. What a kx-panel that was killed left, or a power cut, is cleared by the next
/// call.
///
/// @param file  path of the package
/// @return never an exception for what is wrong with the package, the state or a disk: that is a
///         reason, or the ending's message
/// @throws Busy when another kx-panel, or an installer that one left, is at work
[[nodiscard]] Installation Install(const Policy& policy, const RoadPlaces& places, IJudge& judge,
                                   const std::string& file, IRoadObserver& observer);

} // namespace kx::guard
