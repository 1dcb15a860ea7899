// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/FastSteps.h"

#include "format/Kinds.h"
#include "io/Utf8.h"
#include "model/DB_Fields.h"

#include <optional>
#include <utility>

namespace kx::format
{

namespace
{

bool HasFlag(const JsonNode& node, const char* key, bool wanted)
{
    const JsonNode* const member = node.Member(key);
    return member != nullptr && member->kind == JsonNode::Kind::kBool && member->flag == wanted;
}

/// Returns the elements of the list that a member is; none where it is no list.
const std::vector<JsonNode>& ListOf(const JsonNode& node, const char* key)
{
    static const std::vector<JsonNode> kNone;
    const JsonNode* const list = node.Member(key);
    const JsonNode* const values = list == nullptr ? nullptr : list->Member(kValuesKey);
    return values == nullptr ? kNone : values->elements;
}

const std::string& ScriptOf(const JsonNode& step, const char* key)
{
    static const std::string kNone;
    const JsonNode* const script = step.Member(key);
    return script == nullptr ? kNone : script->TextOf("ScriptData");
}

/// Tells whether a manifest can have the text.
bool IsSayable(const std::string& text)
{
    return io::IsUtf8(text) && text.find('\0') == std::string::npos;
}

/// Tells whether the first step copies the archive of the folder that the second one unpacks.
bool IsCopyOf(const JsonNode& copy, const JsonNode& script, FastSteps& steps)
{
    const std::vector<JsonNode>& items = ListOf(copy, "PathSetDatas");
    if (copy.TextOf("SS_StepSetId") != kCopyFilesKind.id || !HasFlag(copy, "CanSkip", true) ||
        !HasFlag(copy, "IsRemove", false) || copy.TextOf("Comment") != script.TextOf("Comment") ||
        items.size() != 1 || items[0].TextOf("DestinationPath") != steps.folder.archive ||
        items[0].TextOf("Permissions") != kFastMode) {
        return false;
    }
    const std::string end = std::string("/") + kFastArchiveName;
    const std::string& source = items[0].TextOf("SourcePath");
    if (!IsSayable(copy.TextOf("Comment")) || !IsSayable(source) || source.size() <= end.size() ||
        source.compare(source.size() - end.size(), end.size(), end) != 0) {
        return false;
    }
    steps.origin = source.substr(0, source.size() - end.size());
    return true;
}

} // namespace

std::vector<FastSteps> FastStepsOf(const JsonNode& root)
{
    std::vector<FastSteps> found;
    const std::vector<JsonNode>& steps = ListOf(root, "DB_StepSets");
    for (std::size_t i = 1; i < steps.size(); ++i) {
        if (steps[i].TextOf("SS_StepSetId") != kScriptKind.id) {
            continue;
        }
        std::optional<FastFolder> folder =
            ReadFastScripts(ScriptOf(steps[i], "InstallScriptFunctionData"),
                            ScriptOf(steps[i], "UninstallScriptFunctionData"));
        if (!folder.has_value()) {
            continue;
        }
        FastSteps fast;
        fast.copy = i - 1;
        fast.folder = *std::move(folder);
        if (IsCopyOf(steps[i - 1], steps[i], fast)) {
            found.push_back(std::move(fast));
        }
    }
    return found;
}

std::string PathInFast(const FastFolder& folder, const std::string& name)
{
    return (folder.target == "/" ? "" : folder.target) + "/" + name;
}

} // namespace kx::format
