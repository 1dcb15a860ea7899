// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

class DB_KxUserProject;
class IStepObserver;

/// One package: where it is unpacked, its description once read, and what is done with it.
///
/// The road of an installation (Installation.h) sets the three public fields before the first call.
/// All messages go through q_UpdaterEngine::SysLogger.
class UserPackageInstaller
{
public:
    std::string packageDir;      ///< folder that holds, or will hold, the unpacked package
    std::string projectFile;     ///< packageDir + "/UserPackage.kx-project"
    bool removeUnpacked = false; ///< true: Cleanup deletes packageDir

    UserPackageInstaller() = default;
    UserPackageInstaller(const UserPackageInstaller&) = delete;
    UserPackageInstaller& operator=(const UserPackageInstaller&) = delete;
    /// Destroys the root of the description; the objects below it stay until the process ends.
    virtual ~UserPackageInstaller();

    /// The description, or null before a read that succeeded. Owned by the installer.
    [[nodiscard]] const DB_KxUserProject* Project() const { return project; }

    /// Unpacks @p packageFile into packageDir, which is emptied first.
    /// @return 0, or the raw status of the `mkdir` or `unzip` that failed
    [[nodiscard]] int Unpack(const char* packageFile);

    /// Reads the whole description. An earlier one is replaced and not destroyed.
    /// @return 0, or kGeneralError
    /// @throws std::runtime_error when the document's root value is no JSON object
    [[nodiscard]] int ReadKxProjectFile();

    /// Reads only the root's own fields of the description, otherwise as ReadKxProjectFile.
    [[nodiscard]] int ReadRootOnlyKxProjectFile();

    /// Executes the install steps in order; the first that fails ends the installation.
    /// @param observer  is told where the loop stands; null: nobody
    /// @return 0; kGeneralError for a step of unknown kind or without a description; kFieldError
    ///         for a record that is no step; else the failed step's result
    [[nodiscard]] int ExecuteInstallStep(IStepObserver* observer = nullptr);

    /// Deletes packageDir when removeUnpacked is set.
    void Cleanup();

    /// Removes the record of an earlier installation of this package, not what it installed.
    /// @return 0, always
    int ClearInstalledLog();

    /// Writes the record: a copy of the description, and the list of the folders and files that
    /// the recording lists hold, to which the record's own are added.
    /// @return 0, the raw status of the failed copy, or kWriteError
    [[nodiscard]] int RegistInstalledLog();

private:
    [[nodiscard]] int Read(int childlenMode);

    DB_KxUserProject* project = nullptr;
};
