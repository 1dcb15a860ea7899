// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace kx::tool
{

// What the files of a package that somebody else made are called on an author's disk. No name leads
// out of its folder, plays tricks with a terminal, a shell or another system's disk, or makes a
// repository of a folder: git would run what such a one says.

/// Returns one part of a path as a name that does no harm; most are that already.
[[nodiscard]] std::string HarmlessName(std::string_view part);

/// Tells whether a text is a relative path of harmless names, of which the first is not hidden.
[[nodiscard]] bool IsHarmlessPath(std::string_view path);

/// The names in one tree. No two of them differ in the case of letters alone, as many disks would
/// take these for one.
class LocalNames
{
public:
    /// Returns the path for a path of the package, the same one whenever it is asked.
    [[nodiscard]] std::string Of(const std::string& path);

private:
    std::map<std::string, std::string> m_paths; ///< by the path of the package
    std::set<std::string> m_taken;              ///< in lower case
};

/// The places in the unpacked folder: of single files, and of trees to which nothing else is added.
class LocalPlaces
{
public:
    /// Takes a place for a file, or for a tree.
    /// @return false when it is taken: it, what it lies in, or for a tree what would lie in it
    bool TakeFile(const std::string& path);
    bool TakeTree(const std::string& path);

    /// Takes the place, or one beside it that is called nearly the same.
    [[nodiscard]] std::string TakeFileNear(const std::string& path);
    [[nodiscard]] std::string TakeTreeNear(const std::string& path);

private:
    bool Take(const std::string& path, bool isTree);
    [[nodiscard]] std::string TakeNear(const std::string& path, bool isTree);

    std::map<std::string, bool> m_taken; ///< path in lower case: whether it is a tree
};

} // namespace kx::tool
