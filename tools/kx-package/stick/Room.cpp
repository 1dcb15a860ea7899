// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/Room.h"

#include "io/Text.h"
#include "io/Utf8.h"
#include "stick/Drive.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

namespace kx::tool
{

namespace
{

using archive::PackageEntry;

constexpr std::uint64_t kLargestOnFat = UINT32_MAX;
constexpr std::uint64_t kSlot = 32;            ///< bytes: FAT and exFAT keep names in these
constexpr std::uint64_t kMostFatSlots = 65536; ///< of one folder
constexpr std::size_t kLongestFatName = 255;   ///< UTF-16 units

std::uint64_t RoundedUp(std::uint64_t bytes, std::uint64_t unit)
{
    return (bytes + unit - 1) / unit * unit;
}

/// How many units of UTF-16 a name has; bytes that are no UTF-8 count each.
std::size_t Utf16Length(std::string_view name)
{
    constexpr char32_t kFirstOfTwo = 0x10000;
    std::size_t units = 0;
    while (!name.empty()) {
        if (io::Utf8Length(name) == 0) {
            name.remove_prefix(1);
            ++units;
        } else {
            units += io::TakeCharacter(name) >= kFirstOfTwo ? 2 : 1;
        }
    }
    return units;
}

bool IsFat(const std::string& type)
{
    return type == "vfat" || type == "msdos";
}

/// How many slots a name takes in its folder.
std::uint64_t SlotsOf(std::string_view name, const std::string& type)
{
    constexpr std::uint64_t kLettersOfFat = 13;
    constexpr std::uint64_t kLettersOfExfat = 15;
    const std::uint64_t length = Utf16Length(name);
    // FAT has one besides the name's, exFAT two; of others this is more than enough.
    return IsFat(type) ? 1 + RoundedUp(length, kLettersOfFat) / kLettersOfFat
                       : 2 + RoundedUp(length, kLettersOfExfat) / kLettersOfExfat;
}

std::string FolderOfEntry(const std::string& name)
{
    const std::size_t slash = name.rfind('/');
    return slash == std::string::npos ? std::string() : name.substr(0, slash);
}

std::string PartOfEntry(const std::string& name)
{
    const std::size_t slash = name.rfind('/');
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

/// The slots of every folder; "" is the unpacked folder itself.
std::map<std::string, std::uint64_t> FolderSlots(const std::vector<PackageEntry>& entries,
                                                 const std::string& type)
{
    constexpr std::uint64_t kDots = 2; // "." and ".."
    std::map<std::string, std::uint64_t> slots = {{"", kDots}};
    for (const PackageEntry& entry : entries) {
        if (entry.kind == PackageEntry::Kind::kFolder) {
            slots.emplace(entry.name, kDots);
        }
    }
    for (const PackageEntry& entry : entries) {
        slots[FolderOfEntry(entry.name)] += SlotsOf(PartOfEntry(entry.name), type);
    }
    return slots;
}

/// A path as a file system sees it that does not look at the case of letters and drops dots at the
/// end of names. Letters beyond ASCII stay: few packages have such names, and check warns of them.
std::string FoldedPath(const std::string& path)
{
    std::string folded;
    for (const char c : path + "/") {
        if (c == '/') {
            while (!folded.empty() && folded.back() == '.') {
                folded.pop_back();
            }
        }
        folded += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return folded;
}

/// Says what is wrong with a part of a path on FAT and exFAT; empty when nothing is.
std::string WrongWithPart(std::string_view part)
{
    const auto isForbidden = [](char c) {
        return static_cast<unsigned char>(c) < 0x20 ||
               std::string_view("*?<>|\":\\").find(c) != std::string_view::npos;
    };
    const auto* const forbidden = std::find_if(part.begin(), part.end(), isForbidden);
    if (forbidden != part.end()) {
        return "this file system takes no '" + io::Printable(std::string_view(forbidden, 1)) +
               "' in names";
    }
    if (!part.empty() && (part.back() == '.' || part.back() == ' ')) {
        return std::string("this file system takes no ") + (part.back() == '.' ? "dot" : "blank") +
               " at the end of names";
    }
    return Utf16Length(part) > kLongestFatName ? "this file system takes no name so long"
                                               : std::string();
}

/// Collects problems, of each kind a bounded number.
class LimitList
{
public:
    explicit LimitList(std::string shown) : m_shown(std::move(shown)) {}

    void Add(const std::string& entry, const std::string& what)
    {
        constexpr std::size_t kMost = 20;
        if (m_problems.size() < kMost) {
            m_problems.emplace_back(io::ExitCode::kProblems, m_shown,
                                    entry.empty() ? what : "'" + entry + "' in it: " + what,
                                    kRemedy);
        } else {
            ++m_omitted;
        }
    }

    [[nodiscard]] std::vector<io::Error> All()
    {
        if (m_omitted != 0) {
            m_problems.emplace_back(io::ExitCode::kProblems, m_shown,
                                    std::to_string(m_omitted) + " more like these", "");
        }
        return std::move(m_problems);
    }

private:
    static constexpr const char* kRemedy =
        "change the package, or take a drive with another file system that the panel reads";
    std::string m_shown;
    std::vector<io::Error> m_problems;
    std::size_t m_omitted = 0;
};

void LimitEntry(const PackageEntry& entry, const std::string& type, LimitList& problems)
{
    if (entry.kind == PackageEntry::Kind::kLink) {
        problems.Add(entry.name, "this file system knows no links");
    }
    if (IsFat(type) && entry.kind == PackageEntry::Kind::kFile && entry.size > kLargestOnFat) {
        problems.Add(entry.name, "FAT takes no file of 4 GiB and more");
    }
    if (const std::string wrong = WrongWithPart(PartOfEntry(entry.name)); !wrong.empty()) {
        problems.Add(entry.name, wrong);
    }
}

void LimitTwins(const std::vector<PackageEntry>& entries, LimitList& problems)
{
    std::map<std::string, std::string> seen;
    for (const PackageEntry& entry : entries) {
        const auto [other, isNew] = seen.emplace(FoldedPath(entry.name), entry.name);
        // Of two folders of one name, what is in them would be told again and again.
        const bool isBelow =
            !isNew &&
            FoldedPath(FolderOfEntry(entry.name)) == FoldedPath(FolderOfEntry(other->second)) &&
            FolderOfEntry(entry.name) != FolderOfEntry(other->second);
        if (!isNew && !isBelow) {
            problems.Add(entry.name, "to this file system it is the same as '" + other->second +
                                         "', and one is lost");
        }
    }
}

void LimitFolders(const std::vector<PackageEntry>& entries, const std::string& type,
                  LimitList& problems)
{
    for (const auto& [folder, slots] : FolderSlots(entries, type)) {
        if (slots > kMostFatSlots) {
            problems.Add(folder, "FAT has no room for so many names in one folder");
        }
    }
}

} // namespace

RoomNeeded NeededRoom(std::uint64_t packageSize, const std::vector<PackageEntry>& entries,
                      const std::string& type, std::uint64_t cluster)
{
    RoomNeeded needed;
    needed.package = RoundedUp(packageSize, cluster);
    needed.files = 2; // the package and its folder
    // The names of these two may be the ones for which the top of the drive has to grow.
    needed.unpacked = cluster;
    for (const PackageEntry& entry : entries) {
        ++needed.files;
        if (entry.kind != PackageEntry::Kind::kFolder) {
            needed.unpacked += RoundedUp(entry.size, cluster);
        }
    }
    for (const auto& [folder, slots] : FolderSlots(entries, type)) {
        needed.unpacked += RoundedUp(slots * kSlot, cluster);
    }
    return needed;
}

std::vector<io::Error> LimitProblems(const std::string& type, const std::string& name,
                                     std::uint64_t size, const std::vector<PackageEntry>& entries,
                                     const std::string& shown)
{
    LimitList problems(shown);
    if (!IsOfFatKind(type)) {
        return problems.All();
    }
    if (type == "msdos") {
        problems.Add("", "without long names, as the drive is mounted, it cannot have its name; "
                         "mounted as vfat it can");
    }
    if (const std::string wrong = WrongWithPart(name); !wrong.empty()) {
        problems.Add("", wrong);
    }
    if (IsFat(type) && size > kLargestOnFat) {
        problems.Add("", "FAT takes no file of 4 GiB and more");
    }
    for (const PackageEntry& entry : entries) {
        LimitEntry(entry, type, problems);
    }
    LimitTwins(entries, problems);
    if (IsFat(type)) {
        LimitFolders(entries, type, problems);
    }
    return problems.All();
}

} // namespace kx::tool
