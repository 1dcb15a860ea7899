// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/RootedFolder.h"
#include "journal/State.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace kx::guard
{

// The highest version of each package that was ever installed on this panel. A record of the
// updater's is gone after a failed installation; what is remembered here is not, and it is never
// lowered.

/// Returns the highest version of a package that was ever installed; nothing when none was.
/// @param name  one that a package may have (signature::IsSafePackageName)
/// @throws Error when what is remembered of it is damaged: that must not count as "none"
[[nodiscard]] std::optional<std::string> HighestVersion(const StateFolder& state,
                                                        const std::string& name);

/// Remembers that a version of a package was installed. A lower one than is remembered changes
/// nothing, nor does one that cannot be compared with others.
/// @throws Error when it cannot be written, or what is remembered of the package is damaged
void RaiseVersion(const StateFolder& state, const std::string& name, const std::string& version);

/// Returns the highest versions of all packages, by name.
/// @throws Error as HighestVersion, for the first that is damaged
[[nodiscard]] std::map<std::string, std::string> AllVersions(const StateFolder& state);

/// An installation that was begun: what the next start must know of it, should this one not live to
/// its end.
struct Begun {
    std::string name;
    std::string version;
    std::uint64_t historyId = 0;
};

/// Remembers that an installer is about to start.
/// @throws Error when it cannot be written
void NoteBegun(const StateFolder& state, const Begun& begun);

/// Forgets it: the installer has ended, and what came of it is remembered.
/// @throws Error when that cannot be written
void ForgetBegun(const StateFolder& state);

/// Returns the installation that was begun and not ended; nothing when there is none.
/// @throws Error when what is remembered of it is damaged
[[nodiscard]] std::optional<Begun> FindBegun(const StateFolder& state);

/// Tells whether all steps of an installation that was begun were done after all: the record of the
/// package, which the updater writes then, has that version.
/// @param panel  the panel's files
[[nodiscard]] bool IsRecorded(const io::RootedFolder& panel, const Begun& begun);

/// Returns what HighestVersion does, for a reader that changes nothing: an installation that was
/// begun and is recorded counts, although no start has noted that yet.
[[nodiscard]] std::optional<std::string>
HighestVersionNow(const StateFolder& state, const io::RootedFolder& panel, const std::string& name);

} // namespace kx::guard
