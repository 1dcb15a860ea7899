// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

/// The names that the updater shares with packages and with the panel: files, folders, devices and
/// tools. Each is written here once. Packages in the field and the panel's own software know them,
/// so none can change.
namespace PanelNames
{

// ---- the package ----

/// Extension of a package archive, with its dot.
inline constexpr const char* kPackageExtension = ".kx-update";
/// What the unpacked folder of an archive has in the extension's place.
inline constexpr const char* kUnpackedSuffix = ".temp";
/// The package's description, in the unpacked folder and in a record.
inline constexpr const char* kDescription = "UserPackage.kx-project";
/// The updater itself, and the one that a package brings along in its unpacked folder.
inline constexpr const char* kUpdater = "kx_Updater";

// ---- the records of installed packages ----

/// Folder of all records, one folder each.
inline constexpr const char* kRegistry = "/var/lib/KxUserPackages";
/// A record's list of what was installed.
inline constexpr const char* kInstalledList = "installedFile.list";

// ---- the panel's files and devices ----

/// The USB flash drive; there is such a device as long as the drive is plugged in.
inline constexpr const char* kDrive = "/dev/sda1";
/// The script that the panel runs at its start.
inline constexpr const char* kStartupScript = "/mnt/user/startup.sh";
/// Where the script of a script step is written and run, and the folder of it.
inline constexpr const char* kStepScriptFolder = "/tmp/Zt/";
inline constexpr const char* kStepScript = "/tmp/Zt/temp.sh";

// ---- the panel's tools ----

/// Lifts the write protection of the panel's own folders.
inline constexpr const char* kWriteProtectOff = "/usr/bin/kxsystem/wprotect_off";
/// Unmounts the USB flash drive.
inline constexpr const char* kUnmountDrive = "/usr/bin/kxsystem/usb_umount";
/// Changes settings of the panel; found by the shell's search path.
inline constexpr const char* kSettingTool = "kx-setting-cui";
/// Restarts the panel.
inline constexpr const char* kReboot = "/sbin/reboot";
/// Writes to the disks what is still in memory.
inline constexpr const char* kSync = "sync";

} // namespace PanelNames
