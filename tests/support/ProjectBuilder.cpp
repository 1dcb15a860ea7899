// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/ProjectBuilder.h"

namespace ProjectBuilder
{

namespace
{

Object Step(const std::string& type, const std::string& id, bool canSkip)
{
    return {{"$type", Text(type)},
            {"SS_StepSetId", Text(id)},
            {"Comment", Text("a step")},
            {"CanSkip", Flag(canSkip)}};
}

Object CopyStep(const std::string& id, const std::vector<Object>& items, bool canSkip,
                bool isRemove)
{
    Object step = Step("Zt.Plugins.DB_CopyStepSet, Plexa", id, canSkip);
    step["IsRelativePath"] = Flag(true);
    step["IsRemove"] = Flag(isRemove);
    step["PathSetDatas"] = Value(List("Zt.Plugins.DB_CopyFunctionDatas, Plexa", items));
    return step;
}

Object Script(const std::string& script)
{
    return {{"$type", Text("Zt.Plugins.DB_ScriptFunctionData, Plexa")},
            {"ScriptData", Text(script)}};
}

} // namespace

Value Text(const std::string& text)
{
    return Value(text);
}

Value Flag(bool flag)
{
    return Value(flag);
}

Object List(const std::string& type, const std::vector<Object>& elements)
{
    picojson::array values;
    for (const Object& element : elements) {
        values.emplace_back(element);
    }
    return {{"$type", Text(type)}, {"$values", Value(values)}};
}

Object Root(const std::vector<Object>& steps)
{
    return {{"$type", Text("Zt.Plugins.DB_KxUserProject, Plexa")},
            {"ModelName", Text("TP-0700")},
            {"OsVersion", Text("2.1.0")},
            {"PackageVersion", Text("1.0.3")},
            {"Title", Text("Line 4 recipes")},
            {"Comment", Text("Adds the recipe viewer")},
            {"Date", Text("2024/05/17")},
            {"DB_StepSets", Value(StepSets(steps))}};
}

Object StepSets(const std::vector<Object>& steps)
{
    return List("Zt.Plugins.DB_StepSets, Plexa", steps);
}

Object CopyItem(const std::string& source, const std::string& destination,
                const std::string& permissions)
{
    return {{"$type", Text("Zt.Plugins.DB_CopyFunctionData, Plexa")},
            {"SourcePath", Text(source)},
            {"DestinationPath", Text(destination)},
            {"Permissions", Text(permissions)}};
}

Object CopyFileStep(const std::vector<Object>& items, bool canSkip, bool isRemove)
{
    return CopyStep("Zt.Plugins.SS_CopyFileStepSet,  Plexa", items, canSkip, isRemove);
}

Object CopyFolderStep(const std::vector<Object>& items, bool canSkip, bool isRemove)
{
    return CopyStep("Zt.Plugins.SS_CopyFolderStepSet,  Plexa", items, canSkip, isRemove);
}

Object ScriptStep(const std::string& script, bool canSkip)
{
    Object step =
        Step("Zt.Plugins.DB_ScriptStepSet, Plexa", "Zt.Plugins.SS_ScriptStepSet,  Plexa", canSkip);
    step["InstallScriptFunctionData"] = Value(Script(script));
    step["UninstallScriptFunctionData"] = Value(Script("echo uninstall"));
    return step;
}

Object HardwareConfig(const std::string& kind, const Pairs& items, bool isUsed)
{
    std::vector<Object> elements;
    for (const auto& [name, value] : items) {
        elements.push_back({{"$type", Text("Zt.DB_HardwareItem, Drovic")},
                            {"ItemName", Text(name)},
                            {"Value", Text(value)}});
    }
    return {{"$type", Text("Zt.DB_HardwareConfig, Ruvelo")},
            {"ConfigId", Text("Zt.Plugins.HW_" + kind + "ConfigSet,  Plexa")},
            {"IsUsed", Flag(isUsed)},
            {"HardwareItems", Value(List("Zt.DB_HardwareItems, Drovic", elements))}};
}

Object HardwareStep(const std::vector<Object>& configs, bool canSkip)
{
    Object step = Step("Zt.Plugins.DB_HardSettingStepSet, Plexa",
                       "Zt.Plugins.SS_HardSettingStepSet,  Plexa", canSkip);
    const Object settings = {
        {"$type", Text("Zt.Plugins.DB_HardSettingFunctionData, Plexa")},
        {"DB_HardwareConfigs", Value(List("Zt.DB_HardwareConfigs, Ruvelo", configs))}};
    step["HardSettingDatas"] = Value(settings);
    return step;
}

std::string File(const Object& root)
{
    return "\xEF\xBB\xBF" + Value(root).serialize();
}

Object& Child(Object& parent, const std::string& key)
{
    return parent.at(key).get<Object>();
}

Object& Element(Object& list, std::size_t index)
{
    return list.at("$values").get<picojson::array>().at(index).get<Object>();
}

} // namespace ProjectBuilder
