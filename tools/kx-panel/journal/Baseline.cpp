// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "journal/Baseline.h"

#include "decision/VersionOrder.h"
#include "io/Error.h"
#include "registry/Registry.h"
#include "signature/PackageName.h"

#include <algorithm>
#include <charconv>
#include <utility>
#include <vector>

namespace kx::guard
{

namespace
{

constexpr const char* kVersions = "versions";
constexpr const char* kBegun = "begun";
constexpr std::uint64_t kLargestNote = 4096;

/// The lines of a note; nothing when the last one does not end.
std::optional<std::vector<std::string>> LinesOf(const std::string& note)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < note.size();) {
        const std::size_t end = note.find('\n', at);
        if (end == std::string::npos) {
            return {};
        }
        lines.push_back(note.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

/// The version stands there twice, so that damage shows.
std::string VersionNote(const std::string& name, const std::string& version)
{
    return name + "\n" + version + "\n" + version + "\n";
}

io::Error DamagedNote(const std::string& shown)
{
    return {io::ExitCode::kProblems, shown, "is damaged, so it cannot be told what was installed",
            "compare the panel's packages with what it should have, then remove the file"};
}

std::optional<std::string> VersionIn(const StateFolder& versions, const std::string& name)
{
    const std::optional<std::string> note = versions.Read(name, kLargestNote);
    if (!note.has_value()) {
        return {};
    }
    const std::optional<std::vector<std::string>> lines = LinesOf(*note);
    if (!lines.has_value() || lines->size() != 3 || !IsVersion((*lines)[1]) ||
        *note != VersionNote(name, (*lines)[1])) {
        throw DamagedNote(versions.Shown(name));
    }
    return (*lines)[1];
}

/// A text of a package as one line of a note.
std::string AsLine(std::string text)
{
    text.resize(std::min(text.size(), kLongestVersion));
    return text.find_first_of(std::string_view("\n\0", 2)) == std::string::npos ? text : "";
}

} // namespace

std::optional<std::string> HighestVersion(const StateFolder& state, const std::string& name)
{
    const std::optional<StateFolder> versions = state.Find(kVersions);
    return versions.has_value() ? VersionIn(*versions, name) : std::nullopt;
}

void RaiseVersion(const StateFolder& state, const std::string& name, const std::string& version)
{
    if (!IsVersion(version)) {
        return;
    }
    const StateFolder versions = state.FindOrMake(kVersions);
    const std::optional<std::string> before = VersionIn(versions, name);
    if (!before.has_value() || CompareVersions(*before, version) < 0) {
        versions.Replace(name, VersionNote(name, version));
        state.Sync();
    }
}

std::map<std::string, std::string> AllVersions(const StateFolder& state)
{
    std::map<std::string, std::string> all;
    const std::optional<StateFolder> versions = state.Find(kVersions);
    if (!versions.has_value()) {
        return all;
    }
    for (const std::string& name : versions->Names()) {
        if (!signature::IsSafePackageName(name)) {
            continue; // a note that was not finished
        }
        if (std::optional<std::string> version = VersionIn(*versions, name); version.has_value()) {
            all.emplace(name, std::move(*version));
        }
    }
    return all;
}

void NoteBegun(const StateFolder& state, const Begun& begun)
{
    state.Replace(kBegun, begun.name + "\n" + AsLine(begun.version) + "\n" +
                              std::to_string(begun.historyId) + "\n");
}

void ForgetBegun(const StateFolder& state)
{
    state.Remove(kBegun);
    state.Sync();
}

std::optional<Begun> FindBegun(const StateFolder& state)
{
    const std::optional<std::string> note = state.Read(kBegun, kLargestNote);
    if (!note.has_value()) {
        return {};
    }
    const std::optional<std::vector<std::string>> lines = LinesOf(*note);
    Begun begun;
    if (!lines.has_value() || lines->size() != 3 || !signature::IsSafePackageName((*lines)[0])) {
        throw DamagedNote(state.Shown(kBegun));
    }
    begun.name = (*lines)[0];
    begun.version = (*lines)[1];
    const std::string& id = (*lines)[2];
    const auto [end, error] = std::from_chars(id.data(), id.data() + id.size(), begun.historyId);
    if (error != std::errc() || end != id.data() + id.size()) {
        throw DamagedNote(state.Shown(kBegun));
    }
    return begun;
}

bool IsRecorded(const io::RootedFolder& panel, const Begun& begun)
{
    // The description is copied into the record when all steps are done.
    const registry::Record record = registry::ReadRecord(panel, begun.name);
    return record.identity.has_value() && record.identity->version == begun.version;
}

std::optional<std::string> HighestVersionNow(const StateFolder& state,
                                             const io::RootedFolder& panel, const std::string& name)
{
    std::optional<std::string> highest = HighestVersion(state, name);
    const std::optional<Begun> begun = FindBegun(state);
    if (begun.has_value() && begun->name == name && IsVersion(begun->version) &&
        (!highest.has_value() || CompareVersions(*highest, begun->version) < 0) &&
        IsRecorded(panel, *begun)) {
        highest = begun->version;
    }
    return highest;
}

} // namespace kx::guard
