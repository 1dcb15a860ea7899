// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Checker.h"
#include "compose/LayoutPackage.h"
#include "manifest/Manifest.h"

#include <string>
#include <vector>

namespace kx::tool
{

/// Checks what a manifest makes.
/// @param package   made of the layout
/// @param findings  gets what is found, placed in the manifest: file, line and column; remarks on
///                  the layout are told, too
/// @throws Error when a file of the payload, or the copy of a panel's files, cannot be read
void CheckManifest(const Manifest& manifest, const Layout& layout, const LayoutPackage& package,
                   const checks::Expected& expected, checks::Findings& findings);

/// What the command line says about the panel.
struct PanelOptions {
    std::string file;      ///< that describes it; empty: the manifest's own counts
    std::string processor; ///< empty: the manifest's counts
};

/// Checks a manifest alone: nothing is written. Where this machine has an updater for the
/// processor, that is looked at, too.
/// @param path    the manifest, or its folder
/// @param shells  read scripts; null: nobody does
/// @return all findings, sorted; mistakes in the manifest are findings
/// @throws Error when the manifest, or a file of the payload, cannot be read
[[nodiscard]] checks::Findings
CheckManifestFile(const std::string& path, const PanelOptions& options, checks::IShells* shells);

/// Returns the panel that a manifest's package is for.
/// @param mistakes  gets what keeps the description from being read, and a processor that is
///                  another one than the manifest's
/// @throws Error when the option --processor names none
[[nodiscard]] format::PanelModel PanelFor(const Manifest& manifest, const PanelOptions& options,
                                          Mistakes& mistakes);

/// Returns the same.
/// @param file  of the option --panel; empty: the manifest's own counts
/// @throws Errors where the other one gives mistakes
[[nodiscard]] format::PanelModel PanelFor(const Manifest& manifest, const std::string& file);

} // namespace kx::tool
