// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/UnpackedArchive.h"

#include "archive/ZipContent.h"
#include "io/Error.h"

#include <algorithm>
#include <utility>

#include <sys/stat.h>

namespace kx::archive
{

namespace
{

constexpr unsigned kModeShift = 16;
constexpr std::uint8_t kMadeOnDos = 0;

/// Drops what unzip drops from one part of a name.
std::string CleanPart(std::string_view part, UnpackedName& result)
{
    std::string clean;
    for (const char c : part) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f || byte == 0xff) {
            result.hadControl = true;
        } else {
            clean += c;
        }
    }
    return clean;
}

/// Cuts the version that some old systems put behind a file's name.
void CutVersion(std::string& part, UnpackedName& result)
{
    const std::size_t semicolon = part.rfind(';');
    if (semicolon != std::string::npos &&
        part.find_first_not_of("0123456789", semicolon + 1) == std::string::npos) {
        part.resize(semicolon);
        result.hadVersion = true;
    }
}

PackageEntry EntryOf(const ZipMember& member, UnpackedName name)
{
    PackageEntry entry;
    entry.name = std::move(name.name);
    entry.size = ContentHeader(member).size;
    entry.kind = name.isFolder    ? PackageEntry::Kind::kFolder
                 : IsLink(member) ? PackageEntry::Kind::kLink
                                  : PackageEntry::Kind::kFile;
    constexpr unsigned kReadOnly = 1;
    entry.hasMode = true;
    if (HasFileMode(member)) {
        entry.mode = (member.attributes >> kModeShift) & 0777U;
    } else {
        entry.mode = name.isFolder ? 0755 : (member.attributes & kReadOnly) != 0 ? 0444 : 0644;
    }
    return entry;
}

} // namespace

bool HasFileMode(const ZipMember& member)
{
    // The systems whose attributes unzip reads as those of UNIX.
    constexpr std::uint8_t kSystems[] = {2, 3, 5, 12, 13, 16, 17, 18, 30};
    return std::find(std::begin(kSystems), std::end(kSystems), member.madeOn) != std::end(kSystems);
}

bool IsLink(const ZipMember& member)
{
    return HasFileMode(member) && S_ISLNK(member.attributes >> kModeShift);
}

UnpackedName NameOnPanel(const ZipMember& member)
{
    UnpackedName result;
    std::string raw = member.name.substr(0, member.name.find('\0'));
    if (member.madeOn == kMadeOnDos && raw.find('/') == std::string::npos &&
        raw.find('\\') != std::string::npos) {
        std::replace(raw.begin(), raw.end(), '\\', '/');
        result.hadBackslashes = true;
    }
    result.isFolder = !raw.empty() && raw.back() == '/';
    result.wasAbsolute = !raw.empty() && raw.front() == '/';
    std::string_view rest = raw;
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        std::string part = CleanPart(rest.substr(0, slash), result);
        rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
        if (part == "..") {
            result.wentUp = true;
            continue;
        }
        if (rest.empty() && !result.isFolder) {
            CutVersion(part, result);
        }
        if (!part.empty() && part != ".") {
            result.name += (result.name.empty() ? "" : "/") + part;
        }
    }
    return result;
}

UnpackedArchive::UnpackedArchive(std::string path, const ByteSource& source,
                                 const ZipStructure& zip)
    : m_path(std::move(path)), m_source(source), m_zip(zip)
{
    std::vector<PackageEntry> entries;
    entries.reserve(zip.members.size());
    for (std::size_t index = 0; index < zip.members.size(); ++index) {
        UnpackedName name = NameOnPanel(zip.members[index]);
        if (name.name.empty() || !zip.members[index].hasLocal) {
            continue; // unzip makes no file of it
        }
        m_members.insert_or_assign(name.name, index);
        entries.push_back(EntryOf(zip.members[index], std::move(name)));
    }
    m_entries = Arranged(std::move(entries));
}

std::string UnpackedArchive::Read(const std::string& name, std::uint64_t limit) const
{
    const auto found = m_members.find(name);
    if (found == m_members.end()) {
        throw io::Error(io::ExitCode::kNoAccess, m_path,
                        "there is no '" + name + "' in the archive");
    }
    std::string bytes;
    const ContentSink keep = [&bytes, limit](std::string_view piece) {
        bytes.append(piece.substr(0, static_cast<std::size_t>(limit) - bytes.size()));
        return bytes.size() < limit;
    };
    // What is wrong with contents is found by reading all of them.
    static_cast<void>(ReadContent(m_source, m_zip.members[found->second], limit, keep));
    return bytes;
}

} // namespace kx::archive
