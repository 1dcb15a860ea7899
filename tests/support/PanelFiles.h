// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "support/SystemFiles.h"
#include "support/TempDir.h"

#include <string>

/// Stands in for the panel's fixed paths while it lives: the drive /dev/sda1, which is plugged in
/// at first, and the folder of records /var/lib/KxUserPackages, which is empty at first. One lives
/// at a time.
class PanelFiles final : public SystemFiles
{
public:
    PanelFiles();

    void PlugDrive() { m_isDrivePlugged = true; }
    void PullDrive() { m_isDrivePlugged = false; }

    /// How often somebody looked for the drive.
    [[nodiscard]] int DriveLooks() const { return m_driveLooks; }

    /// Writes the description of the record @p name.
    void WriteRecord(const std::string& name, const std::string& description);

    /// Creates a record without a description.
    void MakeRecord(const std::string& name);

    /// Writes a plain file into the folder of records.
    void WritePlainFile(const std::string& name, const std::string& content);

    /// Removes the whole folder of records.
    void RemoveRecords();

    [[nodiscard]] int Stat(const char* path, struct stat* info) override;
    [[nodiscard]] std::FILE* Open(const char* path, const char* mode) override;
    [[nodiscard]] int List(const char* dir, dirent*** entries) override;

    /// Returns where a path that the code under test uses really is.
    [[nodiscard]] std::string Real(const std::string& path) const;

private:
    [[nodiscard]] int LookForDrive();

    TempDir m_dir;
    bool m_isDrivePlugged = true;
    int m_driveLooks = 0;
};
