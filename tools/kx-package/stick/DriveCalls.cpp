// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/DriveCalls.h"

#include "io/Interruption.h"

#include <cerrno>
#include <cstdio>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

constexpr mode_t kMode = 0666; // less the umask

int ErrnoOf(int result)
{
    return result == 0 ? 0 : errno;
}

} // namespace

int DriveCalls::List(std::vector<std::string>& names) const
{
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(m_folder.Path().c_str()), closedir);
    if (folder == nullptr) {
        return errno;
    }
    while (true) {
        errno = 0;
        const dirent* const entry = readdir(folder.get());
        if (entry == nullptr) {
            return errno;
        }
        const std::string name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
}

io::NewFile DriveCalls::Make(const std::string& stem)
{
    return io::MakeFileIn(m_folder.Path(), stem, kMode);
}

int DriveCalls::GiveName(const std::string& stem, io::NewFile& file)
{
    return io::NameFileIn(m_folder.Path(), stem, file);
}

io::Transferred DriveCalls::Write(const io::Descriptor& file, std::string_view bytes)
{
    return io::TryWriteAll(file.Number(), bytes);
}

int DriveCalls::Sync(const io::Descriptor& file)
{
    return ErrnoOf(fsync(file.Number()));
}

int DriveCalls::SyncNames()
{
    return ErrnoOf(fsync(m_folder.Number()));
}

int DriveCalls::SyncAll()
{
    return ErrnoOf(syncfs(m_folder.Number()));
}

io::Descriptor DriveCalls::Open(const std::string& name) const
{
    // Nothing but a file may be opened, not even for a moment: a pipe can wait for ever.
    struct stat info {
    };
    if (fstatat(m_folder.Number(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return {};
    }
    if (!S_ISREG(info.st_mode)) {
        errno = S_ISDIR(info.st_mode) ? EISDIR : ELOOP;
        return {};
    }
    return io::Descriptor(openat(m_folder.Number(), name.c_str(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

io::Descriptor DriveCalls::OpenAgain(const io::Descriptor& file, bool isPastMemory) const
{
    return io::Descriptor(
        open(file.Path().c_str(), O_RDONLY | O_CLOEXEC | (isPastMemory ? O_DIRECT : 0)));
}

io::Transferred DriveCalls::ReadAt(const io::Descriptor& file, char* bytes, std::size_t size,
                                   std::uint64_t offset) const
{
    while (true) {
        const ssize_t count = pread(file.Number(), bytes, size, static_cast<off_t>(offset));
        if (count >= 0) {
            return {static_cast<std::size_t>(count), 0};
        }
        if (errno != EINTR || io::Interruption::IsAsked()) {
            return {0, errno};
        }
    }
}

int DriveCalls::Rename(const std::string& path, const std::string& name)
{
    return ErrnoOf(renameat(AT_FDCWD, path.c_str(), m_folder.Number(), name.c_str()));
}

int DriveCalls::Remove(const std::string& path)
{
    return ErrnoOf(unlink(path.c_str()));
}

} // namespace kx::tool
