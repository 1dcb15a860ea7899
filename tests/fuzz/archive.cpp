// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Reads the input as a package archive, as every command does, and checks it: structure, verdict,
// contents, description and steps.
#include "Require.h"
#include "archive/UnpackVerdict.h"
#include "archive/UnpackedArchive.h"
#include "checks/Checker.h"

#include <string>

namespace
{

using kx::archive::ContentError;
using kx::archive::PackageEntry;
using kx::archive::UnpackReason;

/// What holds for every structure that was read.
void RequireStructure(const kx::archive::ZipStructure& zip, std::uint64_t size)
{
    for (const kx::archive::ZipMember& member : zip.members) {
        Require(!member.hasLocal || (member.contentAt >= member.headerAt &&
                                     member.headerAt <= size && member.name.size() <= size));
    }
    for (const kx::archive::ZipFault& fault : zip.faults) {
        Require(fault.member == kx::archive::ZipFault::kNoMember ||
                fault.member < zip.members.size());
    }
}

/// What unzip unpacks without complaint can be read here, unless the verdict says otherwise.
void RequireReadable(const kx::archive::UnpackedArchive& package,
                     const kx::archive::UnpackVerdict& verdict)
{
    constexpr std::uint64_t kMost = 1U << 20;
    constexpr std::size_t kMostEntries = 50;
    std::size_t count = 0;
    for (const PackageEntry& entry : package.Entries()) {
        if (entry.kind == PackageEntry::Kind::kFolder || ++count > kMostEntries) {
            continue;
        }
        try {
            Require(package.Read(entry.name, kMost).size() <= kMost);
        } catch (const ContentError&) {
            Require(verdict.status != 0 || verdict.Has(UnpackReason::kUnchecked));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const kx::archive::MemoryBytes bytes(text);
    const kx::archive::ZipStructure zip = kx::archive::ReadZipStructure(bytes);
    RequireStructure(zip, size);

    const kx::archive::UnpackVerdict verdict = kx::archive::JudgeUnpacking(bytes, zip);
    const kx::archive::UnpackedArchive package("/mnt/usb/fuzz.kx-update", bytes, zip);
    RequireReadable(package, verdict);

    kx::checks::Findings findings;
    kx::checks::Expected expected;
    expected.panel.processor = kx::format::FindProcessor("arm");
    kx::checks::CheckArchivePackage(package.Path(), bytes, expected, findings);
    findings.Sort();
    Require(verdict.status == 0 || findings.Count(kx::checks::Severity::kError) != 0);
    return 0;
}
