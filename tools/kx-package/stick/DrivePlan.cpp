// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/DrivePlan.h"

#include "io/Interruption.h"
#include "io/Text.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace kx::tool
{

namespace
{

io::Error NoRoom(const std::string& shown, const std::string& what, const char* remedy)
{
    return {io::ExitCode::kProblems, shown, what, remedy};
}

/// Tells whether a file of the package's name and size is on the drive.
bool HasFileOfSize(const Drive& drive, const SourceFile& source)
{
    struct stat info {
    };
    return fstatat(drive.Folder().Number(), source.Name().c_str(), &info, AT_SYMLINK_NOFOLLOW) ==
               0 &&
           S_ISREG(info.st_mode) && static_cast<std::uint64_t>(info.st_size) == source.Size();
}

} // namespace

RoomVerdict JudgeRoom(const RoomBalance& balance, const std::string& shown)
{
    RoomVerdict verdict;
    const std::uint64_t package = balance.needed.package;
    const std::uint64_t unpacked = balance.needed.unpacked;
    const std::uint64_t free = balance.room.free + balance.freed;
    const std::uint64_t missing =
        package + unpacked - std::min(package + unpacked, free + balance.older);
    if (missing != 0) {
        verdict.problems.push_back(
            NoRoom(shown,
                   "the package takes " + io::SizeText(package) +
                       " and, where the panel unpacks it beside itself, " + io::SizeText(unpacked) +
                       "; that is " + io::SizeText(missing) + " more than there is",
                   "remove what else is on the drive, or take a larger one"));
    } else if (package > free && !balance.isSameSize) {
        verdict.removesOlder = balance.mayRemoveOlder;
        if (!balance.mayRemoveOlder) {
            verdict.problems.push_back(NoRoom(
                shown,
                "there is no room for the package beside the older one, which stays until "
                "the new one is whole: " +
                    io::SizeText(package) + " are needed, " + io::SizeText(free) + " are free",
                "--replace removes the older one before"));
        }
    }
    if (balance.room.countsFiles && balance.needed.files > balance.room.files) {
        verdict.problems.push_back(NoRoom(shown,
                                          "unpacking makes " +
                                              std::to_string(balance.needed.files) +
                                              " files and folders; its file system has room for " +
                                              std::to_string(balance.room.files),
                                          "take another drive"));
    }
    return verdict;
}

DrivePlan PlanDrive(const Drive& drive, const SourceFile& source,
                    const std::vector<archive::PackageEntry>& entries, bool replaces)
{
    const std::string& type = drive.Mounted().type;
    const std::string name = source.Name();
    DrivePlan plan;
    plan.strays = FindStrays(drive.Folder(), drive.Path(), name, IsOfFatKind(type));
    RoomBalance balance;
    for (const Stray& stray : plan.strays) {
        if (!replaces || !IsRemovable(stray.kind)) {
            plan.problems.push_back(StrayProblem(stray, drive.Shown(stray.name)));
        } else {
            balance.freed += stray.bytes;
        }
    }
    for (io::Error& problem :
         LimitProblems(type, name, source.Size(), entries, drive.Shown(name))) {
        plan.problems.push_back(std::move(problem));
    }
    balance.room = drive.Room();
    plan.needed = NeededRoom(source.Size(), entries, type, balance.room.cluster);
    balance.needed = plan.needed;
    balance.older = BytesTaken(drive.Folder(), name);
    balance.isSameSize = HasFileOfSize(drive, source);
    balance.mayRemoveOlder = replaces;
    RoomVerdict verdict = JudgeRoom(balance, drive.Path());
    plan.problems.insert(plan.problems.end(), verdict.problems.begin(), verdict.problems.end());
    if (verdict.removesOlder) {
        // On its way out, it is one of the others.
        plan.strays.push_back({name, StrayKind::kPackage, balance.older});
    }
    return plan;
}

void ClearDrive(const Drive& drive, const DrivePlan& plan,
                const std::function<void(const std::string& shown)>& onRemoved)
{
    for (const Stray& stray : plan.strays) {
        if (io::Interruption::IsAsked()) {
            throw io::AccessError(drive.Path(), "write", EINTR);
        }
        RemoveStray(drive.Folder(), stray, drive.Shown(stray.name));
        onRemoved(drive.Shown(stray.name));
    }
}

} // namespace kx::tool
