// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

class IPicoJ;

/// Reads package descriptions (`UserPackage.kx-project`).
class UserPackageProjectReader
{
public:
    UserPackageProjectReader() = delete;

    /// Reads the description at @p path into a tree of project objects.
    ///
    /// The file's first three bytes (a byte order mark) are skipped unread, and its text ends at
    /// the first zero byte. With q_UpdaterEngine::kReadRootOnly only the root's own fields are
    /// read. File buffer and parsed JSON are released before the call returns.
    /// @return the root, a DB_KxUserProject owned by the caller, or null after the reason was
    ///         logged
    /// @throws std::runtime_error when the document's root value is no JSON object
    [[nodiscard]] static IPicoJ* Imp_Read(const char* path);
};
