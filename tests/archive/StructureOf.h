// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "archive/ZipStructure.h"

#include <string>
#include <vector>

namespace kx::archive
{

/// Returns the records of an archive given as bytes.
inline ZipStructure StructureOf(const std::string& zip)
{
    return ReadZipStructure(MemoryBytes(zip));
}

/// Returns the flaws that were told, in their order.
inline std::vector<ZipFlaw> FlawsOf(const ZipStructure& structure)
{
    std::vector<ZipFlaw> flaws;
    for (const ZipFault& fault : structure.faults) {
        flaws.push_back(fault.flaw);
    }
    return flaws;
}

inline std::vector<ZipFlaw> FlawsOf(const std::string& zip)
{
    return FlawsOf(StructureOf(zip));
}

} // namespace kx::archive
