// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "journal/History.h"

#include "format/Secrets.h"
#include "io/Error.h"
#include "io/Text.h"
#include "io/Transfer.h"
#include "io/Utf8.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

constexpr const char* kHistory = "history";
constexpr std::size_t kDigits = 10; ///< so that names stand in the order of their numbers
constexpr std::string_view kEnding = ".jsonl";
constexpr std::size_t kLongestText = 500; ///< bytes of one text of a package
constexpr std::size_t kMostReasons = 30;
/// What lines may take of an entry, beginning and end together.
constexpr std::uint64_t kMostLineBytes = std::uint64_t{256} << 10;
/// What one entry may take at most, with all that is not lines.
constexpr std::uint64_t kLargestEntry = std::uint64_t{2} << 20;

std::string NameOf(std::uint64_t id)
{
    const std::string digits = std::to_string(id);
    return std::string(kDigits - std::min(kDigits, digits.size()), '0') + digits +
           std::string(kEnding);
}

/// Returns the number of an entry; 0 for what is none.
std::uint64_t IdOf(const std::string& name)
{
    std::uint64_t id = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
    return error == std::errc() && NameOf(id) == name ? id : 0;
}

/// The numbers of all entries, the oldest first.
std::vector<std::uint64_t> IdsIn(const StateFolder& folder)
{
    std::vector<std::uint64_t> ids;
    for (const std::string& name : folder.Names()) {
        if (const std::uint64_t id = IdOf(name); id != 0) {
            ids.push_back(id);
        }
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

std::uint64_t SizeIn(const StateFolder& folder, std::uint64_t id)
{
    struct stat info {
    };
    const int result =
        fstatat(folder.File().Number(), NameOf(id).c_str(), &info, AT_SYMLINK_NOFOLLOW);
    return result == 0 && info.st_size > 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

/// Removes the oldest entries until there is room for one more.
/// @param room  bytes that it may take
void MakeRoom(const StateFolder& folder, const Limits& limits, std::uint64_t room,
              const std::vector<std::uint64_t>& ids)
{
    std::uint64_t bytes = room;
    std::uint64_t count = 1;
    bool isFull = false;
    for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
        bytes += SizeIn(folder, *id);
        count += 1;
        isFull = isFull || bytes > limits.historyBytes || count > limits.historyEntries;
        if (isFull) {
            folder.Remove(NameOf(*id));
        }
    }
}

std::string Cut(const std::string& text)
{
    // Printable first: it leaves nothing that a cut could damage but characters.
    const std::string shown = io::Printable(text);
    return shown.substr(0, io::Utf8Prefix(std::string_view(shown).substr(0, kLongestText)));
}

void ReplaceAll(std::string& text, const std::string& what)
{
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + std::string_view(format::kMasked).size())) {
        text.replace(at, what.size(), format::kMasked);
    }
}

PastInstallation ReadEntry(const StateFolder& folder, std::uint64_t id)
{
    const std::string name = NameOf(id);
    const std::optional<std::string> bytes = folder.Read(name, kLargestEntry);
    std::optional<PastInstallation> past =
        bytes.has_value() ? PastInstallationOf(*bytes) : std::nullopt;
    if (!past.has_value() || past->id != id) {
        throw io::Error(io::ExitCode::kProblems, folder.Shown(name), "is damaged", "remove it");
    }
    return std::move(*past);
}

/// Returns the bytes of a file up to the end of its last whole line.
std::string WholeLines(const std::string& bytes)
{
    return bytes.substr(0, bytes.rfind('\n') + 1); // npos + 1 is 0
}

} // namespace

HistoryEntry::HistoryEntry(const StateFolder& state, const Limits& limits, const std::string& file,
                           std::int64_t began)
    : m_folder(state.FindOrMake(kHistory)), m_limits(limits),
      m_half(std::min(kMostLineBytes, limits.historyBytes / 2) / 2)
{
    const std::vector<std::uint64_t> ids = IdsIn(m_folder);
    // Counted on from the newest, which is never removed before there is a newer one.
    m_id = ids.empty() ? 1 : ids.back() + 1;
    m_name = NameOf(m_id);
    MakeRoom(m_folder, limits, 2 * m_half, ids);
    m_file = m_folder.Create(m_name);
    try {
        Write(BeginningText(m_id, began, Cut(file)));
    } catch (const io::Error&) {
        m_folder.Remove(m_name); // without its first line it is none
        throw;
    }
    m_folder.Sync();
    state.Sync();
}

void HistoryEntry::NoteDecision(const Decision& decision)
{
    PastInstallation facts;
    facts.name = Cut(decision.facts.name);
    facts.version = Cut(decision.facts.version);
    facts.signer = Cut(decision.facts.signer);
    for (const Reason& reason : decision.reasons) {
        if (facts.reasons.size() == kMostReasons) {
            break;
        }
        facts.reasons.push_back({ReasonWord(reason.id), Cut(WhatText(reason, Language::kEnglish)),
                                 Cut(RemedyText(reason, Language::kEnglish)),
                                 Cut(WhatText(reason, Language::kJapanese)),
                                 Cut(RemedyText(reason, Language::kJapanese))});
    }
    // Many reasons must not push all other entries out; the first ones say enough.
    std::string text = FactsText(facts);
    while (text.size() > m_limits.historyBytes / 4 && !facts.reasons.empty()) {
        facts.reasons.pop_back();
        text = FactsText(facts);
    }
    Write(text);
}

std::string HistoryEntry::Shown(std::string_view line) const
{
    std::string shown = format::MaskedCommand(std::string(line));
    for (const std::string& secret : m_secrets) {
        if (!secret.empty()) {
            ReplaceAll(shown, secret);
        }
    }
    return io::Printable(shown);
}

void HistoryEntry::NoteLine(std::uint64_t milliseconds, const std::string& shown)
{
    std::string text = LineText({milliseconds, shown});
    if (m_end.empty() && m_omitted == 0 && m_written + text.size() <= m_half) {
        if (TryWrite(text) == 0) {
            m_written += text.size();
        } else {
            m_omitted += 1;
        }
        return;
    }
    m_endBytes += text.size();
    m_end.push_back(std::move(text));
    while (m_endBytes > m_half) {
        m_endBytes -= m_end.front().size();
        m_end.pop_front();
        m_omitted += 1;
    }
}

void HistoryEntry::Finish(const Ending& how)
{
    Ending ending = how;
    ending.message = Cut(how.message);
    std::string rest = m_omitted > 0 ? OmittedText(m_omitted) : "";
    for (const std::string& line : m_end) {
        rest += line;
    }
    // Where the disk has no room for the lines, how it ended is still worth being noted.
    if (TryWrite(rest + EndingText(ending)) != 0) {
        Write(EndingText(ending));
    }
    if (fsync(m_file.Number()) != 0) {
        throw io::AccessError(m_folder.Shown(m_name), "write", errno);
    }
    std::vector<std::uint64_t> others = IdsIn(m_folder);
    others.erase(std::remove(others.begin(), others.end(), m_id), others.end());
    MakeRoom(m_folder, m_limits, m_size, others);
}

int HistoryEntry::TryWrite(const std::string& text)
{
    const io::Transferred done = io::TryWriteAll(m_file.Number(), text);
    if (done.error == 0) {
        m_size += text.size();
        return 0;
    }
    // Half a line would make the whole entry unreadable.
    const auto size = static_cast<off_t>(m_size);
    const bool isUndone =
        ftruncate(m_file.Number(), size) == 0 && lseek(m_file.Number(), size, SEEK_SET) == size;
    return isUndone || done.count == 0 ? done.error : EIO;
}

void HistoryEntry::Write(const std::string& text)
{
    if (const int error = TryWrite(text); error != 0) {
        throw io::AccessError(m_folder.Shown(m_name), "write", error);
    }
}

void CompleteHistory(const StateFolder& state,
                     const std::function<Ending(std::uint64_t id)>& endingOf)
{
    const std::optional<StateFolder> folder = state.Find(kHistory);
    if (!folder.has_value()) {
        return;
    }
    for (const std::uint64_t id : IdsIn(*folder)) {
        const std::optional<std::string> bytes = folder->Read(NameOf(id), kLargestEntry);
        const std::optional<PastInstallation> past =
            bytes.has_value() ? PastInstallationOf(*bytes) : std::nullopt;
        if (past.has_value() && !past->ending.has_value()) {
            folder->Replace(NameOf(id), WholeLines(*bytes) + EndingText(endingOf(id)));
        }
    }
}

History ReadHistory(const StateFolder& state)
{
    History history;
    const std::optional<StateFolder> folder = state.Find(kHistory);
    if (!folder.has_value()) {
        return history;
    }
    const std::vector<std::uint64_t> ids = IdsIn(*folder);
    for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
        try {
            history.entries.push_back(ReadEntry(*folder, *id));
            history.entries.back().lines.clear();
        } catch (const io::Error& error) {
            history.problems.push_back(io::Printable(error.Line()));
        }
    }
    return history;
}

std::optional<PastInstallation> ReadHistoryEntry(const StateFolder& state, std::uint64_t id)
{
    const std::optional<StateFolder> folder = state.Find(kHistory);
    if (!folder.has_value() || !folder->Read(NameOf(id), kLargestEntry).has_value()) {
        return {};
    }
    return ReadEntry(*folder, id);
}

} // namespace kx::guard
