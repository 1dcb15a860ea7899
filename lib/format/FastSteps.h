// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/FastFolder.h"
#include "format/Json.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kx::format
{

/// Of the archive of a fast folder on the panel.
constexpr const char* kFastMode = "600";

/// Two steps of a description that bring a fast folder to the panel.
struct FastSteps {
    std::size_t copy = 0; ///< the step that copies the archive, counted from 0; its script follows
    std::string origin;   ///< where the author had the folder
    FastFolder folder;

    /// The folder of the package in which the archive lies.
    [[nodiscard]] std::string Place() const { return std::to_string(copy) + "/0"; }
};

/// Finds the fast folders of a description: steps that are just what kx-package makes of them.
/// @param root  whatever stands there
[[nodiscard]] std::vector<FastSteps> FastStepsOf(const JsonNode& root);

/// Returns a path below the target of a folder as a full path on the panel.
[[nodiscard]] std::string PathInFast(const FastFolder& folder, const std::string& name);

} // namespace kx::format
