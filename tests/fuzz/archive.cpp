// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Checks the input as a package archive: structure, contents, description and steps.
#include "checks/Checker.h"

#include <cstdlib>
#include <string>

namespace
{

/// What holds for every structure that was read.
void Require(const kx::archive::ZipStructure& zip, std::uint64_t size)
{
    for (const kx::archive::ZipMember& member : zip.members) {
        if (member.hasLocal && (member.contentAt < member.headerAt || member.headerAt > size ||
                                member.name.size() > size)) {
            std::abort();
        }
    }
    for (const kx::archive::ZipFault& fault : zip.faults) {
        if (fault.member != kx::archive::ZipFault::kNoMember &&
            fault.member >= zip.members.size()) {
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const kx::archive::MemoryBytes bytes(text);
    Require(kx::archive::ReadZipStructure(bytes), size);

    kx::checks::Findings findings;
    kx::checks::CheckArchivePackage("/mnt/usb/fuzz.kx-update", bytes,
                                    kx::format::FindProcessor("arm"), findings);
    findings.Sort();
    return 0;
}
