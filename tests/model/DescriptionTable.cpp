// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/DescriptionTable.h"

#include "support/ProjectBuilder.h"

#include <stdexcept>
#include <utility>

namespace DescriptionTable
{

namespace
{

using picojson::array;
using picojson::object;
using picojson::value;

/// The fields that come first in every step, then @p own.
std::vector<Field> StepFields(const std::vector<Field>& own)
{
    std::vector<Field> fields = {
        {"SS_StepSetId", Kind::Text, ""}, {"Comment", Kind::Text, ""}, {"CanSkip", Kind::Flag, ""}};
    fields.insert(fields.end(), own.begin(), own.end());
    return fields;
}

std::vector<Class> CopyClasses()
{
    return {
        {"DB_CopyFunctionData",
         "Zt.Plugins.DB_CopyFunctionData, Plexa",
         false,
         {{"SourcePath", Kind::Text, ""},
          {"DestinationPath", Kind::Text, ""},
          {"Permissions", Kind::Text, ""}}},
        {"DB_CopyFunctionDatas", "Zt.Plugins.DB_CopyFunctionDatas, Plexa", true, {}},
        {"DB_CopyStepSet", "Zt.Plugins.DB_CopyStepSet, Plexa", false,
         StepFields({{"IsRelativePath", Kind::Flag, ""},
                     {"IsRemove", Kind::Flag, ""},
                     {"PathSetDatas", Kind::Child, "DB_CopyFunctionDatas"}})},
    };
}

std::vector<Class> HardwareClasses()
{
    return {
        {"DB_HardwareItem",
         "Zt.DB_HardwareItem, Drovic",
         false,
         {{"ItemName", Kind::Text, ""}, {"Value", Kind::Text, ""}}},
        {"DB_HardwareItems", "Zt.DB_HardwareItems, Drovic", true, {}},
        {"DB_HardwareConfig",
         "Zt.DB_HardwareConfig, Ruvelo",
         false,
         {{"ConfigId", Kind::Text, ""},
          {"IsUsed", Kind::Flag, ""},
          {"HardwareItems", Kind::Child, "DB_HardwareItems"}}},
        {"DB_HardwareConfigs", "Zt.DB_HardwareConfigs, Ruvelo", true, {}},
        {"DB_HardSettingFunctionData",
         "Zt.Plugins.DB_HardSettingFunctionData, Plexa",
         false,
         {{"DB_HardwareConfigs", Kind::Child, "DB_HardwareConfigs"}}},
        {"DB_HardSettingStepSet", "Zt.Plugins.DB_HardSettingStepSet, Plexa", false,
         StepFields({{"HardSettingDatas", Kind::Child, "DB_HardSettingFunctionData"}})},
    };
}

std::vector<Class> ScriptClasses()
{
    return {
        {"DB_ScriptFunctionData",
         "Zt.Plugins.DB_ScriptFunctionData, Plexa",
         false,
         {{"ScriptData", Kind::Text, ""}}},
        {"DB_ScriptStepSet", "Zt.Plugins.DB_ScriptStepSet, Plexa", false,
         StepFields({{"InstallScriptFunctionData", Kind::Child, "DB_ScriptFunctionData"},
                     {"UninstallScriptFunctionData", Kind::Child, "DB_ScriptFunctionData"}})},
    };
}

std::vector<Class> OuterClasses()
{
    return {
        {"DB_StepSets", "Zt.Plugins.DB_StepSets, Plexa", true, {}},
        {"DB_KxUserProject",
         "Zt.Plugins.DB_KxUserProject, Plexa",
         false,
         {{"ModelName", Kind::Text, ""},
          {"OsVersion", Kind::Text, ""},
          {"PackageVersion", Kind::Text, ""},
          {"Title", Kind::Text, ""},
          {"Comment", Kind::Text, ""},
          {"Date", Kind::Text, ""},
          {"DB_StepSets", Kind::Child, "DB_StepSets"}}},
    };
}

/// A value of each JSON type under a name for test names.
struct Sample {
    std::string name;
    value json;
};

std::vector<Sample> Samples()
{
    return {{"text", value("false")},   {"number", value(0.0)},  {"null", value()},
            {"true", value(true)},      {"false", value(false)}, {"array", value(array())},
            {"object", value(object())}};
}

/// Tells whether a field takes a value, as far as its JSON type says.
bool IsTaken(Kind kind, const value& json)
{
    switch (kind) {
    case Kind::Text:
        return json.is<std::string>();
    case Kind::Flag:
        return json.is<bool>();
    case Kind::Child:
        return json.is<object>();
    }
    return false;
}

void Walk(const object& at, const Place& place, std::vector<Place>& places)
{
    places.push_back(place);
    for (const auto& [key, json] : at) {
        Place below = place;
        if (json.is<object>()) {
            below.emplace_back(key);
            Walk(json.get<object>(), below, places);
        }
        if (json.is<array>()) {
            for (std::size_t index = 0; index < json.get<array>().size(); ++index) {
                Place element = place;
                element.emplace_back(index);
                Walk(json.get<array>()[index].get<object>(), element, places);
            }
        }
    }
}

/// A name for @p place: the class there and the way to it.
std::string NameOf(const Class& info, const Place& place)
{
    std::string name = info.name;
    for (const Step& step : place) {
        const auto* const key = std::get_if<std::string>(&step);
        name += "_" + (key != nullptr ? key->substr(0, 7) : std::to_string(std::get<1>(step)));
    }
    return name;
}

const Class& ClassAt(const Place& place)
{
    object document = WholeDocument();
    return ClassOfType(ObjectAt(document, place).at("$type").get<std::string>());
}

std::string InitializedError(const Class& info)
{
    return "Initialized error in " + info.type + " class.";
}

/// What the objects above @p place say when the object there could not be created.
void AppendOuterLines(Place place, std::vector<std::string>& lines)
{
    while (!place.empty()) {
        const Step step = place.back();
        place.pop_back();
        const Class& outer = ClassAt(place);
        if (const auto* const key = std::get_if<std::string>(&step)) {
            lines.push_back(NoField(outer.type, *key));
        }
        lines.push_back(InitializedError(outer));
    }
}

void AddTypeDamages(const Class& info, const Place& place, std::vector<Damage>& damages)
{
    const std::string name = NameOf(info, place) + "_type_";
    const auto add = [&](const std::string& what, const value& json, const std::string& line) {
        damages.push_back(
            {name + what, place, "$type", what == "missing", json, kNoElement, line, true});
    };
    add("missing", value(), "$type is nothing");
    for (const Sample& sample : Samples()) {
        if (!sample.json.is<std::string>()) {
            add(sample.name, sample.json, "$type is nothing");
        }
    }
    add("empty", value(""), "$type is empty");
    const std::string twoBlanks = std::string(info.type).insert(info.type.find(", "), ", ");
    for (const auto& [what, text] : std::vector<std::pair<std::string, std::string>>{
             {"longer", info.type + " "},
             {"shorter", info.type.substr(0, info.type.size() - 1)},
             {"without_assembly", info.type.substr(0, info.type.find(','))},
             {"other_case", "z" + info.type.substr(1)},
             {"two_blanks", twoBlanks}}) {
        add(what, value(text), text + " is unknown class.");
    }
}

void AddFieldDamages(const Class& info, const Place& place, std::vector<Damage>& damages)
{
    for (const Field& field : info.fields) {
        const std::string name = NameOf(info, place) + "_" + field.key + "_";
        const std::string line = NoField(info.type, field.key);
        damages.push_back(
            {name + "missing", place, field.key, true, value(), kNoElement, line, false});
        for (const Sample& sample : Samples()) {
            if (!IsTaken(field.kind, sample.json)) {
                damages.push_back({name + sample.name, place, field.key, false, sample.json,
                                   kNoElement, line, false});
            }
        }
    }
}

void AddListDamages(const Class& info, const Place& place, std::vector<Damage>& damages)
{
    const std::string name = NameOf(info, place) + "_values_";
    const std::string line = "Initialized array error in " + info.type + " class.";
    const std::string key = "$values";
    damages.push_back({name + "missing", place, key, true, value(), kNoElement, line, false});
    for (const Sample& sample : Samples()) {
        if (!sample.json.is<array>()) {
            damages.push_back(
                {name + sample.name, place, key, false, sample.json, kNoElement, line, false});
        }
        if (!sample.json.is<object>()) {
            damages.push_back(
                {name + "first_is_" + sample.name, place, key, false, sample.json, 0, line, false});
        }
    }
}

} // namespace

const std::vector<Class>& Classes()
{
    static const std::vector<Class> classes = [] {
        std::vector<Class> all;
        for (const std::vector<Class>& some :
             {CopyClasses(), HardwareClasses(), ScriptClasses(), OuterClasses()}) {
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }();
    return classes;
}

const Class& ClassNamed(const std::string& name)
{
    for (const Class& info : Classes()) {
        if (info.name == name) {
            return info;
        }
    }
    throw std::out_of_range("no class " + name);
}

const Class& ClassOfType(const std::string& type)
{
    for (const Class& info : Classes()) {
        if (info.type == type) {
            return info;
        }
    }
    throw std::out_of_range("no class of type " + type);
}

object Minimal(const Class& info)
{
    object minimal = {{"$type", value(info.type)}};
    if (info.isList) {
        minimal["$values"] = value(array());
    }
    for (const Field& field : info.fields) {
        switch (field.kind) {
        case Kind::Text:
            minimal[field.key] = value("text");
            break;
        case Kind::Flag:
            minimal[field.key] = value(true);
            break;
        case Kind::Child:
            minimal[field.key] = value(Minimal(ClassNamed(field.expected)));
            break;
        }
    }
    return minimal;
}

object WholeDocument()
{
    using namespace ProjectBuilder;
    return Root({CopyFileStep({CopyItem("bin/viewer", "/opt/viewer", "755")}), ScriptStep("exit 0"),
                 HardwareStep({HardwareConfig("Backlight", {{"Level", "8"}})})});
}

std::vector<Place> PlacesOf(const object& document)
{
    std::vector<Place> places;
    Walk(document, {}, places);
    return places;
}

object& ObjectAt(object& document, const Place& place)
{
    object* at = &document;
    for (const Step& step : place) {
        const auto* const key = std::get_if<std::string>(&step);
        at = key != nullptr ? &ProjectBuilder::Child(*at, *key)
                            : &ProjectBuilder::Element(*at, std::get<std::size_t>(step));
    }
    return *at;
}

std::vector<Damage> AllDamages()
{
    std::vector<Damage> damages;
    for (const Place& place : PlacesOf(WholeDocument())) {
        const Class& info = ClassAt(place);
        AddTypeDamages(info, place, damages);
        AddFieldDamages(info, place, damages);
        if (info.isList) {
            AddListDamages(info, place, damages);
        }
    }
    return damages;
}

object Spoiled(const Damage& damage)
{
    object document = WholeDocument();
    object& at = ObjectAt(document, damage.place);
    if (damage.isRemoved) {
        at.erase(damage.key);
    } else if (damage.element != kNoElement) {
        at.at(damage.key).get<array>().at(damage.element) = damage.value;
    } else {
        at.at(damage.key) = damage.value;
    }
    return document;
}

std::vector<std::string> ChainOf(const Damage& damage)
{
    std::vector<std::string> lines = {damage.firstMessage};
    if (!damage.isObjectLost) {
        lines.push_back(InitializedError(ClassAt(damage.place)));
    }
    AppendOuterLines(damage.place, lines);
    return lines;
}

std::vector<std::string> RootOnlyChainOf(const Damage& damage)
{
    const bool isSeen = damage.place.empty() && damage.key != "DB_StepSets";
    return isSeen ? ChainOf(damage) : std::vector<std::string>();
}

std::string NoField(const std::string& type, const std::string& key)
{
    return "No " + type + "." + key + " field specified in .kx-project .";
}

} // namespace DescriptionTable
