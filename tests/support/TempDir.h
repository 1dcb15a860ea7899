// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// A folder of its own below the machine's folder for temporary files, removed at its end.
class TempDir
{
public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();

    /// The folder, without a trailing mark.
    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// The path of @p name in the folder.
    [[nodiscard]] std::string operator/(const std::string& name) const
    {
        return m_path + "/" + name;
    }

    /// Writes a file, with the folders that lead to it.
    /// @return its path
    // Many tests know the path anyway. NOLINTNEXTLINE(modernize-use-nodiscard)
    std::string Write(const std::string& name, const std::string& content,
                      unsigned mode = 0644) const;

    /// Creates a folder with its parents.
    /// @return its path
    // As above. NOLINTNEXTLINE(modernize-use-nodiscard)
    std::string MakeDir(const std::string& name) const;

    /// Everything below the folder, sorted by path: "dir d 755" and "dir/file f 644 content", the
    /// kind, the mode and for a file its content.
    [[nodiscard]] std::vector<std::string> Tree() const;

    /// Tells whether @p path lies in a folder that a living TempDir made, without "..".
    [[nodiscard]] static bool Holds(const std::string& path);

private:
    std::string m_path;
};

/// The content of the file at @p path; fails the test when it cannot be read.
[[nodiscard]] std::string ReadFile(const std::string& path);
