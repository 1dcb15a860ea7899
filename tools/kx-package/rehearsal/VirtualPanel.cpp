// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/VirtualPanel.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

/// What every panel has, besides its programs.
constexpr const char* kUsualFolders[] = {
    "/bin",       "/dev",           "/dev/shm",       "/etc",      "/home",      "/lib",
    "/mnt",       "/mnt/usb",       "/mnt/user",      "/opt",      "/proc",      "/root",
    "/run",       "/sbin",          "/tmp",           "/usr",      "/usr/bin",   "/usr/lib",
    "/usr/local", "/usr/local/bin", "/usr/local/lib", "/usr/sbin", "/usr/share", "/var",
    "/var/cache", "/var/lib",       "/var/log",       "/var/tmp"};

/// Closes a descriptor at its end.
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    [[nodiscard]] int Get() const { return m_fd; }
    int Release() { return std::exchange(m_fd, -1); }

private:
    int m_fd;
};

/// Opens a path below a folder that stands for "/": links never lead out of it.
Descriptor OpenBelow(const std::string& root, const std::string& path, int flags)
{
    const Descriptor top(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    open_how how = {};
    how.flags = static_cast<unsigned long long>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_IN_ROOT;
    return Descriptor(
        static_cast<int>(syscall(SYS_openat2, top.Get(), path.c_str(), &how, sizeof(how))));
}

std::string ParentOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Tells whether Linux takes the path: neither it nor a part of it is too long.
bool IsPossible(const std::string& plain)
{
    constexpr std::size_t kLongestPath = 4095;
    constexpr std::size_t kLongestName = 255;
    if (plain.size() > kLongestPath) {
        return false;
    }
    for (std::size_t start = 0; start != std::string::npos;) {
        const std::size_t end = plain.find('/', start + 1);
        if (std::min(end, plain.size()) - start - 1 > kLongestName) {
            return false;
        }
        start = end;
    }
    return true;
}

std::string Joined(const std::string& folder, std::string_view name)
{
    return (folder == "/" ? folder : folder + "/") + std::string(name);
}

} // namespace

std::string PlainPath(const std::string& path)
{
    std::vector<std::string> parts;
    std::istringstream stream(path);
    for (std::string part; std::getline(stream, part, '/');) {
        if (part == "..") {
            if (!parts.empty()) {
                parts.pop_back();
            }
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
    }
    std::string plain;
    for (const std::string& part : parts) {
        plain += "/" + part;
    }
    return plain.empty() ? "/" : plain;
}

VirtualPanel::VirtualPanel(std::string root) : m_root(std::move(root))
{
    m_nodes["/"].kind = Kind::kFolder;
    if (m_root.empty()) {
        for (const char* const folder : kUsualFolders) {
            m_nodes[folder].kind = Kind::kFolder;
        }
    }
}

/// Returns the path of what a path leads to through links, "" when it leads round in circles.
std::string VirtualPanel::Resolved(const std::string& path) const
{
    if (!m_hasLinks) {
        return PlainPath(path);
    }
    constexpr int kMostLinks = 40; // as in Linux
    std::string rest = path;
    std::string resolved = "/";
    for (int links = 0; !rest.empty();) {
        const std::size_t end = std::min(rest.find('/'), rest.size());
        const std::string part = rest.substr(0, end);
        rest.erase(0, end + 1);
        if (part == "..") {
            resolved = ParentOf(resolved);
            continue;
        }
        if (part.empty() || part == ".") {
            continue;
        }
        const std::string next = Joined(resolved, part);
        const auto node = m_nodes.find(next);
        if (node == m_nodes.end() || !node->second.isLink) {
            resolved = next;
            continue;
        }
        if (++links > kMostLinks || node->second.content->empty()) {
            return {};
        }
        resolved = node->second.content->front() == '/' ? "/" : resolved;
        rest.insert(0, *node->second.content + "/");
    }
    return resolved;
}

VirtualPanel::Kind VirtualPanel::GivenKind(const std::string& path) const
{
    struct stat info {
    };
    const Descriptor file = OpenBelow(m_root, path, O_PATH);
    if (file.Get() < 0 || fstat(file.Get(), &info) != 0) {
        return Kind::kNone;
    }
    return S_ISDIR(info.st_mode) ? Kind::kFolder : Kind::kFile;
}

VirtualPanel::Kind VirtualPanel::KindOf(const std::string& path) const
{
    const std::string plain = Resolved(path);
    if (const auto node = m_nodes.find(plain); node != m_nodes.end()) {
        return node->second.kind;
    }
    if (m_root.empty() || plain.empty()) {
        return Kind::kNone;
    }
    // What was removed with its folder is gone, too.
    for (std::string above = plain; above != "/";) {
        above = ParentOf(above);
        const auto node = m_nodes.find(above);
        if (node != m_nodes.end() && node->second.kind == Kind::kNone) {
            return Kind::kNone;
        }
    }
    return GivenKind(plain);
}

std::optional<std::string> VirtualPanel::Content(const std::string& path) const
{
    const std::string plain = Resolved(path);
    if (const auto node = m_nodes.find(plain); node != m_nodes.end()) {
        return node->second.content;
    }
    if (KindOf(plain) != Kind::kFile) {
        return std::nullopt;
    }
    const Descriptor file = OpenBelow(m_root, plain, O_RDONLY | O_NONBLOCK);
    std::string bytes;
    std::string piece(1 << 16, '\0');
    for (ssize_t count = 1; count > 0;) {
        count = read(file.Get(), piece.data(), piece.size());
        if (count < 0) {
            return std::nullopt;
        }
        bytes.append(piece, 0, static_cast<std::size_t>(count));
    }
    return bytes;
}

std::vector<std::string> VirtualPanel::Names(const std::string& folder) const
{
    const std::string plain = Resolved(folder);
    std::set<std::string> names;
    if (!m_root.empty() && KindOf(plain) == Kind::kFolder) {
        Descriptor listed = OpenBelow(m_root, plain, O_RDONLY | O_DIRECTORY);
        if (DIR* const dir = listed.Get() < 0 ? nullptr : fdopendir(listed.Release())) {
            for (const dirent* entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
                const std::string_view name = entry->d_name;
                const auto node = m_nodes.find(Joined(plain, name));
                const bool isGone = node != m_nodes.end() && node->second.kind == Kind::kNone;
                if (name != "." && name != ".." && !isGone) {
                    names.emplace(name);
                }
            }
            closedir(dir);
        }
    }
    const std::string prefix = Joined(plain, "");
    for (auto node = m_nodes.upper_bound(prefix);
         node != m_nodes.end() && node->first.compare(0, prefix.size(), prefix) == 0; ++node) {
        const std::string name = node->first.substr(prefix.size());
        const bool isThere = node->second.kind != Kind::kNone || node->second.isLink;
        if (isThere && name.find('/') == std::string::npos) {
            names.insert(name);
        }
    }
    return {names.begin(), names.end()};
}

bool VirtualPanel::MakeFolder(const std::string& path)
{
    const std::string plain = Resolved(path);
    const Kind kind = KindOf(plain);
    if (plain.empty() || kind != Kind::kNone) {
        return kind == Kind::kFolder;
    }
    if (!IsPossible(plain) || !MakeFolder(ParentOf(plain))) {
        return false;
    }
    m_nodes[plain] = {Kind::kFolder, std::nullopt, false};
    return true;
}

bool VirtualPanel::MakeFile(const std::string& path, std::optional<std::string> content)
{
    const std::string plain = Resolved(path);
    if (plain.empty() || KindOf(plain) == Kind::kFolder ||
        KindOf(ParentOf(plain)) != Kind::kFolder || (!path.empty() && path.back() == '/') ||
        !IsPossible(plain)) {
        return false;
    }
    m_nodes[plain] = {Kind::kFile, std::move(content), false};
    return true;
}

bool VirtualPanel::MakeLink(const std::string& path, const std::string& target)
{
    const std::string plain = PlainPath(path);
    if (KindOf(ParentOf(plain)) != Kind::kFolder || !IsPossible(plain)) {
        return false;
    }
    m_nodes[plain] = {Kind::kNone, target, true};
    m_hasLinks = true;
    return true;
}

bool VirtualPanel::CopyFile(const std::string& source, const std::string& target)
{
    const std::string from = PlainPath(source); // gives a copy into a folder its name
    if (KindOf(from) != Kind::kFile) {
        return false;
    }
    const bool isInto = KindOf(target) == Kind::kFolder;
    const std::string to =
        isInto ? Joined(PlainPath(target), from.substr(from.rfind('/') + 1)) : target;
    return MakeFile(to, Content(from));
}

bool VirtualPanel::Remove(const std::string& path)
{
    const std::string plain = PlainPath(path);
    if (KindOf(plain) == Kind::kNone || plain == "/") {
        return false;
    }
    const std::string prefix = plain + "/";
    for (auto node = m_nodes.lower_bound(prefix);
         node != m_nodes.end() && node->first.compare(0, prefix.size(), prefix) == 0;) {
        node = m_nodes.erase(node);
    }
    m_nodes[plain] = {Kind::kNone, std::nullopt, false};
    return true;
}
