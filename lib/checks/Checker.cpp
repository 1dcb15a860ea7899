// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Checker.h"

#include "archive/Package.h"
#include "archive/UnpackedArchive.h"
#include "checks/ArchiveChecks.h"
#include "checks/DescriptionChecks.h"
#include "checks/EntryChecks.h"
#include "checks/InstallationChecks.h"
#include "checks/NameChecks.h"
#include "checks/SignatureChecks.h"
#include "checks/StepChecks.h"
#include "checks/UpdaterChecks.h"
#include "io/StandardInput.h"

#include <memory>
#include <optional>
#include <utility>

namespace kx::checks
{

namespace
{

/// How many bytes the names of a package may have together, with those of all folders above them.
constexpr std::uint64_t kMostNameBytes = std::uint64_t{256} << 20;

std::string WithoutMark(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

} // namespace

void CheckContents(const archive::Package& package, const Expected& expected, Findings& findings)
{
    CheckEntries(package, findings);
    if (expected.hasUpdater) {
        CheckUpdater(package, expected.panel, findings);
    }
    if (findings.HasErrorAt(archive::kDescriptionName)) {
        return; // it does not even arrive
    }
    std::optional<std::string> bytes = DescriptionBytes(package, kLargestChecked, findings);
    if (!bytes.has_value()) {
        return;
    }
    const format::Description description = CheckDescription(std::move(*bytes), findings);
    const format::JsonNode* const root =
        description.root.has_value() ? &*description.root : nullptr;
    if (root != nullptr) {
        const std::string record = format::RecordName(package.Path());
        CheckRecordName(record, root->TextOf("PackageVersion"), expected.name, findings);
        CheckIdentityFor(*root, expected.panel, findings);
        CheckSteps(*root, package, record, expected, findings);
    }
    CheckInstallation(package, root, findings);
}

void CheckArchivePackage(const std::string& path, const archive::ByteSource& source,
                         const Expected& expected, Findings& findings)
{
    const archive::ZipStructure zip = archive::ReadZipStructure(source);
    const archive::UnpackVerdict verdict = archive::JudgeUnpacking(source, zip);
    const std::string record =
        path == io::kStandardInputName ? std::string() : format::RecordName(path);
    CheckArchive(zip, verdict, CheckSignatures(source, zip, record, expected, findings), findings);
    if (HasTooManyNames(zip, kMostNameBytes)) {
        findings.Add(RuleId::kArchiveTooMany, Location::Whole(),
                     "its names are too many or too long");
        return;
    }
    if (!zip.members.empty()) {
        CheckContents(archive::UnpackedArchive(path, source, zip, verdict.status), expected,
                      findings);
    }
}

Findings CheckPackage(const std::string& path, const Expected& expected)
{
    if (path == io::kStandardInput) {
        const io::StandardInput input;
        Findings findings;
        CheckKeys(expected, findings);
        CheckArchivePackage(io::kStandardInputName, archive::FileBytes(input.Path()), expected,
                            findings);
        findings.Sort();
        return findings;
    }
    Findings findings;
    CheckKeys(expected, findings);
    const bool isArchive = archive::NamesArchive(path);
    CheckPackageName(path, isArchive, findings);
    if (isArchive) {
        const archive::FileBytes source(path);
        CheckNeighbours(path, findings);
        CheckArchivePackage(path, source, expected, findings);
    } else {
        CheckUnsignable(expected, findings);
        CheckContents(*archive::OpenFolder(WithoutMark(path)), expected, findings);
    }
    findings.Sort();
    return findings;
}

} // namespace kx::checks
