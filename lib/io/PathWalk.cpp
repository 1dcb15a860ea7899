// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/PathWalk.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <utility>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

constexpr int kLookOnly = O_PATH | O_NOFOLLOW | O_CLOEXEC;

#ifdef SYS_openat2
constexpr long kOpenInRoot = SYS_openat2;
#else
constexpr long kOpenInRoot = -1; // the kernel refuses it like one that it does not know yet
#endif

/// What openat2 is told. Written out, as systems for older panels have no header with it.
struct OpenHow {
    std::uint64_t flags = 0;
    std::uint64_t mode = 0;
    std::uint64_t resolve = 0;
};

constexpr std::uint64_t kResolveInRoot = 0x10;

/// Goes from name to name below a folder. Where it stands is a link only at the end of a path, when
/// that is not followed.
class Walk
{
public:
    Walk(const Descriptor& root, std::string path, bool isLastFollowed)
        : m_root(root.Number()), m_rest(std::move(path)), m_isLastFollowed(isLastFollowed)
    {
    }

    FoundPath Go()
    {
        m_found.error = GoToRoot();
        m_rootInfo = m_found.info;
        while (m_found.error == 0 && HasName()) {
            m_found.error = Step(TakeName());
        }
        // A '/' behind the last name says that it is a folder's.
        if (m_found.error == 0 && !m_rest.empty() && !S_ISDIR(m_found.info.st_mode)) {
            m_found.error = ENOTDIR;
        }
        if (m_found.error != 0) {
            m_found.at.Close();
        }
        return std::move(m_found);
    }

private:
    [[nodiscard]] bool HasName() const
    {
        return m_rest.find_first_not_of('/') != std::string::npos;
    }

    /// Cuts the first name off what is left of the path.
    std::string TakeName()
    {
        const std::size_t begin = m_rest.find_first_not_of('/');
        const std::size_t end = std::min(m_rest.find('/', begin), m_rest.size());
        std::string name = m_rest.substr(begin, end - begin);
        m_rest.erase(0, end);
        return name;
    }

    /// Stands where a descriptor was just opened.
    /// @return 0 or an errno, also that of the opening
    int StandAt(Descriptor at)
    {
        if (!at.IsOpen() || fstat(at.Number(), &m_found.info) != 0) {
            return errno;
        }
        m_found.at = std::move(at);
        return 0;
    }

    int GoToRoot() { return StandAt(Descriptor(openat(m_root, ".", kLookOnly | O_DIRECTORY))); }

    /// Goes one name further.
    /// @return 0 or an errno
    int Step(const std::string& name)
    {
        const bool isUp = name == "..";
        if (isUp && IsAtRoot()) {
            return 0;
        }
        const int from = m_found.at.Number();
        Descriptor next(openat(from, name.c_str(), kLookOnly));
        struct stat info {
        };
        if (!next.IsOpen() || fstat(next.Number(), &info) != 0) {
            return errno;
        }
        const bool isAtEnd = m_rest.empty();
        if (S_ISLNK(info.st_mode) && (m_isLastFollowed || !isAtEnd)) {
            return Follow(next);
        }
        return StandAt(std::move(next));
    }

    /// Puts what a link says in front of what is left of the path.
    /// @return 0 or an errno
    int Follow(const Descriptor& link)
    {
        constexpr unsigned kMostLinks = 40; // as the kernel
        if (++m_links > kMostLinks) {
            return ELOOP;
        }
        std::array<char, PATH_MAX> target{};
        const ssize_t length = readlinkat(link.Number(), "", target.data(), target.size());
        if (length <= 0) {
            return length < 0 ? errno : ENOENT;
        }
        m_rest.insert(0, target.data(), static_cast<std::size_t>(length));
        return target[0] == '/' ? GoToRoot() : 0;
    }

    [[nodiscard]] bool IsAtRoot() const
    {
        return m_found.info.st_dev == m_rootInfo.st_dev && m_found.info.st_ino == m_rootInfo.st_ino;
    }

    int m_root;
    std::string m_rest; ///< of the path, and of the links in it
    bool m_isLastFollowed;
    FoundPath m_found;
    struct stat m_rootInfo {
    };
    unsigned m_links = 0;
};

} // namespace

FoundPath FindByKernel(const Descriptor& root, const std::string& path, bool isLastFollowed)
{
    constexpr unsigned kMostAttempts = 64;
    OpenHow how;
    how.flags = static_cast<std::uint64_t>(O_PATH | O_CLOEXEC | (isLastFollowed ? 0 : O_NOFOLLOW));
    how.resolve = kResolveInRoot;
    FoundPath found;
    // Where something is renamed meanwhile, the kernel cannot tell whether ".." left the folder.
    for (unsigned attempt = 0; attempt < kMostAttempts; ++attempt) {
        const long number = syscall(kOpenInRoot, root.Number(), path.c_str(), &how, sizeof(how));
        found.at = Descriptor(static_cast<int>(number));
        found.error = found.at.IsOpen() && fstat(found.at.Number(), &found.info) == 0 ? 0 : errno;
        if (found.error != EAGAIN && found.error != EINTR) {
            break;
        }
    }
    return found;
}

FoundPath FindByWalk(const Descriptor& root, const std::string& path, bool isLastFollowed)
{
    return Walk(root, path, isLastFollowed).Go();
}

} // namespace kx::io
