// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "osa/PanelNames.h"

/// The panel that the updater runs on, described once for the programs around it.
namespace kx::panel
{

// The updater's own names of files, folders and tools.
using namespace PanelNames;

/// The folder in which a panel mounts the USB flash drive. The updater is told it (-upDir).
inline constexpr const char* kDriveFolder = "/mnt/usb";

// ---- what decides on a panel which packages are installed ----

/// What the panel says about itself, about trust, and about limits.
inline constexpr const char* kPanelDescription = "/etc/kx_Updater/panel.toml";
/// The folder of the keys that the panel trusts.
inline constexpr const char* kTrustedKeys = "/etc/kx_Updater/keys";
/// Where the panel keeps what it must remember about installations, unless it is told another
/// place.
inline constexpr const char* kPanelState = "/var/lib/kx-panel";
/// Where the panel has its own updater, unless it is told another place.
inline constexpr const char* kPanelUpdater = "/usr/bin/kx_Updater";

} // namespace kx::panel
