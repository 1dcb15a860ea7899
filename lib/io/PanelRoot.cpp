// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/PanelRoot.h"

#include "io/Error.h"

#include <array>
#include <cerrno>
#include <climits>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

constexpr int kLookOnly = O_PATH | O_NOFOLLOW | O_CLOEXEC;
constexpr unsigned kMostLinks = 40; // as the kernel

PanelRoot::Kind KindOf(const struct stat& info)
{
    return S_ISREG(info.st_mode)   ? PanelRoot::Kind::kFile
           : S_ISDIR(info.st_mode) ? PanelRoot::Kind::kFolder
                                   : PanelRoot::Kind::kOther;
}

/// Tells whether an error means that a program on the panel would find nothing, either.
bool MeansMissing(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

/// Cuts the first name off a path.
std::string TakeName(std::string& rest)
{
    const std::size_t begin = rest.find_first_not_of('/');
    if (begin == std::string::npos) {
        rest.clear();
        return {};
    }
    const std::size_t end = std::min(rest.find('/', begin), rest.size());
    std::string name = rest.substr(begin, end - begin);
    rest.erase(0, end);
    return name;
}

bool HasName(const std::string& rest)
{
    return rest.find_first_not_of('/') != std::string::npos;
}

} // namespace

/// How far a path was followed. Where it stands is never a link.
struct PanelRoot::Walk {
    Descriptor at; ///< opened for looking only
    struct stat info {
    };
    unsigned links = 0;
    int error = 0;
};

PanelRoot::PanelRoot(std::string folder) : m_folder(std::move(folder))
{
    if (m_folder.empty()) {
        throw Error(ExitCode::kWrongUse, "--root", "names no folder");
    }
    m_root = Descriptor(open(m_folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!m_root.IsOpen() || fstat(m_root.Number(), &m_info) != 0) {
        throw AccessError(m_folder, "open", errno);
    }
}

std::string PanelRoot::Shown(const std::string& path) const
{
    std::string shown = m_folder;
    while (!shown.empty() && shown.back() == '/') {
        shown.pop_back();
    }
    return shown + path;
}

bool PanelRoot::IsRoot(const struct stat& info) const
{
    return info.st_dev == m_info.st_dev && info.st_ino == m_info.st_ino;
}

PanelRoot::Walk PanelRoot::Find(const std::string& path) const
{
    Walk walk;
    walk.at = Descriptor(openat(m_root.Number(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    walk.info = m_info;
    if (!walk.at.IsOpen()) {
        walk.error = errno;
        return walk;
    }
    if (path.find('\0') != std::string::npos) {
        walk.error = ENOENT; // no name has a zero byte
        return walk;
    }
    std::string rest = path;
    while (walk.error == 0 && HasName(rest)) {
        const std::string name = TakeName(rest);
        if (name != ".") {
            walk.error = Step(walk, name, rest);
        }
    }
    return walk;
}

/// Goes one name further.
/// @param rest  of the path; a link puts its own in front
/// @return 0 or an errno
int PanelRoot::Step(Walk& walk, const std::string& name, std::string& rest) const
{
    if (!S_ISDIR(walk.info.st_mode)) {
        return ENOTDIR;
    }
    if (name == "..") {
        return StepUp(walk);
    }
    Descriptor next(openat(walk.at.Number(), name.c_str(), kLookOnly));
    return next.IsOpen() ? StepTo(walk, std::move(next), rest) : errno;
}

int PanelRoot::StepUp(Walk& walk) const
{
    if (IsRoot(walk.info)) {
        return 0;
    }
    walk.at = Descriptor(openat(walk.at.Number(), "..", kLookOnly));
    return walk.at.IsOpen() && fstat(walk.at.Number(), &walk.info) == 0 ? 0 : errno;
}

int PanelRoot::StepTo(Walk& walk, Descriptor next, std::string& rest) const
{
    struct stat info {
    };
    if (fstat(next.Number(), &info) != 0) {
        return errno;
    }
    if (!S_ISLNK(info.st_mode)) {
        walk.at = std::move(next);
        walk.info = info;
        return 0;
    }
    if (++walk.links > kMostLinks) {
        return ELOOP;
    }
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlinkat(next.Number(), "", target.data(), target.size());
    if (length < 0) {
        return errno;
    }
    rest.insert(0, std::string(target.data(), static_cast<std::size_t>(length)) + "/");
    if (rest.front() == '/') {
        walk.at = Descriptor(openat(m_root.Number(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
        walk.info = m_info;
        return walk.at.IsOpen() ? 0 : errno;
    }
    return 0;
}

PanelRoot::Place PanelRoot::Look(const std::string& path) const
{
    const Walk walk = Find(path);
    if (walk.error != 0) {
        return {MeansMissing(walk.error) ? Kind::kMissing : Kind::kUnknown, 0, walk.error};
    }
    return {KindOf(walk.info), static_cast<std::uint64_t>(walk.info.st_size), 0};
}

Descriptor PanelRoot::Open(const std::string& path, Kind kind) const
{
    const Walk walk = Find(path);
    if (walk.error != 0) {
        throw AccessError(Shown(path), "open", walk.error);
    }
    if (KindOf(walk.info) != kind) {
        throw Error(ExitCode::kNoAccess, Shown(path),
                    kind == Kind::kFolder ? "is no folder" : "is no file");
    }
    Descriptor opened(open(walk.at.Path().c_str(), O_RDONLY | O_CLOEXEC));
    if (!opened.IsOpen()) {
        throw AccessError(Shown(path), "open", errno);
    }
    return opened;
}

} // namespace kx::io
