// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/RootedFolder.h"

#include "io/Error.h"
#include "io/PathWalk.h"
#include "io/Reach.h"

#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

using Kind = RootedFolder::Kind;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

Kind KindOf(const struct stat& info)
{
    return S_ISREG(info.st_mode)   ? Kind::kFile
           : S_ISDIR(info.st_mode) ? Kind::kFolder
                                   : Kind::kOther;
}

/// Returns where an open link leads, nothing when that cannot be read.
std::string TargetOf(const Descriptor& link)
{
    std::array<char, PATH_MAX> target{};
    const ssize_t size = readlinkat(link.Number(), "", target.data(), target.size());
    return size > 0 ? std::string(target.data(), static_cast<std::size_t>(size)) : std::string();
}

RootedFolder::Standing StandingOf(const FoundPath& found)
{
    RootedFolder::Standing standing;
    standing.error = found.error;
    if (found.error != 0) {
        standing.kind = MeansMissing(found.error) ? Kind::kMissing : Kind::kUnknown;
        return standing;
    }
    standing.kind = KindOf(found.info);
    if (standing.kind == Kind::kFile) {
        standing.size = static_cast<std::uint64_t>(found.info.st_size);
    } else if (S_ISLNK(found.info.st_mode)) {
        standing.target = TargetOf(found.at);
    }
    return standing;
}

/// Opens for reading what was only to be looked at so far.
Descriptor Reopen(const FoundPath& found, int flags)
{
    return Descriptor(open(found.at.Path().c_str(), O_RDONLY | O_CLOEXEC | flags));
}

} // namespace

RootedFolder::Way RootedFolder::AskForWay()
{
    const Descriptor here(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const int error = FindByKernel(here, "/", true).error;
    // Guards that do not know the call yet refuse it with EPERM.
    return error == ENOSYS || error == EPERM ? Way::kWalk : Way::kKernel;
}

RootedFolder::Way RootedFolder::BestWay()
{
    static const Way kBest = AskForWay();
    return kBest;
}

RootedFolder::RootedFolder(std::string folder, Way way) : m_folder(std::move(folder)), m_way(way)
{
    m_root = Descriptor(open(m_folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!m_root.IsOpen()) {
        throw ReadError(m_folder, "open", errno);
    }
}

std::string RootedFolder::Shown(const std::string& path) const
{
    return m_folder.substr(0, m_folder.find_last_not_of('/') + 1) + path;
}

FoundPath RootedFolder::Find(const std::string& path, bool isLastFollowed) const
{
    FoundPath found;
    if (path.find('\0') != std::string::npos) {
        found.error = ENOENT; // no name has a zero byte
        return found;
    }
    if (path.size() >= PATH_MAX) {
        found.error = ENAMETOOLONG;
        return found;
    }
    std::string plain = path.substr(0, path.find_last_not_of('/') + 1);
    plain = plain.empty() ? "/" : plain;
    if (m_way == Way::kKernel) {
        found = FindByKernel(m_root, plain, isLastFollowed);
        if (found.error != EAGAIN) {
            return found;
        }
    }
    return FindByWalk(m_root, plain, isLastFollowed);
}

RootedFolder::Standing RootedFolder::Look(const std::string& path) const
{
    return StandingOf(Find(path, true));
}

RootedFolder::Standing RootedFolder::LookAtLink(const std::string& path) const
{
    return StandingOf(Find(path, false));
}

Descriptor RootedFolder::Open(const std::string& path, Kind kind) const
{
    const FoundPath found = Find(path, true);
    if (found.error != 0) {
        throw AccessError(Shown(path), "open", found.error);
    }
    if (KindOf(found.info) != kind) {
        throw Error(ExitCode::kProblems, Shown(path),
                    kind == Kind::kFolder ? "is not a folder" : "is not a file");
    }
    Descriptor opened = Reopen(found, 0);
    if (!opened.IsOpen()) {
        throw AccessError(Shown(path), "open", errno);
    }
    return opened;
}

std::vector<std::string> RootedFolder::Names(const std::string& path) const
{
    const FoundPath found = Find(path, true);
    if (found.error != 0) {
        throw AccessError(Shown(path), "list", found.error);
    }
    Descriptor opened = Reopen(found, O_DIRECTORY);
    const std::unique_ptr<DIR, CloseFolder> folder(opened.IsOpen() ? fdopendir(opened.Number())
                                                                   : nullptr);
    if (folder == nullptr) {
        throw AccessError(Shown(path), "list", errno);
    }
    static_cast<void>(opened.Release()); // the listing closes it
    std::vector<std::string> names;
    errno = 0;
    for (const dirent* entry = readdir(folder.get()); entry != nullptr;
         entry = readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    if (errno != 0) {
        throw AccessError(Shown(path), "list", errno);
    }
    return names;
}

} // namespace kx::io
