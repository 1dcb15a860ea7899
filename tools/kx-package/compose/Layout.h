// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ArchiveWriter.h"
#include "compose/Model.h"
#include "manifest/Manifest.h"

#include <memory>
#include <string>
#include <vector>

namespace kx::tool
{

/// What a manifest becomes: the description, and the payload under the numbers of its steps and
/// items.
struct Layout {
    std::unique_ptr<ProjectModel> model;
    std::vector<archive::ArchiveItem> payload;
    std::vector<std::string> remarks; ///< what the author may have meant otherwise
};

/// Finds the files that a manifest names and gives them their places.
/// @param output  the package that is being made; an older one under this path is never part of it
/// @throws Error for what is not there or cannot be packed, with the manifest's place
[[nodiscard]] Layout MakeLayout(const Manifest& manifest, const std::string& output);

} // namespace kx::tool
