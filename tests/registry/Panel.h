// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "support/TempDir.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kx::registry
{

/// The files of a panel in a folder of its own, beside something that is not the panel's.
class Panel
{
public:
    Panel()
    {
        m_dir.MakeDir("panel/mnt/user/bin");
        m_dir.Write("panel/mnt/user/bin/hello", "hello");
        m_dir.Write("outside/secret", "secret");
    }

    [[nodiscard]] std::string Root() const { return m_dir / "panel"; }

    void Write(const std::string& path, const std::string& content, unsigned mode = 0644) const
    {
        m_dir.Write("panel" + path, content, mode);
    }

    void MakeDir(const std::string& path) const { m_dir.MakeDir("panel" + path); }

    void Link(const std::string& path, const std::string& target) const
    {
        std::filesystem::create_directories(std::filesystem::path(Root() + path).parent_path());
        std::filesystem::create_symlink(target, Root() + path);
    }

    [[nodiscard]] std::string Outside() const { return m_dir / "outside"; }

    /// Writes a record as the updater does.
    void Record(const std::string& name, const std::vector<std::string>& folders,
                const std::vector<std::string>& files) const
    {
        const std::string path = "/var/lib/KxUserPackages/" + name;
        Write(path + "/UserPackage.kx-project", Description(name));
        std::string list = " #dir\n";
        for (const std::string& folder : folders) {
            list += folder + "\n";
        }
        list += path + "\n #file\n";
        for (const std::string& file : files) {
            list += file + "\n";
        }
        list += path + "/UserPackage.kx-project\n" + path + "/installedFile.list\n";
        Write(path + "/installedFile.list", list);
    }

    /// A description without steps.
    static std::string Description(const std::string& title)
    {
        return "\xef\xbb\xbf{\"$type\": \"Zt.Plugins.DB_KxUserProject, Plexa\", "
               "\"ModelName\": \"TP\", \"OsVersion\": \"2.0\", \"PackageVersion\": \"1.2\", "
               "\"Title\": \"T " +
               title +
               "\", \"Comment\": \"C\", \"Date\": \"2026/11/21\", "
               "\"DB_StepSets\": {\"$type\": \"Zt.Plugins.DB_StepSets, Plexa\", \"$values\": []}}";
    }

private:
    TempDir m_dir;
};

} // namespace kx::registry
