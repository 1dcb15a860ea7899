// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compare/PackageDifference.h"

#include "compare/LineDifference.h"
#include "format/Processor.h"
#include "format/Summary.h"
#include "io/Descriptor.h"
#include "io/TemporaryFile.h"
#include "io/Text.h"
#include "io/Transfer.h"
#include "panel/FreshPanel.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <utility>

namespace kx::tool
{

namespace
{

/// One of the two packages.
struct Side {
    const archive::Package& package;
    PackageContents contents;
};

/// Hands the content of a file out.
void StreamOf(const Side& side, const PackageFile& file, const archive::ContentSink& sink)
{
    if (file.entry != nullptr) {
        side.package.Stream(file.entry->name, sink);
    } else {
        static_cast<void>(sink(file.text));
    }
}

/// Contents up to this size are compared in memory.
constexpr std::uint64_t kSmall = std::uint64_t{4} << 20;

/// Returns the content of a file, or one byte more of it than is small.
std::string HeadOf(const Side& side, const PackageFile& file)
{
    return file.entry != nullptr ? side.package.Read(file.entry->name, kSmall + 1) : file.text;
}

/// Tells whether two files of the packages have the same content.
bool IsSameContent(const Side& before, const PackageFile& one, const Side& after,
                   const PackageFile& other)
{
    if (one.size != other.size) {
        return false;
    }
    if (one.size <= kSmall) {
        const std::string first = HeadOf(before, one);
        const std::string second = HeadOf(after, other);
        if (first.size() <= kSmall || second.size() <= kSmall) {
            return first == second;
        }
    }
    // Contents come in pieces of their own sizes: one of the two is kept to be read again.
    constexpr const char* kShown = "the temporary file";
    const io::Descriptor kept = io::MakeTemporaryFile();
    std::uint64_t size = 0;
    StreamOf(before, one, [&kept, &size](std::string_view piece) {
        io::WriteAll(kept.Number(), piece, kShown);
        size += piece.size();
        return true;
    });
    std::uint64_t done = 0;
    bool isSame = true;
    std::string bytes;
    StreamOf(after, other, [&](std::string_view piece) {
        bytes.resize(piece.size());
        const std::size_t count =
            io::ReadAt(kept.Number(), bytes.data(), bytes.size(), done, kShown);
        done += piece.size();
        isSame = std::string_view(bytes).substr(0, count) == piece;
        return isSame;
    });
    return isSame && done == size;
}

std::string Shown(const Fact& fact)
{
    return fact.isSecret ? format::kMasked : fact.value;
}

/// Compares facts by their names, in the order of the first list.
std::vector<FactChange> CompareFacts(const std::vector<Fact>& before,
                                     const std::vector<Fact>& after)
{
    std::map<std::string, const Fact*> others;
    for (const Fact& fact : after) {
        others[fact.name] = &fact;
    }
    std::vector<FactChange> changes;
    for (const Fact& fact : before) {
        const auto other = others.find(fact.name);
        if (other == others.end()) {
            changes.push_back({fact.name, Shown(fact), std::nullopt});
        } else {
            if (other->second->value != fact.value) {
                changes.push_back({fact.name, Shown(fact), Shown(*other->second)});
            }
            others.erase(other);
        }
    }
    for (const Fact& fact : after) {
        if (others.count(fact.name) != 0) {
            changes.push_back({fact.name, std::nullopt, Shown(fact)});
        }
    }
    return changes;
}

std::vector<Fact> FactsOf(const std::map<std::string, Fact>& settings)
{
    std::vector<Fact> facts;
    facts.reserve(settings.size());
    for (const auto& [name, fact] : settings) {
        facts.push_back(fact);
    }
    return facts;
}

/// Returns what a fact list says of a name, or nothing.
const std::string& ValueOf(const std::vector<Fact>& facts, const std::string& name)
{
    static const std::string kNone;
    const auto found = std::find_if(facts.begin(), facts.end(),
                                    [&name](const Fact& fact) { return fact.name == name; });
    return found == facts.end() ? kNone : found->value;
}

std::vector<ScriptChange> CompareScripts(const std::vector<Fact>& before,
                                         const std::vector<Fact>& after)
{
    std::vector<ScriptChange> changes;
    for (const char* const name : {"install", "uninstall", "start-up"}) {
        std::string unified = UnifiedDifference(ValueOf(before, name), ValueOf(after, name));
        if (!unified.empty()) {
            changes.push_back({name, std::move(unified)});
        }
    }
    return changes;
}

/// All that a step says, as one text.
std::string TextOf(const StepFacts& step)
{
    std::string text = step.kind;
    for (const auto* const list : {&step.facts, &step.scripts}) {
        for (const Fact& fact : *list) {
            text += '\0' + fact.name + '\0' + fact.value;
        }
        text += '\0';
    }
    return text;
}

std::vector<std::string> TextsOf(const std::vector<StepFacts>& steps)
{
    std::vector<std::string> texts;
    texts.reserve(steps.size());
    for (const StepFacts& step : steps) {
        texts.push_back(TextOf(step));
    }
    return texts;
}

StepChange CompareSteps(const PackageContents& before, std::optional<std::size_t> one,
                        const PackageContents& after, std::optional<std::size_t> other)
{
    static const StepFacts kNone;
    const StepFacts& first = one.has_value() ? before.steps[*one] : kNone;
    const StepFacts& second = other.has_value() ? after.steps[*other] : kNone;
    StepChange change;
    change.before = one.has_value() ? std::optional(first.number) : std::nullopt;
    change.after = other.has_value() ? std::optional(second.number) : std::nullopt;
    change.kind = other.has_value() ? second.kind : first.kind;
    change.facts = CompareFacts(first.facts, second.facts);
    change.scripts = CompareScripts(first.scripts, second.scripts);
    return change;
}

/// Tells of the steps between two that are the same: those of one kind belong together in their
/// order, the others are gone and new.
void AddStepsBetween(const PackageContents& before, std::vector<std::size_t>& gone,
                     const PackageContents& after, std::vector<std::size_t>& added,
                     std::vector<StepChange>& changes)
{
    for (const std::size_t one : gone) {
        const auto same = std::find_if(added.begin(), added.end(), [&](const std::size_t other) {
            return after.steps[other].kind == before.steps[one].kind;
        });
        if (same == added.end()) {
            changes.push_back(CompareSteps(before, one, after, std::nullopt));
            continue;
        }
        // What stands before it is new: the order is kept.
        for (auto other = added.begin(); other != same; ++other) {
            changes.push_back(CompareSteps(before, std::nullopt, after, *other));
        }
        changes.push_back(CompareSteps(before, one, after, *same));
        added.erase(added.begin(), same + 1);
    }
    for (const std::size_t other : added) {
        changes.push_back(CompareSteps(before, std::nullopt, after, other));
    }
    gone.clear();
    added.clear();
}

std::vector<StepChange> CompareAllSteps(const PackageContents& before, const PackageContents& after)
{
    std::vector<StepChange> changes;
    std::vector<std::size_t> gone;
    std::vector<std::size_t> added;
    for (const auto& [one, other] : MatchLists(TextsOf(before.steps), TextsOf(after.steps))) {
        if (one.has_value() && other.has_value()) {
            AddStepsBetween(before, gone, after, added, changes);
        } else if (one.has_value()) {
            gone.push_back(*one);
        } else if (other.has_value()) {
            added.push_back(*other);
        }
    }
    AddStepsBetween(before, gone, after, added, changes);
    return changes;
}

using Files = std::map<std::string, PackageFile>;

std::vector<PackageFileChange> CompareFiles(const Side& before, const Files& one, const Side& after,
                                            const Files& other)
{
    std::vector<PackageFileChange> changes;
    for (const auto& [path, file] : one) {
        const auto found = other.find(path);
        if (found == other.end()) {
            changes.push_back({path, file, std::nullopt, false});
            continue;
        }
        const bool isSame = IsSameContent(before, file, after, found->second);
        if (!isSame || file.mode != found->second.mode) {
            changes.push_back({path, file, found->second, !isSame});
        }
    }
    for (const auto& [path, file] : other) {
        if (one.count(path) == 0) {
            changes.push_back({path, std::nullopt, file, false});
        }
    }
    std::sort(
        changes.begin(), changes.end(),
        [](const PackageFileChange& a, const PackageFileChange& b) { return a.path < b.path; });
    return changes;
}

std::vector<KeptPath> KeptOf(const PackageContents& before, const PackageContents& after)
{
    const std::vector<std::string>& usual = panel::TheFreshPanel().folders;
    const std::set<std::string> fresh(usual.begin(), usual.end());
    std::vector<KeptPath> kept;
    for (const std::string& folder : before.folders) {
        if (after.folders.count(folder) == 0 && fresh.count(folder) == 0) {
            kept.push_back({folder, true, false});
        }
    }
    for (const auto& [path, file] : before.files) {
        if (after.files.count(path) == 0) {
            kept.push_back({path, false, file.isRecorded});
        }
    }
    std::sort(kept.begin(), kept.end(),
              [](const KeptPath& a, const KeptPath& b) { return a.path < b.path; });
    return kept;
}

/// Returns what is said of an updater.
std::string UpdaterText(const Side& side)
{
    const archive::PackageEntry& entry = *side.contents.updater;
    const auto head =
        format::ReadProgramHead(side.package.Read(entry.name, format::kProgramHeadSize));
    return (head.has_value() ? "for " + head->ProcessorName() : "no program") + ", " +
           io::SizeText(entry.size);
}

/// The updater counts where both have one: the sources of a package may have none.
void CompareUpdaters(const Side& before, const Side& after, std::vector<FactChange>& changes)
{
    const archive::PackageEntry* const one = before.contents.updater;
    const archive::PackageEntry* const other = after.contents.updater;
    if (one == nullptr || other == nullptr) {
        return;
    }
    const PackageFile first = {one, "", one->size, "", false};
    const PackageFile second = {other, "", other->size, "", false};
    if (!IsSameContent(before, first, after, second)) {
        changes.push_back({"updater", UpdaterText(before), UpdaterText(after)});
    }
}

} // namespace

bool PackageDifference::IsNone() const
{
    return identity.empty() && steps.empty() && settings.empty() && files.empty() && unused.empty();
}

PackageDifference ComparePackages(const format::FastPackage& before,
                                  const format::FastPackage& after)
{
    const Side one = {before, ContentsOf(before)};
    const Side other = {after, ContentsOf(after)};
    PackageDifference difference;
    difference.identity = CompareFacts(one.contents.identity, other.contents.identity);
    CompareUpdaters(one, other, difference.identity);
    difference.steps = CompareAllSteps(one.contents, other.contents);
    difference.settings =
        CompareFacts(FactsOf(one.contents.settings), FactsOf(other.contents.settings));
    difference.files = CompareFiles(one, one.contents.files, other, other.contents.files);
    difference.unused = CompareFiles(one, one.contents.unused, other, other.contents.unused);
    difference.kept = KeptOf(one.contents, other.contents);
    return difference;
}

} // namespace kx::tool
