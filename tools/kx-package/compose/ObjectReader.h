// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "compose/Model.h"
#include "format/Json.h"

#include <string>

namespace kx::tool
{

/// Makes the updater's object of a description's, with all objects in it. As by the updater's own
/// reader, fields that a class does not have are passed over, and any class may stand anywhere.
/// @param file   what errors call the place, line and column follow
/// @param model  owns what is made
/// @throws Error with kProblems where a class or a field is missing or not what it must be
[[nodiscard]] IPicoJ& MakeObject(const format::JsonNode& node, const std::string& file,
                                 ProjectModel& model);

/// Fills the root of a description, with all objects in it.
/// @throws Error likewise, and where the object is no root
void FillRoot(const format::JsonNode& node, const std::string& file, ProjectModel& model);

/// Fills the fields of the root that are texts, and no other.
/// @throws Error likewise
void FillRootTexts(const format::JsonNode& node, const std::string& file, ProjectModel& model);

} // namespace kx::tool
