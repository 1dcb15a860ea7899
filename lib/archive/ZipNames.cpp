// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ZipNames.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include <sys/stat.h>

namespace kx::archive
{

namespace
{

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

/// Makes a file's name of the last part of an entry's.
std::string FileNameOf(std::string part, UnpackedName& result)
{
    CutVersion(part, result);
    if (part == "." || part == "..") {
        std::fill(part.begin(), part.end(), '_'); // no file can have these names
    }
    return part;
}

/// Makes a folder's name of one part of an entry's; empty when the part is left out.
std::string FolderNameOf(const std::string& part, UnpackedName& result)
{
    const bool isUp = part == "..";
    result.wentUp = result.wentUp || isUp;
    return isUp || part == "." ? std::string() : part;
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
    return HasFileMode(member) && S_ISLNK(member.attributes >> kZipModeShift);
}

bool IsDiskLabel(const ZipMember& member)
{
    constexpr unsigned kLabel = 8;
    constexpr std::uint8_t kSystems[] = {0, 5, 6, 11}; // those with such attributes
    return (member.attributes & kLabel) != 0 &&
           std::find(std::begin(kSystems), std::end(kSystems), member.madeOn) != std::end(kSystems);
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
        part = slash == std::string_view::npos ? FileNameOf(std::move(part), result)
                                               : FolderNameOf(part, result);
        if (!part.empty()) {
            result.name += (result.name.empty() ? "" : "/") + part;
        }
    }
    return result;
}

} // namespace kx::archive
