// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "schema/Schema.h"

#include "format/Classes.h"
#include "format/Kinds.h"
#include "model/DB_Hardware.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"
#include "schema/FieldTexts.h"

#include <string>

namespace kx::tool
{

namespace
{

using Object = picojson::object;

picojson::value Text(const std::string& text)
{
    return picojson::value(text);
}

picojson::value Made(Object object)
{
    return picojson::value(std::move(object));
}

/// "Zt.Plugins.DB_StepSets, Plexa" is DB_StepSets for people.
std::string ShortName(const ClassInfo& info)
{
    const std::string type = info.type;
    const std::string whole = type.substr(0, type.find(','));
    return whole.substr(whole.rfind('.') + 1);
}

std::string ReferenceTo(const ClassInfo& info)
{
    return "#/$defs/" + ShortName(info);
}

Object TypeOnly(const ClassInfo& info)
{
    return {{format::kTypeKey, Made({{"const", Text(info.type)}})}};
}

/// Tells whether a field, of the table of the class Owner, is the member.
template <class Owner, class Member>
bool IsMember(const FieldInfo& field, Member Owner::*member)
{
    return field.member == FieldMember(static_cast<Member IPicoJ::*>(member));
}

/// Adds the kinds that a field names, with the words that people use for them.
template <class Kind>
void AddKind(const Kind& kind, picojson::array& ids, std::string& names)
{
    ids.push_back(Text(kind.id));
    names += (names.empty() ? "" : ", ") + std::string(kind.name);
}

/// Restricts a field that names a kind to those that there are.
/// @return false for every other field
bool RestrictKinds(const ClassInfo& info, const ClassInfo& table, const FieldInfo& field,
                   Object& schema)
{
    picojson::array ids;
    std::string names;
    if (&table == &DB_StepSet::kBaseInfo && IsMember(field, &DB_StepSet::SS_StepSetId)) {
        for (const format::StepKind* const kind : format::StepKinds()) {
            if (kind->info == &info) {
                AddKind(*kind, ids, names);
            }
        }
    } else if (&table == &DB_HardwareConfig::kInfo &&
               IsMember(field, &DB_HardwareConfig::ConfigId)) {
        for (const format::SettingKind* const kind : format::SettingKinds()) {
            AddKind(*kind, ids, names);
        }
    } else {
        return false;
    }
    schema["enum"] = picojson::value(ids);
    schema["description"] =
        Text(schema["description"].get<std::string>() + " In this order: " + names + ".");
    return true;
}

/// @param info   class of the object
/// @param table  class in whose own table the field stands: @p info or its base
picojson::value FieldSchema(const ClassInfo& info, const ClassInfo& table, const FieldInfo& field)
{
    Object schema;
    if (const FieldText* const text = TextOf(table, field); text != nullptr) {
        schema["title"] = Text(text->title);
        schema["description"] = Text(text->description);
    }
    if (field.expected != nullptr) {
        schema["$ref"] = Text(ReferenceTo(*field.expected));
        return Made(schema);
    }
    if (!RestrictKinds(info, table, field, schema)) {
        const bool isFlag = std::holds_alternative<bool IPicoJ::*>(field.member);
        schema["type"] = Text(isFlag ? "boolean" : "string");
    }
    return Made(schema);
}

void AddFields(const ClassInfo& info, const ClassInfo& table, Object& properties,
               picojson::array& required)
{
    for (const FieldInfo& field : table.fields) {
        properties[field.key] = FieldSchema(info, table, field);
        required.push_back(Text(field.key));
    }
}

/// What an element of a list must be. The class is looked at first, so that a mistake in an element
/// is told as what it is in that class, not as "none of these classes".
picojson::value ElementSchema(const ClassInfo& info)
{
    if (info.elements.size == 1) {
        return Made({{"$ref", Text(ReferenceTo(**info.elements.begin()))}});
    }
    const picojson::value hasType(picojson::array{Text(format::kTypeKey)});
    picojson::array types;
    picojson::array choices;
    for (const ClassInfo* const element : info.elements) {
        types.push_back(Text(element->type));
        choices.push_back(Made({
            {"if", Made({{"type", Text("object")},
                         {"required", hasType},
                         {"properties", Made(TypeOnly(*element))}})},
            {"then", Made({{"$ref", Text(ReferenceTo(*element))}})},
        }));
    }
    return Made({
        {"type", Text("object")},
        {"required", hasType},
        {"properties", Made({{format::kTypeKey, Made({{"enum", picojson::value(types)}})}})},
        {"allOf", picojson::value(choices)},
    });
}

picojson::value ClassSchema(const ClassInfo& info)
{
    Object properties = TypeOnly(info);
    picojson::array required = {Text(format::kTypeKey)};
    if (info.base != nullptr) {
        AddFields(info, *info.base, properties, required);
    }
    AddFields(info, info, properties, required);
    if (info.IsList()) {
        properties[kValuesKey] = Made({
            {"type", Text("array")},
            {"items", ElementSchema(info)},
        });
        required.push_back(Text(kValuesKey));
    }
    Object schema = {
        {"type", Text("object")},
        {"properties", Made(properties)},
        {"required", picojson::value(required)},
    };
    if (const ClassText* const text = TextOf(info); text != nullptr) {
        schema["title"] = Text(text->title);
        schema["description"] = Text(text->description);
    }
    return Made(schema);
}

} // namespace

picojson::value MakeSchema()
{
    Object classes;
    for (const ClassInfo* const info : format::AllClasses()) {
        classes[ShortName(*info)] = ClassSchema(*info);
    }
    return Made({
        {"$schema", Text("https://json-schema.org/draft/2020-12/schema")},
        {"$id", Text("urn:kx-updater:package-description")},
        {"title", Text("Package description of kx_Updater")},
        {"description", Text("The JSON of UserPackage.kx-project, without the byte order mark that "
                             "the file begins with.")},
        {"$ref", Text(ReferenceTo(DB_KxUserProject::kInfo))},
        {"$defs", Made(classes)},
    });
}

} // namespace kx::tool
