// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Links.h"

#include "io/Path.h"

namespace kx::archive
{

namespace
{

/// Returns the name in the package that a link's target stands for; empty when it leads out.
std::string NameOf(const std::string& link, const std::string& target)
{
    if (target.empty() || target.front() == '/') {
        return {};
    }
    // Two folders more than the target can leave show whether it leads out.
    std::string root = "/";
    for (std::size_t at = target.find(".."); at != std::string::npos;
         at = target.find("..", at + 2)) {
        root += "_/";
    }
    const std::size_t slash = link.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : link.substr(0, slash + 1);
    const std::string name = io::PlainPath(root + folder + target) + "/";
    if (name.compare(0, root.size(), root) != 0 || name.size() <= root.size()) {
        return {};
    }
    return name.substr(root.size(), name.size() - root.size() - 1);
}

} // namespace

LinkEnd FollowLink(const Package& package, const PackageEntry& entry)
{
    constexpr int kMostHops = 8;
    LinkEnd end;
    const PackageEntry* present = &entry;
    for (int hop = 0; hop < kMostHops; ++hop) {
        const std::string target = package.LinkTarget(present->name);
        if (hop == 0) {
            end.target = target;
        }
        present = package.Find(NameOf(present->name, target));
        if (present == nullptr || present->kind != PackageEntry::Kind::kLink) {
            end.entry = present;
            return end;
        }
    }
    return end;
}

} // namespace kx::archive
