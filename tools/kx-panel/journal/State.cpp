// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "journal/State.h"

#include "io/Path.h"
#include "journal/ToolRun.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

constexpr const char* kLock = "lock";
constexpr const char* kInstallerLock = "installer.lock";
constexpr mode_t kStateMode = S_IRWXU;

/// The kind of lock that belongs to an open file, not to a process: it lives as long as a copy of
/// the descriptor does, and can be asked for without being taken.
struct flock WholeFile()
{
    struct flock lock {
    };
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

/// @return false when somebody else has the lock
bool TakeLock(const io::Descriptor& file, const std::string& shown)
{
    const struct flock lock = WholeFile();
    if (fcntl(file.Number(), F_OFD_SETLK, &lock) == 0) {
        return true;
    }
    if (errno != EAGAIN && errno != EACCES) {
        throw io::AccessError(shown, "lock", errno);
    }
    return false;
}

bool IsLocked(const StateFolder& folder, const char* name)
{
    const io::Descriptor file(
        openat(folder.File().Number(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen() && errno == ENOENT) {
        return false;
    }
    struct flock lock = WholeFile();
    if (!file.IsOpen() || fcntl(file.Number(), F_OFD_GETLK, &lock) != 0) {
        throw io::AccessError(folder.Shown(name), "ask for the lock of", errno);
    }
    return lock.l_type != F_UNLCK;
}

/// Opens the folder and refuses it when it is not this user's alone.
std::optional<StateFolder> OpenGuarded(const StatePlace& place)
{
    io::Descriptor folder(
        open(place.folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const int error = folder.IsOpen() ? 0 : errno;
    if (error == ENOENT) {
        return {};
    }
    place.refuseUnguarded(place.folder);
    if (error != 0) {
        throw io::AccessError(place.folder, "open", error);
    }
    struct stat info {
    };
    if (fstat(folder.Number(), &info) != 0) {
        throw io::AccessError(place.folder, "look at", errno);
    }
    if ((info.st_mode & 07777U) != kStateMode || info.st_uid != geteuid()) {
        // It is not made so here: it may be a folder that others need.
        throw io::Error(io::ExitCode::kProblems, place.folder, "is not open for root alone",
                        "name a folder for this alone, or chmod 700 it");
    }
    return StateFolder(std::move(folder), place.folder);
}

/// @return an errno when the folder cannot be made
int MakeFolder(const StatePlace& place)
{
    const std::string above = io::PlainPath(place.folder + "/..");
    place.refuseUnguarded(above);
    return mkdir(place.folder.c_str(), kStateMode) == 0 || errno == EEXIST ? 0 : errno;
}

void LiftWriteProtection(const StatePlace& place)
{
    const int status = RunTool(place.writeProtectOff);
    if (status != 0) {
        throw io::Error(io::ExitCode::kNoAccess, place.folder,
                        "is write-protected, and " + place.writeProtectOff + " ended with " +
                            std::to_string(status));
    }
}

/// Opens the folder, and makes it where it is missing.
StateFolder OpenOrMake(const StatePlace& place)
{
    std::optional<StateFolder> folder = OpenGuarded(place);
    if (!folder.has_value()) {
        int error = MakeFolder(place);
        if (error == EROFS) {
            LiftWriteProtection(place);
            error = MakeFolder(place);
        }
        if (error != 0) {
            throw io::Error(io::ExitCode::kNoAccess, place.folder,
                            io::AccessError("", "make the folder", error).what(),
                            error == ENOENT ? "make the folder above it, or name another as 'state'"
                                            : "");
        }
        folder = OpenGuarded(place);
    }
    if (!folder.has_value()) {
        throw io::AccessError(place.folder, "open", ENOENT);
    }
    // A folder that is there already may lie on a file system that cannot be written now.
    if (faccessat(folder->File().Number(), ".", W_OK, AT_EACCESS) != 0 && errno == EROFS) {
        LiftWriteProtection(place);
    }
    return std::move(*folder);
}

} // namespace

State::State(const StatePlace& place)
    : m_folder(OpenOrMake(place)), m_lock(m_folder.OpenOrCreate(kLock))
{
    if (!TakeLock(m_lock, m_folder.Shown(kLock))) {
        throw Busy(m_folder.Path(), "another kx-panel is at work", "wait until it has ended");
    }
    if (IsLocked(m_folder, kInstallerLock)) {
        throw Busy(m_folder.Path(),
                   "an installation goes on, although the kx-panel that began it is gone",
                   "wait until it has ended, or restart the panel");
    }
}

io::Descriptor State::LockForInstaller() const
{
    // Made anew each time: programs that an earlier installation left running keep the old file.
    m_folder.Remove(kInstallerLock);
    io::Descriptor file = m_folder.Create(kInstallerLock);
    if (!TakeLock(file, m_folder.Shown(kInstallerLock))) {
        throw Busy(m_folder.Path(), "another installer is at work", "wait until it has ended");
    }
    return file;
}

void State::ForgetInstaller() const
{
    m_folder.Remove(kInstallerLock);
}

std::optional<StateFolder> OpenStateToRead(const StatePlace& place)
{
    return OpenGuarded(place);
}

bool IsAtWork(const StateFolder& folder)
{
    return IsLocked(folder, kLock) || IsLocked(folder, kInstallerLock);
}

} // namespace kx::guard
