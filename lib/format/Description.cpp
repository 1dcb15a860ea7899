// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Description.h"

#include "archive/Links.h"
#include "engine/Installation.h"
#include "io/Error.h"
#include "panel/Names.h"

#include <algorithm>
#include <utility>

namespace kx::format
{

namespace
{

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

} // namespace

bool Description::HasByteOrderMark() const
{
    return std::string_view(bytes).substr(0, kByteOrderMark.size()) == kByteOrderMark;
}

Description ReadDescription(const archive::Package& package)
{
    const archive::PackageEntry* entry = package.Find(archive::kDescriptionName);
    if (entry == nullptr || entry->kind == archive::PackageEntry::Kind::kFolder) {
        throw io::Error(io::ExitCode::kProblems, package.Path(),
                        std::string("there is no ") + archive::kDescriptionName +
                            " at its top level",
                        "pack it from inside its folder");
    }
    const std::string place = package.Path() + ":" + archive::kDescriptionName;
    if (entry->kind == archive::PackageEntry::Kind::kLink) {
        const archive::LinkEnd end = archive::FollowLink(package, *entry);
        entry = end.entry;
        if (entry == nullptr || entry->kind != archive::PackageEntry::Kind::kFile) {
            throw io::Error(io::ExitCode::kProblems, place,
                            "is a link to '" + end.target + "', which is not a file in the package",
                            "pack the file itself (zip without -y)");
        }
    }
    Description description = ParseDescription(package.Read(entry->name, kLargestDescription + 1));
    if (description.bytes.size() > kLargestDescription) {
        throw io::Error(io::ExitCode::kNoAccess, place, "is larger than 256 MiB");
    }
    return description;
}

Description ParseDescription(std::string bytes)
{
    Description description;
    description.bytes = std::move(bytes);
    // The updater skips the first three bytes, whatever they are, and stops at a zero byte.
    if (description.bytes.size() > kByteOrderMark.size()) {
        description.text = description.bytes.substr(kByteOrderMark.size());
        description.text.resize(std::min(description.text.find('\0'), description.text.size()));
    }
    try {
        description.root = ParseJson(description.text, description.end);
    } catch (const JsonError& error) {
        description.error = error;
    }
    return description;
}

namespace
{

/// Returns the place of the quotation mark that ends the text beginning with the one at @p start,
/// or a place behind the end.
std::size_t EndOfText(std::string_view text, std::size_t start)
{
    std::size_t i = start + 1;
    while (i < text.size() && text[i] != '"') {
        i += text[i] == '\\' ? 2 : 1;
    }
    return i;
}

} // namespace

std::uint64_t FilledObjects(std::string_view text, std::uint64_t most)
{
    constexpr unsigned kEnough = 40; // lists in lists that no description needs
    std::string around;              // what is open; '(' for a list
    unsigned lists = 0;
    const auto isIn = [&around](char mark) { return !around.empty() && around.back() == mark; };
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < text.size() && count < most; ++i) {
        switch (text[i]) {
        case '"':
            i = EndOfText(text, i);
            break;
        case '{':
            count += std::uint64_t{1} << std::min(lists, kEnough);
            around += '{';
            break;
        case '[':
            // An array that stands in an array is read by nobody.
            around += isIn('{') ? '(' : '[';
            lists += static_cast<unsigned>(isIn('('));
            break;
        case '}':
        case ']':
            lists -= static_cast<unsigned>(isIn('('));
            around.resize(around.empty() ? 0 : around.size() - 1);
            break;
        default:
            break;
        }
    }
    return std::min(count, most);
}

std::string RecordName(const std::string& path)
{
    const bool isArchive = Installation::IsPackageName(path.c_str());
    const std::string record =
        Installation::RecordFolder(isArchive ? Installation::UnpackedFolder(path) : path);
    return record.substr(std::string_view(panel::kRegistry).size() + 1);
}

} // namespace kx::format
