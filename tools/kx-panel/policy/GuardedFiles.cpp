// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "policy/GuardedFiles.h"

#include "io/Error.h"
#include "io/Path.h"
#include "io/Reach.h"
#include "io/Transfer.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;
constexpr mode_t kStartable = S_IXUSR | S_IXGRP | S_IXOTH;

io::Error Refusal(const std::string& path, const std::string& what, const std::string& remedy)
{
    return {io::ExitCode::kProblems, path, what, remedy};
}

std::string ModeText(mode_t mode)
{
    std::array<char, 16> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "(mode %o)", mode & 07777U));
    return text.data();
}

std::string UserText(uid_t user)
{
    return user == 0 ? "root" : "user " + std::to_string(user);
}

/// Makes the error of something that could not be opened.
io::Error NotOpened(const std::string& path, int number)
{
    return number == ENOENT ? Refusal(path, "is missing", "put it there")
                            : io::AccessError(path, "open", number);
}

void RefuseOtherKind(const struct stat& info, const std::string& path, GuardedKind kind)
{
    if (S_ISLNK(info.st_mode)) {
        throw Refusal(path, "is a link", "put in its place what it leads to");
    }
    const bool isFolder = S_ISDIR(info.st_mode);
    const bool isFile = S_ISREG(info.st_mode);
    if (kind == GuardedKind::kFolder && !isFolder) {
        throw Refusal(path, "is not a folder", "put one in its place");
    }
    if (kind == GuardedKind::kEither && !isFolder && !isFile) {
        throw Refusal(path, "is neither a file nor a folder", "put one in its place");
    }
    if ((kind == GuardedKind::kFile || kind == GuardedKind::kProgram) && !isFile) {
        throw Refusal(path, "is not a file", "put one in its place");
    }
    if (kind == GuardedKind::kProgram && (info.st_mode & kStartable) == 0) {
        throw Refusal(path, "cannot be started " + ModeText(info.st_mode), "chmod 755 " + path);
    }
}

/// Cuts the first name off what is left of a plain path.
std::string TakeName(std::string& rest)
{
    const std::size_t end = std::min(rest.find('/', 1), rest.size());
    std::string name = rest.substr(1, end - 1);
    rest.erase(0, end);
    return name;
}

} // namespace

GuardedFiles::GuardedFiles(std::string root, uid_t owner) : m_root(std::move(root)), m_owner(owner)
{
}

void GuardedFiles::RefuseWrong(const io::Descriptor& found, const std::string& path,
                               GuardedKind kind) const
{
    struct stat info {
    };
    if (fstat(found.Number(), &info) != 0) {
        throw io::AccessError(path, "look at", errno);
    }
    RefuseOtherKind(info, path, kind);
    if (info.st_uid != m_owner) {
        throw Refusal(path, "belongs to " + UserText(info.st_uid) + ", not to " + UserText(m_owner),
                      m_owner == 0 ? "chown root:root " + path
                                   : "chown " + std::to_string(m_owner) + " " + path);
    }
    if ((info.st_mode & kWritableByOthers) != 0) {
        throw Refusal(path,
                      "can be changed by others than " + UserText(m_owner) + " " +
                          ModeText(info.st_mode),
                      "chmod go-w " + path);
    }
}

io::Descriptor GuardedFiles::Find(const std::string& path, GuardedKind kind) const
{
    constexpr int kLookOnly = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    if (path != io::PlainPath(path) || path.find('\0') != std::string::npos) {
        throw Refusal(path, "is not a plain full path",
                      "begin it with '/', and leave out '.', '..' and marks behind others");
    }
    std::string rest = path == "/" ? "" : path;
    io::Descriptor found(open((m_root + "/").c_str(), kLookOnly | O_DIRECTORY));
    if (!found.IsOpen()) {
        throw NotOpened("/", errno);
    }
    RefuseWrong(found, "/", rest.empty() ? kind : GuardedKind::kFolder);
    while (!rest.empty()) {
        const std::string name = TakeName(rest);
        const std::string shown = path.substr(0, path.size() - rest.size());
        io::Descriptor next(openat(found.Number(), name.c_str(), kLookOnly));
        if (!next.IsOpen()) {
            throw NotOpened(shown, errno);
        }
        RefuseWrong(next, shown, rest.empty() ? kind : GuardedKind::kFolder);
        found = std::move(next);
    }
    return found;
}

void GuardedFiles::RefuseUnguarded(const std::string& path, GuardedKind kind) const
{
    static_cast<void>(Find(path, kind));
}

io::Descriptor GuardedFiles::Open(const std::string& path, GuardedKind kind) const
{
    const io::Descriptor found = Find(path, kind);
    io::Descriptor opened(open(found.Path().c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened.IsOpen()) {
        throw io::AccessError(path, "open", errno);
    }
    return opened;
}

std::string GuardedFiles::Read(const std::string& path, std::uint64_t limit) const
{
    return io::ReadAll(Open(path, GuardedKind::kFile).Number(), limit, path);
}

} // namespace kx::guard
