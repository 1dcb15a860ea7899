// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/VirtualPanel.h"

#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Transfer.h"
#include "panel/FreshPanel.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <set>
#include <string_view>
#include <utility>

namespace kx::rehearsal
{

namespace
{

using OnDisk = io::RootedFolder::Kind;

std::string ParentOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string Joined(const std::string& folder, std::string_view name)
{
    return (!folder.empty() && folder.back() == '/' ? folder : folder + "/") + std::string(name);
}

} // namespace

/// The parts of a path, among them those of the links that are followed.
class VirtualPanel::PathParts
{
public:
    explicit PathParts(std::string path) : m_rest(std::move(path)), m_own(m_rest.size()) {}

    /// Takes the next part. False at the end.
    bool Take(std::string& part)
    {
        const std::size_t start = m_rest.find_first_not_of('/', m_at);
        if (start == std::string::npos) {
            return false;
        }
        m_isOwn = m_rest.size() - start <= m_own;
        m_at = std::min(m_rest.find('/', start), m_rest.size());
        part = m_rest.substr(start, m_at - start);
        return true;
    }

    /// Tells whether the part taken is the path's own, and not a link's.
    [[nodiscard]] bool IsOwn() const { return m_isOwn; }

    /// Tells whether nothing follows, not even a '/'.
    [[nodiscard]] bool IsAtEnd() const { return m_at == m_rest.size(); }

    [[nodiscard]] bool EndsInSlash() const { return m_rest.back() == '/'; }

    /// Goes on with the target of a link instead of the part taken. False where Linux does not.
    bool Follow(const std::string& target)
    {
        constexpr int kMostLinks = 40;
        if (++m_links > kMostLinks || target.empty()) {
            return false;
        }
        m_own = std::min(m_own, m_rest.size() - m_at);
        m_rest.replace(0, m_at, target);
        m_at = 0;
        return true;
    }

private:
    std::string m_rest;
    std::size_t m_own; ///< so much at its end is of the path
    std::size_t m_at = 0;
    int m_links = 0;
    bool m_isOwn = true;
};

VirtualPanel::VirtualPanel(std::string root) : m_root(std::move(root))
{
    m_nodes["/"].kind = Kind::kFolder;
    if (m_root.empty()) {
        PutFreshPanel();
        return;
    }
    m_folder.emplace(m_root);
}

void VirtualPanel::PutFreshPanel()
{
    const panel::FreshPanel& fresh = panel::TheFreshPanel();
    for (const std::string& folder : fresh.folders) {
        m_nodes[folder].kind = Kind::kFolder;
    }
    for (const auto& [path, target] : fresh.links) {
        MakeLink(path, target);
    }
    for (const std::string& file : fresh.files) {
        MakeFile(file);
    }
}

/// Looks at something of the given panel, once.
const VirtualPanel::Node& VirtualPanel::Given(const std::string& plain) const
{
    if (const auto known = m_given.find(plain); known != m_given.end()) {
        return known->second;
    }
    constexpr std::uint64_t kEffort = 1024; // system calls, and an entry
    m_effort += kEffort;
    Node node;
    const io::RootedFolder::Standing standing = m_folder->LookAtLink(plain);
    switch (standing.error) {
    case 0:
        break;
    case ENOENT:
    case ENOTDIR:
        return m_given[plain] = node;
    default:
        throw io::AccessError(m_root + plain, "look at", standing.error);
    }
    node.isLink = !standing.target.empty();
    if (node.isLink) {
        node.content = std::make_shared<const std::string>(standing.target);
    } else {
        node.kind = standing.kind == OnDisk::kFolder ? Kind::kFolder : Kind::kFile;
        node.size = standing.size;
    }
    return m_given[plain] = node;
}

/// Tells whether the given panel's is not there any more, as a folder above it was removed.
bool VirtualPanel::IsGivenHidden(const std::string& plain) const
{
    for (std::string above = plain; above != "/"; above = ParentOf(above)) {
        if (m_nodes.count(above) != 0) {
            return true;
        }
    }
    return false;
}

const VirtualPanel::Node& VirtualPanel::At(const std::string& plain) const
{
    static const Node none;
    if (const auto node = m_nodes.find(plain); node != m_nodes.end()) {
        return node->second;
    }
    return m_root.empty() || IsGivenHidden(plain) ? none : Given(plain);
}

/// Follows a path.
/// @param maker  the panel itself to make the folders that are missing, otherwise null; what a link
///               leads to is not made
VirtualPanel::Found VirtualPanel::Walk(const std::string& path, bool isLastFollowed,
                                       VirtualPanel* maker) const
{
    constexpr std::size_t kLongestPath = PATH_MAX - 1;
    constexpr std::size_t kLongestName = NAME_MAX;
    if (path.empty() || path.size() > kLongestPath) {
        return {};
    }
    Found place{"/", Kind::kFolder, false};
    PathParts parts(path);
    for (std::string part; parts.Take(part);) {
        if (place.kind != Kind::kFolder || part.size() > kLongestName) {
            return {};
        }
        if (part == "..") {
            place.path = ParentOf(place.path);
        } else if (part != "." &&
                   !Step(Joined(place.path, part), parts, isLastFollowed, maker, place)) {
            return {};
        }
    }
    return parts.EndsInSlash() && place.kind == Kind::kFile ? Found() : place;
}

/// Goes from a folder to what is in it, or to where a link's way begins.
/// @return false where there is no way on
bool VirtualPanel::Step(const std::string& next, PathParts& parts, bool isLastFollowed,
                        VirtualPanel* maker, Found& place) const
{
    constexpr std::uint64_t kEffort = 64;
    constexpr std::uint64_t kLinkEffort = 1024; // chains of links are what makes long work
    m_effort += kEffort + next.size();
    if (maker != nullptr && parts.IsOwn()) {
        maker->MakeMissing(next);
    }
    const Node& node = At(next);
    if (!node.isLink || (parts.IsAtEnd() && !isLastFollowed)) {
        place = {next, node.kind, node.isLink};
        return true;
    }
    m_effort += kLinkEffort;
    if (!parts.Follow(*node.content)) {
        return false;
    }
    place.path = node.content->front() == '/' ? "/" : place.path;
    return true;
}

void VirtualPanel::MakeMissing(const std::string& plain)
{
    const Node& node = At(plain);
    if (node.kind == Kind::kNone && !node.isLink) {
        m_nodes[plain].kind = Kind::kFolder;
    }
}

VirtualPanel::Kind VirtualPanel::KindOf(const std::string& path) const
{
    return Walk(path, true).kind;
}

std::string VirtualPanel::Resolved(const std::string& path) const
{
    return Walk(path, true).path;
}

std::uint64_t VirtualPanel::SizeOf(const std::string& path) const
{
    const Found place = Walk(path, true);
    if (place.kind != Kind::kFile) {
        return 0;
    }
    const Node& node = At(place.path);
    return node.content != nullptr ? node.content->size() : node.size;
}

VirtualPanel::Bytes VirtualPanel::Content(const std::string& path, std::uint64_t limit) const
{
    const Found place = Walk(path, true);
    if (place.kind != Kind::kFile || m_nodes.count(place.path) != 0) {
        return place.kind == Kind::kFile ? At(place.path).content : nullptr;
    }
    const std::string given = m_root + place.path;
    const io::RootedFolder::Standing standing = m_folder->Look(place.path);
    if (standing.error != 0) {
        throw io::AccessError(given, "open", standing.error);
    }
    if (standing.kind != OnDisk::kFile) {
        return nullptr;
    }
    const io::Descriptor file = m_folder->Open(place.path, OnDisk::kFile);
    return std::make_shared<const std::string>(io::ReadAll(file.Number(), limit, given));
}

std::vector<std::string> VirtualPanel::Names(const std::string& folder) const
{
    const Found place = Walk(folder, true);
    if (place.kind != Kind::kFolder) {
        return {};
    }
    std::set<std::string> names;
    if (!m_root.empty() && !IsGivenHidden(place.path)) {
        for (std::string& name : m_folder->Names(place.path)) {
            if (m_nodes.count(Joined(place.path, name)) == 0) {
                names.insert(std::move(name));
            }
        }
    }
    const std::string prefix = Joined(place.path, "");
    for (auto node = m_nodes.upper_bound(prefix);
         node != m_nodes.end() && node->first.compare(0, prefix.size(), prefix) == 0;) {
        const std::string name =
            node->first.substr(prefix.size(), node->first.find('/', prefix.size()) - prefix.size());
        if (prefix.size() + name.size() < node->first.size()) {
            // Below a name that was seen: on to what follows its folder.
            node = m_nodes.lower_bound(prefix + name + static_cast<char>('/' + 1));
            continue;
        }
        if (node->second.kind != Kind::kNone || node->second.isLink) {
            names.insert(name);
        }
        ++node;
    }
    return {names.begin(), names.end()};
}

bool VirtualPanel::MakeFolder(const std::string& path)
{
    return Walk(path, true, this).kind == Kind::kFolder;
}

bool VirtualPanel::MakeFile(const std::string& path, Bytes content)
{
    const Found place = Walk(path, true);
    if (place.path.empty() || place.kind == Kind::kFolder || path.back() == '/') {
        return false;
    }
    m_nodes[place.path] = {Kind::kFile, std::move(content), false, 0};
    return true;
}

bool VirtualPanel::MakeLink(const std::string& path, const std::string& target)
{
    const Found place = Walk(path, false);
    if (place.path.empty() || place.kind == Kind::kFolder) {
        return false;
    }
    m_nodes[place.path] = {Kind::kNone, std::make_shared<const std::string>(target), true, 0};
    return true;
}

bool VirtualPanel::CopyFile(const std::string& source, const std::string& target)
{
    const Found from = Walk(source, true);
    if (from.kind != Kind::kFile) {
        return false;
    }
    const bool isInto = KindOf(target) == Kind::kFolder;
    const std::string to = isInto ? Joined(target, source.substr(source.rfind('/') + 1)) : target;
    const Found place = Walk(to, true);
    // Neither onto itself nor through a link that leads nowhere.
    if (place.path == from.path || (place.kind == Kind::kNone && Walk(to, false).isLink)) {
        return false;
    }
    return MakeFile(to, m_nodes.count(from.path) != 0 ? At(from.path).content : nullptr);
}

bool VirtualPanel::Remove(const std::string& path)
{
    const Found place = Walk(path, false);
    const std::string bare = path.substr(0, path.find_last_not_of('/') + 1);
    const std::string last = bare.substr(bare.rfind('/') + 1);
    const bool isRefused = place.path == "/" || last == "." || last == "..";
    if (isRefused || (place.kind == Kind::kNone && !place.isLink)) {
        return false;
    }
    const std::string prefix = place.path + "/";
    for (auto node = m_nodes.lower_bound(prefix);
         node != m_nodes.end() && node->first.compare(0, prefix.size(), prefix) == 0;) {
        node = m_nodes.erase(node);
    }
    m_nodes[place.path] = {};
    return true;
}

} // namespace kx::rehearsal
