// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "decision/Decision.h"
#include "journal/PastInstallation.h"
#include "journal/StateFolder.h"
#include "policy/Policy.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kx::guard
{

/// An entry of the history that is being written. Control characters and passwords do not get into
/// it. Of what the updater prints it keeps the beginning and the end.
class HistoryEntry
{
public:
    /// Begins an entry; the oldest ones are removed where the limits ask for that.
    /// @param file   the package's own file name
    /// @param began  seconds since 1970
    /// @throws Error when it cannot be written
    HistoryEntry(const StateFolder& state, const Limits& limits, const std::string& file,
                 std::int64_t began);

    [[nodiscard]] std::uint64_t Id() const { return m_id; }

    /// Notes what the package says about itself, and why it is refused: the first reasons, as many
    /// as an entry has room for.
    /// @throws Error when it cannot be written
    void NoteDecision(const Decision& decision);

    /// From now on these texts are masked wherever they stand in a line.
    void Mask(std::vector<std::string> secrets) { m_secrets = std::move(secrets); }

    /// Returns a line as it is noted and shown: printable, with passwords masked.
    [[nodiscard]] std::string Shown(std::string_view line) const;

    /// Notes a line that was printed. A full disk is no reason to stop an installation: what cannot
    /// be written is left out.
    /// @param shown  as Shown returned it
    void NoteLine(std::uint64_t milliseconds, const std::string& shown);

    /// Notes the end, and brings the entry to the disk.
    /// @throws Error when it cannot be written
    void Finish(const Ending& how);

private:
    /// @return 0, or an errno; then nothing of it is in the file
    int TryWrite(const std::string& text);
    void Write(const std::string& text);

    StateFolder m_folder;
    Limits m_limits;
    std::uint64_t m_id = 0;
    std::string m_name;
    io::Descriptor m_file;
    std::vector<std::string> m_secrets;
    std::uint64_t m_size = 0;      ///< bytes of the file
    std::uint64_t m_half;          ///< bytes that the beginning may have, and the end
    std::uint64_t m_written = 0;   ///< bytes of the beginning
    std::deque<std::string> m_end; ///< lines that are written last
    std::uint64_t m_endBytes = 0;
    std::uint64_t m_omitted = 0; ///< lines between the beginning and the end
};

/// Completes every entry whose writer did not come to its end.
/// @param endingOf  returns how an entry ended
/// @throws Error when one cannot be written
void CompleteHistory(const StateFolder& state,
                     const std::function<Ending(std::uint64_t id)>& endingOf);

/// All that is remembered.
struct History {
    std::vector<PastInstallation> entries; ///< newest first, without their lines
    std::vector<std::string> problems;     ///< files that are damaged, printable
};

/// Reads all entries.
/// @throws Error when the folder cannot be read
[[nodiscard]] History ReadHistory(const StateFolder& state);

/// Reads one entry with its lines; nothing when there is none of that number.
/// @throws Error when it is damaged or cannot be read
[[nodiscard]] std::optional<PastInstallation> ReadHistoryEntry(const StateFolder& state,
                                                               std::uint64_t id);

} // namespace kx::guard
