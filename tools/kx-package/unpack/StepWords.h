// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"

#include <string>
#include <vector>

namespace kx::tool
{

// Can a manifest say in its own words what a description says? What it says must come out of it
// again, but for what no panel reads.

/// Tells whether a manifest can have the text.
[[nodiscard]] bool IsSayable(const std::string& text);

/// Tells whether a manifest can have the text of a script, whose line ends become line feeds.
[[nodiscard]] bool IsSayableScript(const std::string& text);

/// The items of a copy step that a manifest can say.
struct CopyWords {
    DB_CopyStepSet* step = nullptr;
    std::vector<DB_CopyFunctionData*> items;
};

// Each returns the objects of a step of its kind, or nothing (a null step) where a manifest has no
// words for it, and gives what no panel reads the values that build gives it.

[[nodiscard]] CopyWords FileWordsOf(IPicoJ* step);
[[nodiscard]] CopyWords FolderWordsOf(IPicoJ* step);

struct ScriptWords {
    DB_ScriptStepSet* step = nullptr;
    DB_ScriptFunctionData* install = nullptr;
    DB_ScriptFunctionData* uninstall = nullptr;
};
[[nodiscard]] ScriptWords ScriptWordsOf(IPicoJ* step);

struct SettingWords {
    const DB_HardwareConfig* config = nullptr;
    std::vector<const DB_HardwareItem*> items;
};
struct SettingsWords {
    DB_HardSettingStepSet* step = nullptr;
    std::vector<SettingWords> settings;
};
[[nodiscard]] SettingsWords SettingsWordsOf(IPicoJ* step);

} // namespace kx::tool
