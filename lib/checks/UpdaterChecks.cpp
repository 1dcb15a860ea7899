// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/UpdaterChecks.h"

#include "checks/NameChecks.h"
#include "format/Program.h"

#include <algorithm>
#include <string>

namespace kx::checks
{

namespace
{

/// The head of a program and as much of its table of segments as usual programs have.
constexpr std::uint64_t kHeadSize = 4096;

/// Returns the number of @p count bytes at @p at.
std::uint64_t NumberAt(std::string_view bytes, std::size_t at, std::size_t count, bool isBigEndian)
{
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t place = at + (isBigEndian ? i : count - 1 - i);
        number =
            number << 8 | (place < bytes.size() ? static_cast<unsigned char>(bytes[place]) : 0U);
    }
    return number;
}

/// Returns how large a program's file must be to hold all that is loaded of it.
std::uint64_t NeededSize(std::string_view bytes, const format::ProgramHead& head)
{
    const bool is64 = head.is64Bit;
    const auto number = [&](std::size_t at, std::size_t count) {
        return NumberAt(bytes, at, count, head.isBigEndian);
    };
    const std::size_t word = is64 ? 8 : 4;
    const std::uint64_t table = number(is64 ? 32 : 28, word);
    const auto entrySize = static_cast<std::size_t>(number(is64 ? 54 : 42, 2));
    const auto count = static_cast<std::size_t>(number(is64 ? 56 : 44, 2));
    std::uint64_t needed = table + entrySize * count;
    for (std::size_t i = 0; i < count && table < kHeadSize; ++i) {
        const std::size_t at = static_cast<std::size_t>(table) + i * entrySize;
        constexpr std::uint64_t kLoaded = 1;
        constexpr std::uint64_t kLargest = std::uint64_t{1} << 60;
        if (at + entrySize <= bytes.size() && number(at, 4) == kLoaded) {
            const std::uint64_t offset = number(at + (is64 ? 8 : 4), word);
            const std::uint64_t size = number(at + (is64 ? 32 : 16), word);
            needed = std::max(needed, std::min(offset, kLargest) + std::min(size, kLargest));
        }
    }
    return needed;
}

/// Compares the updater with the panel that it is for.
/// @param bytes  all of it
void CheckForPanel(std::string bytes, const format::ProgramHead& head,
                   const format::PanelModel& panel, Findings& findings)
{
    const Location place = Location::Entry(archive::kUpdaterName);
    // Every updater knows the description's name; of a part of one nobody can tell.
    if (!findings.Has(RuleId::kUpdaterCut) &&
        bytes.find(archive::kDescriptionName) == std::string::npos) {
        findings.Add(RuleId::kUpdaterOther, place, "is another program");
    }
    if (panel.processor != nullptr && !head.IsFor(*panel.processor)) {
        findings.Add(RuleId::kUpdaterProcessor, place,
                     "is for " + head.ProcessorName() + ", not for " + panel.processor->name);
        return;
    }
    const std::optional<format::Program> program = format::ReadProgram(std::move(bytes));
    const bool isOther = program.has_value() && !program->loader.empty() &&
                         program->floatAbi != format::FloatAbi::kUnknown &&
                         panel.floatAbi != format::FloatAbi::kUnknown &&
                         program->floatAbi != panel.floatAbi;
    if (isOther) {
        findings.Add(RuleId::kUpdaterProcessor, place,
                     std::string("is ") + format::FloatAbiName(program->floatAbi) + ", not " +
                         format::FloatAbiName(panel.floatAbi));
    }
}

void CheckProgram(const archive::Package& package, const archive::PackageEntry& entry,
                  const format::PanelModel& panel, Findings& findings)
{
    const Location place = Location::Entry(archive::kUpdaterName);
    const std::string bytes = package.Read(entry.name, kHeadSize);
    const std::optional<format::ProgramHead> head = format::ReadProgramHead(bytes);
    if (!head.has_value()) {
        const bool isScript = bytes.compare(0, 2, "#!") == 0;
        // A script that is meant to be the updater stands in its place; a link leads to another's.
        findings.AddAs(isScript && entry.name == archive::kUpdaterName ? Severity::kWarning
                                                                       : Severity::kError,
                       isScript ? RuleId::kUpdaterScript : RuleId::kUpdaterProgram, place,
                       isScript ? "is a script" : "is not a program");
        return;
    }
    if (NeededSize(bytes, *head) > entry.size) {
        findings.Add(RuleId::kUpdaterCut, place, "is truncated");
    }
    CheckForPanel(package.Read(entry.name, format::kLargestProgram), *head, panel, findings);
}

} // namespace

void CheckUpdater(const archive::Package& package, const format::PanelModel& panel,
                  Findings& findings)
{
    if (findings.HasErrorAt(archive::kUpdaterName)) {
        return; // it does not even arrive; what follows from that is not told besides
    }
    const archive::PackageEntry* entry = package.Find(archive::kUpdaterName);
    if (entry == nullptr || entry->kind == archive::PackageEntry::Kind::kFolder) {
        // A folder is installed by whoever starts an updater on it.
        findings.AddAs(package.IsArchive() ? Severity::kError : Severity::kWarning,
                       RuleId::kUpdaterMissing, Location::Whole(),
                       MissingText(package, archive::kUpdaterName));
        return;
    }
    if (entry->kind == archive::PackageEntry::Kind::kLink) {
        entry = CheckLink(package, *entry, RuleId::kUpdaterLink, findings);
    }
    if (entry == nullptr || entry->kind != archive::PackageEntry::Kind::kFile) {
        return;
    }
    constexpr unsigned kExecute = 0100;
    if ((entry->mode & kExecute) == 0) {
        findings.AddAs(package.IsArchive() ? Severity::kError : Severity::kWarning,
                       RuleId::kUpdaterMode, Location::Entry(entry->name), "is not executable");
    }
    try {
        CheckProgram(package, *entry, panel, findings);
    } catch (const archive::ContentError&) {
        return; // found when the archive was looked at
    }
}

} // namespace kx::checks
