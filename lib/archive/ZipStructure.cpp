// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipStructure.h"

#include "archive/ZipRecords.h"

#include <algorithm>
#include <optional>

namespace kx::archive
{

bool ZipStructure::Has(ZipFlaw flaw) const
{
    return std::any_of(faults.begin(), faults.end(),
                       [flaw](const ZipFault& fault) { return fault.flaw == flaw; });
}

void ZipStructure::Report(ZipFlaw flaw, std::uint64_t amount, std::size_t member)
{
    faults.push_back({flaw, member, amount});
}

ZipHeader ContentHeader(const ZipMember& member)
{
    ZipHeader header;
    header.method = member.local.method;
    header.flags = member.local.flags;
    const ZipHeader& told = (member.local.flags & kZipDescriptor) != 0
                                ? static_cast<const ZipHeader&>(member)
                                : member.local;
    header.crc = told.crc;
    header.packedSize = told.packedSize;
    header.size = told.size;
    return header;
}

ZipStructure ReadZipStructure(const ByteSource& source, const ZipLimits& limits)
{
    ZipStructure zip;
    const std::optional<ZipEnd> end = ReadZipEnd(source, zip);
    if (end.has_value() && PlaceZipDirectory(*end, limits, zip)) {
        ReadZipDirectory(source, *end, limits, zip);
        ReadZipLocals(source, zip);
        FindZipOverlaps(zip);
    }
    return zip;
}

} // namespace kx::archive
