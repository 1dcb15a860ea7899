// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/UnpackedArchive.h"

#include "archive/UnpackVerdict.h"
#include "archive/ZipContent.h"
#include "archive/ZipNames.h"
#include "io/Error.h"
#include "io/Text.h"

#include <cstdint>
#include <utility>

namespace kx::archive
{

namespace
{

PackageEntry EntryOf(const ZipMember& member, UnpackedName name)
{
    PackageEntry entry;
    entry.name = std::move(name.name);
    entry.size = ContentHeader(member).size;
    entry.kind = name.isFolder    ? PackageEntry::Kind::kFolder
                 : IsLink(member) ? PackageEntry::Kind::kLink
                                  : PackageEntry::Kind::kFile;
    constexpr unsigned kReadOnly = 1;
    entry.moment = member.moment;
    entry.hasMode = true;
    if (HasFileMode(member)) {
        entry.mode = (member.attributes >> kZipModeShift) & 0777U;
    } else {
        entry.mode = name.isFolder ? 0755 : (member.attributes & kReadOnly) != 0 ? 0444 : 0644;
    }
    return entry;
}

} // namespace

UnpackedArchive::UnpackedArchive(std::string path, const ByteSource& source,
                                 const ZipStructure& zip, std::optional<int> status)
    : m_path(std::move(path)), m_source(source), m_zip(zip), m_status(status)
{
    std::vector<PackageEntry> entries;
    entries.reserve(zip.members.size());
    for (std::size_t index = 0; index < zip.members.size(); ++index) {
        UnpackedName name = NameOnPanel(zip.members[index]);
        if (name.name.empty() || !zip.members[index].hasLocal || IsDiskLabel(zip.members[index])) {
            continue; // unzip makes no file of it
        }
        m_members.insert_or_assign(name.name, index);
        entries.push_back(EntryOf(zip.members[index], std::move(name)));
    }
    m_entries = Arranged(std::move(entries));
}

std::string UnpackedArchive::Read(const std::string& name, std::uint64_t limit) const
{
    std::string bytes;
    StreamBeginning(name, limit, [&bytes, limit](std::string_view piece) {
        bytes.append(io::FirstBytes(piece, limit - bytes.size()));
        return bytes.size() < limit;
    });
    return bytes;
}

void UnpackedArchive::Stream(const std::string& name, const ContentSink& sink) const
{
    StreamBeginning(name, UINT64_MAX, sink);
}

void UnpackedArchive::StreamBeginning(const std::string& name, std::uint64_t wanted,
                                      const ContentSink& sink) const
{
    const auto found = m_members.find(name);
    if (found == m_members.end()) {
        throw io::Error(io::ExitCode::kNoAccess, m_path,
                        "there is no '" + name + "' in the archive");
    }
    const ZipMember& member = m_zip.members[found->second];
    const auto refuse = [this, &name](const char* why) {
        throw ContentError(io::ExitCode::kProblems, m_path + ":" + name,
                           std::string("cannot read: ") + why);
    };
    if ((member.flags & kZipEncrypted) != 0) {
        refuse("it is encrypted");
    }
    switch (ContentReader(m_source, wanted).Read(member, UINT64_MAX, sink).state) {
    case ContentState::kUnsupported:
        refuse("it is packed by a method that is not known here");
        break;
    case ContentState::kDamaged:
        refuse("its packed bytes are damaged");
        break;
    case ContentState::kWrongCrc:
        refuse("CRC error");
        break;
    case ContentState::kFine:
    case ContentState::kWrongSize: // unzip does not mind
    case ContentState::kTooLarge:  // as much as was asked for
        break;
    }
}

int UnpackedArchive::UnpackStatus() const
{
    return m_status.has_value() ? *m_status : JudgeUnpacking(m_source, m_zip).status;
}

} // namespace kx::archive
