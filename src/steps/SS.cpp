// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "steps/SS.h"

#include "engine/ILogger.h"
#include "engine/q_UpdaterEngine.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"
#include "osa/OSA.h"
#include "osa/PanelNames.h"
#include "osa/ResultCodes.h"
#include "steps/HW.h"

#include <string>

namespace
{

/// Returns the payload folder of an item: the package folder, the step's and the item's number.
std::string PayloadFolder(int stepIndex, int itemIndex)
{
    return *q_UpdaterEngine::CurrentPackage + "/" + std::to_string(stepIndex) + "/" +
           std::to_string(itemIndex);
}

/// Copies the items of a copy step in order.
///
/// @param copyItem  copies one item and reports its failure: int (record, item, item index)
/// @return 0, the first failure that may not be skipped, or kFieldError
template <class CopyItem>
int CopyItems(DB_StepSet* data, int stepIndex, const CopyItem& copyItem)
{
    auto* const record = ObjectAs<DB_CopyStepSet>(data);
    if (record == nullptr) {
        return SS_ReportUnexpected(data, stepIndex);
    }
    auto* const items = ObjectAs<DB_CopyFunctionDatas>(record->PathSetDatas);
    if (items == nullptr) {
        return SS_ReportUnexpected(record->PathSetDatas, stepIndex);
    }
    for (int index = 0; index < items->count; ++index) {
        const auto* const item = ObjectAs<DB_CopyFunctionData>(items->ElementAt(index));
        if (item == nullptr) {
            return SS_ReportUnexpected(items->ElementAt(index), stepIndex);
        }
        const int result = copyItem(*record, *item, index);
        if (result != 0 && !record->CanSkip) {
            return result;
        }
    }
    return 0;
}

/// Writes the script file and runs it.
int RunInstallScript(const std::string& script, int stepIndex)
{
    ILogger* const log = q_UpdaterEngine::SysLogger;
    std::string text = Replace_CRLF_to_LF(script);
    // A failure shows in the write that follows.
    static_cast<void>(OSA_mkdir(PanelNames::kStepScriptFolder));
    if (const int result = OSA_WriteStringToFile(text, PanelNames::kStepScript); result != 0) {
        log->OutLine("File write is corrupted. file=%s", PanelNames::kStepScript);
        return result;
    }
    const int status = OSA_RunScript(PanelNames::kStepScript);
    if (status != 0) {
        log->OutLine("Script execution returned an error(=%d) in step no %d", status,
                     stepIndex + 1);
    }
    return status;
}

/// Applies one used setting of a hardware step, or has it collected in @p args.
/// @return 0; kFieldError for an object of a class that no setting can use; else what went wrong
///         and may be skipped. Every failure has been reported.
int ApplySetting(DB_HardwareConfig& config, int stepIndex, std::string& args)
{
    // The step does not destroy the object; it lives until the process ends.
    IHW_ConfigSet* const setting = q_UpdaterEngine::CreateHW_ConfigSet(&config);
    if (setting == nullptr) {
        return kElementError;
    }
    IPicoJ* unexpected = nullptr;
    if (HW_ItemsOf(config, unexpected) == nullptr) {
        return SS_ReportUnexpected(unexpected, stepIndex);
    }
    const int result = setting->SetHWSettings(args);
    if (result != 0) {
        q_UpdaterEngine::SysLogger->OutLine("H/W setting failed in %s in.",
                                            config.ConfigId.c_str());
    }
    return result;
}

/// Returns the list of settings of a hardware step, or null; @p found becomes the object that
/// stands where another class was expected.
const DB_HardwareConfigs* FindConfigs(DB_StepSet* data, IPicoJ*& found)
{
    found = data;
    auto* const record = ObjectAs<DB_HardSettingStepSet>(data);
    if (record == nullptr) {
        return nullptr;
    }
    found = record->HardSettingDatas;
    auto* const settings = ObjectAs<DB_HardSettingFunctionData>(found);
    if (settings == nullptr) {
        return nullptr;
    }
    found = settings->DB_HardwareConfigs;
    return ObjectAs<DB_HardwareConfigs>(found);
}

} // namespace

SS_StepSetFactory::SS_StepSetFactory()
{
    AddObject(new SS_CopyFileStepSet);
    AddObject(new SS_CopyFolderStepSet);
    AddObject(new SS_ScriptStepSet);
    AddObject(new SS_HardSettingStepSet);
}

int SS_ReportUnexpected(const IPicoJ* found, int stepIndex)
{
    if (found == nullptr) {
        return kFieldError;
    }
    q_UpdaterEngine::SysLogger->OutLine("Unexpected %s object in step %d.", found->ClassType(),
                                        stepIndex + 1);
    return kFieldError;
}

int SS_CopyFileStepSet::ExecuteInstallStep(int stepIndex)
{
    const auto copyFile = [stepIndex](const DB_CopyStepSet& record, const DB_CopyFunctionData& item,
                                      int index) {
        const std::string source =
            PayloadFolder(stepIndex, index) + "/" + OSA_GetFilenameExt(item.SourcePath.c_str());
        const int result = OSA_CopyFile(source.c_str(), item.DestinationPath.c_str(),
                                        record.IsRemove, item.Permissions.c_str());
        if (result != 0) {
            q_UpdaterEngine::SysLogger->OutLine(
                "File copy error(= %d) is corrupted. From %s to %s  (Permissions=%s)", result,
                source.c_str(), item.DestinationPath.c_str(), item.Permissions.c_str());
        }
        return result;
    };
    return CopyItems(data, stepIndex, copyFile);
}

int SS_CopyFolderStepSet::ExecuteInstallStep(int stepIndex)
{
    const auto copyFolder = [stepIndex](const DB_CopyStepSet& record,
                                        const DB_CopyFunctionData& item, int index) {
        const std::string source = PayloadFolder(stepIndex, index);
        const int result =
            OSA_CopyDirIn(source.c_str(), item.DestinationPath.c_str(), record.IsRemove);
        if (result != 0) {
            q_UpdaterEngine::SysLogger->OutLine(
                "File copy error( = %d) is corrupted. From %s to %s  (Permissions=%s)", result,
                source.c_str(), item.DestinationPath.c_str(), item.Permissions.c_str());
        }
        return result;
    };
    return CopyItems(data, stepIndex, copyFolder);
}

int SS_ScriptStepSet::ExecuteInstallStep(int stepIndex)
{
    auto* const record = ObjectAs<DB_ScriptStepSet>(data);
    if (record == nullptr) {
        return SS_ReportUnexpected(data, stepIndex);
    }
    const auto* const script = ObjectAs<DB_ScriptFunctionData>(record->InstallScriptFunctionData);
    if (script == nullptr) {
        return SS_ReportUnexpected(record->InstallScriptFunctionData, stepIndex);
    }
    const int result = RunInstallScript(script->ScriptData, stepIndex);
    return record->CanSkip ? 0 : result;
}

int SS_HardSettingStepSet::ExecuteInstallStep(int stepIndex)
{
    IPicoJ* found = nullptr;
    const DB_HardwareConfigs* const configs = FindConfigs(data, found);
    if (configs == nullptr) {
        return SS_ReportUnexpected(found, stepIndex);
    }
    std::string args;
    for (int index = 0; index < configs->count; ++index) {
        auto* const config = ObjectAs<DB_HardwareConfig>(configs->ElementAt(index));
        if (config == nullptr) {
            return SS_ReportUnexpected(configs->ElementAt(index), stepIndex);
        }
        const int result = config->IsUsed ? ApplySetting(*config, stepIndex, args) : 0;
        if (result == kFieldError || (result != 0 && !data->CanSkip)) {
            return result;
        }
    }
    if (!args.empty()) {
        // The tool reports its own failures; the step ends well all the same.
        static_cast<void>(OSA_Shell("%s set %s", PanelNames::kSettingTool, args.c_str()));
    }
    return 0;
}
