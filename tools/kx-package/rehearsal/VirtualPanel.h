// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// The files of a panel as far as an installation looks at them: what is there, and what the
/// commands so far would have made of it. Nothing outside is ever changed.
///
/// Paths are absolute. Links that were made here are followed as Linux does; the given panel's
/// links never lead out of it.
class VirtualPanel
{
public:
    enum class Kind { kNone, kFile, kFolder };

    /// @param root  folder with the files of a panel to begin with; empty: a fresh panel, which has
    ///              just the usual folders
    explicit VirtualPanel(std::string root);

    [[nodiscard]] Kind KindOf(const std::string& path) const;

    /// Returns the bytes of a file that was given some or is the given panel's; otherwise nothing.
    [[nodiscard]] std::optional<std::string> Content(const std::string& path) const;

    /// Returns the names in a folder, sorted byte by byte.
    [[nodiscard]] std::vector<std::string> Names(const std::string& folder) const;

    /// Makes a folder with its parents. False when a file is in the way.
    bool MakeFolder(const std::string& path);

    /// Makes or replaces a file. False when its folder is not there, or it is a folder.
    bool MakeFile(const std::string& path, std::optional<std::string> content = std::nullopt);

    /// Makes a link to a file or folder, there or not. False when its folder is not there.
    bool MakeLink(const std::string& path, const std::string& target);

    /// Copies a file to a file or into a folder. False when `cp` would fail.
    bool CopyFile(const std::string& source, const std::string& target);

    /// Removes a file, or a folder with all in it. False when there is none.
    bool Remove(const std::string& path);

    /// Tells whether the files of a panel were given.
    [[nodiscard]] bool HasRoot() const { return !m_root.empty(); }

private:
    struct Node {
        Kind kind = Kind::kNone; ///< kNone hides what the given panel has there
        std::optional<std::string> content;
        bool isLink = false; ///< to the path in `content`
    };

    [[nodiscard]] std::string Resolved(const std::string& path) const;
    [[nodiscard]] Kind GivenKind(const std::string& path) const;

    std::string m_root;
    std::map<std::string, Node> m_nodes; ///< by path; what differs from the given panel
    bool m_hasLinks = false;             ///< in m_nodes
};

/// Returns an absolute path without ".", "..", doubled and trailing '/'. A relative path counts
/// from "/".
[[nodiscard]] std::string PlainPath(const std::string& path);
