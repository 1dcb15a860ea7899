// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::guard
{

// What became of each package that was to be installed. Entries have numbers, in their order: that
// counts, not the clock, which may say 1970.

/// Whose word the exit status of an installation is.
enum class Speaker {
    kPanel,  ///< kx-panel's
    kUpdater ///< that of the program that installs
};

/// Returns the stable word: "kx-panel", "updater".
[[nodiscard]] const char* SpeakerWord(Speaker speaker);

/// What became of an installation.
enum class Outcome {
    kInstalled,
    kRefused,     ///< not begun, for the reasons
    kFailed,      ///< the updater ended with another status than 0
    kError,       ///< something could not be read or written, or the updater not be started
    kStopped,     ///< kx-panel was asked to end before the updater ran
    kInterrupted, ///< the power was cut, or kx-panel killed: told by the next start
    kEnd
};

/// Returns the stable word: "installed", "refused", "failed", "error", "stopped", "interrupted".
[[nodiscard]] const char* OutcomeWord(Outcome outcome);

/// How an installation ended.
struct Ending {
    Outcome outcome = Outcome::kError;
    int status = 0; ///< with which `kx-panel install` ended
    Speaker from = Speaker::kPanel;
    std::string message; ///< what else there is to say; printable, may be empty
};

/// A reason as it was told.
struct PastReason {
    std::string word;
    std::string what;
    std::string remedy;
    std::string whatJapanese;
    std::string remedyJapanese;
};

/// A line that the updater, or what it ran, printed.
struct PastLine {
    std::uint64_t milliseconds = 0; ///< since the updater's start
    std::string text;               ///< printable, passwords masked
};

/// What is remembered of an installation.
struct PastInstallation {
    std::uint64_t id = 0;
    std::int64_t began = 0; ///< seconds since 1970, as the panel's clock told
    std::string file;       ///< the package's own file name, printable
    std::string name;
    std::string version;
    std::string signer;
    std::vector<PastReason> reasons;
    std::vector<PastLine> lines;
    std::uint64_t omittedLines = 0; ///< left out before lines[omittedAt]
    std::size_t omittedAt = 0;
    std::optional<Ending> ending; ///< absent while it runs
};

// An entry is a file of lines of JSON; each says one of these.

[[nodiscard]] std::string BeginningText(std::uint64_t id, std::int64_t began,
                                        const std::string& file);
[[nodiscard]] std::string FactsText(const PastInstallation& facts);
[[nodiscard]] std::string LineText(const PastLine& line);
[[nodiscard]] std::string OmittedText(std::uint64_t lines);
[[nodiscard]] std::string EndingText(const Ending& ending);

/// Puts what a file says together. A last line that does not end is left out: the power was cut.
/// @return nothing when it is damaged
[[nodiscard]] std::optional<PastInstallation> PastInstallationOf(std::string_view bytes);

} // namespace kx::guard
