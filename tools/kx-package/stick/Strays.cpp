// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/Strays.h"

#include "engine/Installation.h"
#include "panel/Names.h"
#include "stick/DriveCalls.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>

#include <fcntl.h>
#include <fts.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

/// What a name at the top of the drive is; a link is looked at itself.
std::optional<struct stat> LookAtName(const io::Descriptor& folder, const std::string& name)
{
    struct stat info {
    };
    return fstatat(folder.Number(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0
               ? std::optional(info)
               : std::nullopt;
}

bool IsFolderAt(const io::Descriptor& folder, const std::string& name)
{
    const std::optional<struct stat> info = LookAtName(folder, name);
    return info.has_value() && S_ISDIR(info->st_mode);
}

/// Walks through a file or a tree; links are not followed, what is mounted in it is not entered.
/// @param visit  takes what is found, a folder before (FTS_D) and after (FTS_DP) what is in it;
///               returns an errno to end the walk
/// @return 0, or that errno
int WalkTree(const std::string& path, const std::function<int(const FTSENT& entry)>& visit)
{
    std::string root = path;
    std::array<char*, 2> roots = {root.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS*)> walk(
        fts_open(roots.data(), FTS_PHYSICAL | FTS_XDEV | FTS_NOCHDIR, nullptr), fts_close);
    if (walk == nullptr) {
        return errno;
    }
    for (const FTSENT* entry = nullptr; (entry = fts_read(walk.get())) != nullptr;) {
        const bool isUnread =
            entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR || entry->fts_info == FTS_NS;
        if (const int error = isUnread ? entry->fts_errno : visit(*entry); error != 0) {
            return error;
        }
    }
    return 0;
}

bool IsSameName(const std::string& one, const std::string& other, bool isCaseBlind)
{
    return isCaseBlind ? strcasecmp(one.c_str(), other.c_str()) == 0 : one == other;
}

/// Where the panel unpacks a package of that name, beside it.
std::string UnpackedName(const std::string& package)
{
    return Installation::UnpackedFolder("/" + package).substr(1);
}

/// Tells whether a folder holds nothing but what unpacking a package begins with.
bool HoldsOnlySteps(const std::vector<std::string>& names)
{
    return std::all_of(names.begin(), names.end(), [](const std::string& name) {
        const bool isNumber = std::all_of(name.begin(), name.end(),
                                          [](unsigned char c) { return std::isdigit(c) != 0; });
        return isNumber || name == panel::kDescription || name == panel::kUpdater;
    });
}

/// What is known of a drive while its names are judged.
struct DriveTop {
    const io::Descriptor& folder;
    std::vector<std::string> names;
    std::string package;
    bool isCaseBlind;

    [[nodiscard]] bool IsSame(const std::string& one, const std::string& other) const
    {
        return IsSameName(one, other, isCaseBlind);
    }

    /// Tells whether a package of the drive is unpacked to that name.
    [[nodiscard]] bool IsUnpackedOfAPackage(const std::string& name) const
    {
        return std::any_of(names.begin(), names.end(), [&](const std::string& other) {
            return Installation::IsPackageName(other.c_str()) && IsSame(UnpackedName(other), name);
        });
    }
};

/// Judges a name that ends as unpacked folders do.
std::optional<StrayKind> JudgeUnpacked(const DriveTop& top, const std::string& name)
{
    const bool isOwn = top.IsSame(name, UnpackedName(top.package));
    if (!IsFolderAt(top.folder, name)) {
        return isOwn ? std::optional(StrayKind::kInTheWay) : std::nullopt;
    }
    const io::Descriptor inside(
        openat(top.folder.Number(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    std::vector<std::string> names;
    const bool isRead = inside.IsOpen() && DriveCalls(inside).List(names) == 0;
    if (isRead && (std::find(names.begin(), names.end(), panel::kDescription) != names.end() ||
                   ((isOwn || top.IsUnpackedOfAPackage(name)) && HoldsOnlySteps(names)))) {
        return StrayKind::kUnpacked;
    }
    return isOwn ? std::optional(StrayKind::kInTheWay) : std::nullopt;
}

/// Takes digits off the end of a text.
/// @return false when there are none
bool TakeDigits(std::string_view& text)
{
    const std::size_t kept = text.find_last_not_of("0123456789") + 1;
    const bool hasDigits = kept < text.size();
    text = text.substr(0, kept);
    return hasDigits;
}

/// Tells whether io::MakeFileIn made the name of a package's: ".NAME.kx-update.12-3".
bool IsUnfinishedName(std::string_view name)
{
    constexpr std::string_view kExtension = panel::kPackageExtension;
    if (!TakeDigits(name) || name.back() != '-') {
        return false;
    }
    name.remove_suffix(1);
    if (!TakeDigits(name) || name.back() != '.' || name.front() != '.') {
        return false;
    }
    name.remove_suffix(1);
    return name.size() > kExtension.size() + 1 &&
           name.substr(name.size() - kExtension.size()) == kExtension;
}

bool EndsLikeUnpacked(const std::string& name, bool isCaseBlind)
{
    const std::string_view suffix = panel::kUnpackedSuffix;
    return name.size() > suffix.size() &&
           IsSameName(name.substr(name.size() - suffix.size()), std::string(suffix), isCaseBlind);
}

std::optional<StrayKind> Judge(const DriveTop& top, const std::string& name)
{
    if (name == top.package) {
        return IsFolderAt(top.folder, name) ? std::optional(StrayKind::kFolder) : std::nullopt;
    }
    if (top.IsSame(name, top.package)) {
        return IsFolderAt(top.folder, name) ? StrayKind::kFolder : StrayKind::kOtherCase;
    }
    if (Installation::IsPackageName(name.c_str())) {
        if (IsFolderAt(top.folder, name)) {
            return StrayKind::kFolder;
        }
        return name.front() == '.' ? StrayKind::kTwin : StrayKind::kPackage;
    }
    if (EndsLikeUnpacked(name, top.isCaseBlind)) {
        return JudgeUnpacked(top, name);
    }
    const bool isUnfinished = IsUnfinishedName(name) && !IsFolderAt(top.folder, name);
    return isUnfinished ? std::optional(StrayKind::kUnfinished) : std::nullopt;
}

} // namespace

std::vector<Stray> FindStrays(const io::Descriptor& folder, const std::string& shown,
                              const std::string& package, bool isCaseBlind)
{
    DriveTop top{folder, {}, package, isCaseBlind};
    if (const int error = DriveCalls(folder).List(top.names); error != 0) {
        throw io::AccessError(shown, "list", error);
    }
    std::sort(top.names.begin(), top.names.end());
    std::vector<Stray> strays;
    for (const std::string& name : top.names) {
        if (const std::optional<StrayKind> kind = Judge(top, name); kind.has_value()) {
            strays.push_back({name, *kind, BytesTaken(folder, name)});
        }
    }
    return strays;
}

const char* StrayWord(StrayKind kind)
{
    switch (kind) {
    case StrayKind::kPackage:
        return "package";
    case StrayKind::kTwin:
        return "hidden-twin";
    case StrayKind::kOtherCase:
        return "other-case";
    case StrayKind::kFolder:
        return "folder";
    case StrayKind::kUnpacked:
        return "unpacked";
    case StrayKind::kInTheWay:
        return "in-the-way";
    case StrayKind::kUnfinished:
        break;
    }
    return "unfinished";
}

bool IsRemovable(StrayKind kind)
{
    return kind != StrayKind::kFolder && kind != StrayKind::kInTheWay;
}

io::Error StrayProblem(const Stray& stray, const std::string& shown)
{
    const auto problem = [&shown](const char* what, const char* remedy = "--replace removes it") {
        return io::Error(io::ExitCode::kProblems, shown, what, remedy);
    };
    switch (stray.kind) {
    case StrayKind::kPackage:
        return problem("is another package; of several the panel installs none");
    case StrayKind::kTwin:
        return problem("is a hidden file that some desktop systems leave; the panel counts it as a "
                       "second package, and installs none");
    case StrayKind::kOtherCase:
        return problem(
            "is the package's name in other letters; the drive would keep these, and the "
            "panel would see them");
    case StrayKind::kFolder:
        return problem("is a folder that the panel counts as a package", "give it another name");
    case StrayKind::kUnpacked:
        return problem("is a package that was unpacked for an installation, and left");
    case StrayKind::kInTheWay:
        return problem("is where the panel unpacks the package; it removes what is there before",
                       "give it another name, or the package");
    case StrayKind::kUnfinished:
        break;
    }
    return problem("was left by a kx-package that was stopped while it wrote");
}

void RemoveStray(const io::Descriptor& folder, const Stray& stray, const std::string& shown)
{
    if (!IsRemovable(stray.kind)) {
        throw std::logic_error("not to be removed: " + stray.name);
    }
    const int error = WalkTree(folder.Path() + "/" + stray.name, [](const FTSENT& entry) {
        if (entry.fts_info == FTS_D) {
            return 0; // when it is empty
        }
        const int flags = entry.fts_info == FTS_DP ? AT_REMOVEDIR : 0;
        return unlinkat(AT_FDCWD, entry.fts_accpath, flags) == 0 ? 0 : errno;
    });
    if (error != 0) {
        throw io::AccessError(shown, "remove", error);
    }
}

std::uint64_t BytesTaken(const io::Descriptor& folder, const std::string& name)
{
    constexpr std::uint64_t kBlock = 512; // what st_blocks counts, on every file system
    std::uint64_t bytes = 0;
    // What cannot be looked at is not counted on to become free.
    static_cast<void>(WalkTree(folder.Path() + "/" + name, [&bytes](const FTSENT& entry) {
        if (entry.fts_info != FTS_DP) {
            bytes += static_cast<std::uint64_t>(entry.fts_statp->st_blocks) * kBlock;
        }
        return 0;
    }));
    return bytes;
}

} // namespace kx::tool
