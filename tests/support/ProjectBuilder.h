// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <picojson.h>

#include <string>
#include <utility>
#include <vector>

/// Builds the JSON of package descriptions. Every function gives a complete, valid object whose
/// fields a test may then change or remove. The type strings are written out here and shared with
/// nothing.
namespace ProjectBuilder
{

using Object = picojson::object;
using Value = picojson::value;
using Pairs = std::vector<std::pair<std::string, std::string>>;

[[nodiscard]] Value Text(const std::string& text);
[[nodiscard]] Value Flag(bool flag);

/// A list of the class @p type.
[[nodiscard]] Object List(const std::string& type, const std::vector<Object>& elements);

[[nodiscard]] Object Root(const std::vector<Object>& steps = {});
[[nodiscard]] Object StepSets(const std::vector<Object>& steps);

[[nodiscard]] Object CopyItem(const std::string& source, const std::string& destination,
                              const std::string& permissions = "");
[[nodiscard]] Object CopyFileStep(const std::vector<Object>& items, bool canSkip = false,
                                  bool isRemove = true);
[[nodiscard]] Object CopyFolderStep(const std::vector<Object>& items, bool canSkip = false,
                                    bool isRemove = true);
[[nodiscard]] Object ScriptStep(const std::string& script, bool canSkip = false);

/// @param kind  the word in the ConfigId, for example "Backlight"
[[nodiscard]] Object HardwareConfig(const std::string& kind, const Pairs& items,
                                    bool isUsed = true);
[[nodiscard]] Object HardwareStep(const std::vector<Object>& configs, bool canSkip = false);

/// The file's bytes: a byte order mark, then the JSON text.
[[nodiscard]] std::string File(const Object& root);

/// The object in @p parent under @p key, to be changed in place.
[[nodiscard]] Object& Child(Object& parent, const std::string& key);

/// The element @p index of a list, to be changed in place.
[[nodiscard]] Object& Element(Object& list, std::size_t index);

} // namespace ProjectBuilder
