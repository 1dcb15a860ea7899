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

} // namespace kx::panel
