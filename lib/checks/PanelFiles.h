// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/PanelFile.h"
#include "io/RootedFolder.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kx::checks
{

/// What programs and scripts find on a panel: what its description lists, what a copy of its files
/// has, and what the package brings. Where the description says nothing of a kind, everything of
/// that kind counts as there.
class PanelFiles
{
public:
    /// @throws Error when the copy of the files cannot be read
    explicit PanelFiles(const format::PanelModel& model);

    /// Notes a file that the package brings.
    /// @param target  plain full path on the panel
    void AddBrought(const std::string& target);

    /// Notes a name by which programs ask for a library that the package brings.
    void AddBroughtLibrary(const std::string& name) { m_broughtNames.insert(name); }

    /// Tells whether a script can name the interpreter behind "#!".
    /// @param path  a full path
    [[nodiscard]] bool HasInterpreter(const std::string& path) const;

    /// Tells whether a program of that name is in one of the usual folders.
    [[nodiscard]] bool HasCommand(const std::string& name) const;

    /// Tells whether there is the loader of programs.
    [[nodiscard]] bool HasLoader(const std::string& path) const;

    /// Tells whether there is a library that a program needs.
    /// @param folders  full paths in which the program looks for libraries besides
    [[nodiscard]] bool HasLibrary(const std::string& name,
                                  const std::vector<std::string>& folders) const;

    /// Returns the version of the panel's C library; empty when it is not known.
    [[nodiscard]] const std::string& CLibrary() const { return m_cLibrary; }

    /// Tells whether the package brings a C library of its own.
    [[nodiscard]] bool BringsCLibrary() const { return m_broughtNames.count("libc.so.6") != 0; }

private:
    [[nodiscard]] bool IsListed(const std::string& path) const;
    [[nodiscard]] bool IsFile(const std::string& path) const;

    const format::PanelModel& m_model;
    std::optional<io::RootedFolder> m_root;
    std::set<std::string> m_libraries; ///< of the panel
    bool m_knowsLibraries = false;
    bool m_knowsLoaders = false;
    std::string m_cLibrary;
    std::set<std::string> m_brought;      ///< paths
    std::set<std::string> m_broughtNames; ///< last parts of paths, and names of libraries
};

} // namespace kx::checks
