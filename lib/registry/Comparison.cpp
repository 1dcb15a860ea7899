// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "registry/Comparison.h"

#include "io/Error.h"
#include "io/Nearest.h"

#include <algorithm>

namespace kx::registry
{

namespace
{

using Kind = io::RootedFolder::Kind;

/// How many names an error lists.
constexpr std::size_t kMostListedNames = 20;

/// Says why no folder in the registry can have the name, or nothing.
const char* WhyNoName(const std::string& name)
{
    if (name.empty()) {
        return "the name is empty";
    }
    if (name == "." || name == "..") {
        return "is not the name of a record";
    }
    if (name.find('/') != std::string::npos) {
        return "is not the name of a record: it contains a '/'";
    }
    return nullptr;
}

std::string RemedyFor(const std::string& name, const std::vector<std::string>& known)
{
    if (known.empty()) {
        return "no packages are recorded";
    }
    if (known.size() > kMostListedNames && io::Nearest(name, known).empty()) {
        return "kx-package installed lists what there is";
    }
    return io::NearestRemedy(name, known);
}

void RefuseUnknownName(const io::RootedFolder& root, const std::string& name)
{
    if (const char* const why = WhyNoName(name); why != nullptr) {
        throw io::Error(io::ExitCode::kWrongUse, name, why,
                        "kx-package installed lists what there is");
    }
    const std::vector<std::string> known = RegistryNames(root);
    if (std::find(known.begin(), known.end(), name) == known.end()) {
        throw io::Error(io::ExitCode::kWrongUse, name,
                        "there is no record of that name in " + root.Shown(kRegistryPath),
                        RemedyFor(name, known));
    }
}

/// Adds one entry to what is known of its kind.
void Count(const ListEntry& entry, const io::RootedFolder::Standing& standing,
           Comparison& comparison)
{
    Tally& tally = entry.isFolder ? comparison.folders : comparison.files;
    if (standing.kind == (entry.isFolder ? Kind::kFolder : Kind::kFile)) {
        ++tally.present;
        return;
    }
    ++(standing.kind == Kind::kMissing   ? tally.missing
       : standing.kind == Kind::kUnknown ? tally.unknown
                                         : tally.otherKind);
    if (comparison.deviations.size() == kMostDeviations) {
        ++comparison.omitted;
        return;
    }
    comparison.deviations.push_back({entry, standing});
}

/// Adds what a script has unpacked.
void CountFast(const io::RootedFolder& root, const format::FastFolder& folder,
               Comparison& comparison)
{
    const auto count = [&](const std::string& path, bool isFolder) {
        Count({isFolder, path, 0}, root.Look(path), comparison);
    };
    count(folder.target, true);
    for (const std::string& name : format::FoldersOf(folder)) {
        count(format::PathInFast(folder, name), true);
    }
    for (const std::string& name : folder.files) {
        count(format::PathInFast(folder, name), false);
    }
}

} // namespace

bool Comparison::HasProblems() const
{
    return !record.problems.empty() || Missing() != 0 || OtherKind() != 0;
}

Comparison CompareRecord(const io::RootedFolder& root, const std::string& name)
{
    RefuseUnknownName(root, name);
    Comparison comparison;
    comparison.record = ReadRecord(root, name, [&](const ListEntry& entry) {
        Count(entry, root.Look(entry.path), comparison);
    });
    for (const format::FastSteps& steps : comparison.record.fastFolders) {
        if (steps.folder.isRecorded) {
            CountFast(root, steps.folder, comparison);
        }
    }
    return comparison;
}

} // namespace kx::registry
