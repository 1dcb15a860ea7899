// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

class IStepObserver;
class UserPackageInstaller;

/// What a panel does with a package, from the file on the USB flash drive to the reboot, in the
/// order of the functions below.
///
/// Two processes share the road: the window opens the package and asks its user; the installer, the
/// window's child, installs what the window has unpacked; then the window leaves the drive and
/// offers the reboot. Each process runs between two syncs. Commands go through OSA_Shell, messages
/// through q_UpdaterEngine::SysLogger.
namespace Installation
{

/// Runs "sync". A device without the tool goes on.
void SyncDisks();

/// Calls @p mode, a process's work, between two syncs: a drive pulled out or a power cut later on
/// finds what was there before written.
/// @return what @p mode returns
template <class Mode>
[[nodiscard]] int BetweenSyncs(const Mode& mode)
{
    SyncDisks();
    const int result = mode();
    SyncDisks();
    return result;
}

// ---- the window, up to its question ----

/// What the search for the package came to.
enum class Search {
    kFound,
    kNoFolderGiven,  ///< the folder's name is empty
    kNoFolder,       ///< there is no such folder
    kNoPackage,      ///< an unreadable folder counts as an empty one
    kSeveralPackages ///< more than one
};

/// Tells whether the window takes a file for a package: by the extension of its name alone.
[[nodiscard]] bool IsPackageName(const char* name);

/// Looks for exactly one package file in @p folder.
/// @param file  set to the path of the first one that is found; when it is not empty already, that
///              counts as one found
[[nodiscard]] Search FindPackage(const std::string& folder, std::string& file);

/// Returns the folder into which the window unpacks @p archive: beside it, with ".temp" in the
/// extension's place.
[[nodiscard]] std::string UnpackedFolder(const std::string& archive);

/// Returns the folder of the record of the package that is unpacked in @p folder.
[[nodiscard]] std::string RecordFolder(const std::string& folder);

/// Opens a package: points @p package at the archive's unpacked folder, unpacks the archive there
/// and reads the root of the description.
/// @return 0, the raw status of the `mkdir` or `unzip` that failed, or kGeneralError
/// @throws std::runtime_error when the description's root value is no JSON object
[[nodiscard]] int OpenPackage(UserPackageInstaller& package, const std::string& archive);

/// Returns the path of the updater that the package unpacked in @p folder brings along. The window
/// starts it as the installer, unless it was told another one.
[[nodiscard]] std::string PackagedUpdater(const std::string& folder);

// ---- the installer: the child, in console mode ----

/// Installs what is unpacked in @p folder: points @p package at it, reads the whole description,
/// lifts the write protection, removes the record of an earlier installation, executes the steps
/// and writes the new record. The first of these that fails is the last; nothing is taken back.
/// @param observer  is told where the steps stand; null: nobody
/// @return 0, or the first failure: kGeneralError, a step's result, or that of the record
/// @throws std::runtime_error when the description's root value is no JSON object
[[nodiscard]] int InstallUnpacked(UserPackageInstaller& package, const std::string& folder,
                                  IStepObserver* observer = nullptr);

// ---- the window, to the end ----

/// Deletes the unpacked package and unmounts the drive; the window does so once, whether anything
/// was installed or not. Without an open package only the drive is unmounted.
void LeaveDrive(UserPackageInstaller& package);

/// Tells whether the drive is still plugged in. The window waits until it is not.
[[nodiscard]] bool IsDrivePluggedIn();

/// Restarts the panel.
void Reboot();

} // namespace Installation
