// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/JsonDocument.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace kx::cli
{

namespace
{

using Object = picojson::object;

picojson::value WordsAsJson(const std::vector<std::string>& words)
{
    picojson::array all;
    for (const std::string& word : words) {
        all.push_back(picojson::value(word));
    }
    return picojson::value(all);
}

std::vector<std::string> Split(const std::string& words)
{
    std::vector<std::string> parts;
    std::string_view rest = words;
    while (!rest.empty()) {
        const std::size_t bar = std::min(rest.find('|'), rest.size());
        parts.emplace_back(rest.substr(0, bar));
        rest.remove_prefix(std::min(bar + 1, rest.size()));
    }
    return parts;
}

Object WholeNumber(double least)
{
    return {{"type", picojson::value("integer")}, {"minimum", picojson::value(least)}};
}

/// The program's own words.
using Words = std::map<std::string, Object>;

Object SchemaOfWord(const std::string& word, const Words& words)
{
    if (const auto own = words.find(word); own != words.end()) {
        return own->second;
    }
    if (word == "text") {
        return {{"type", picojson::value("string")}};
    }
    if (word == "flag") {
        return {{"type", picojson::value("boolean")}};
    }
    if (word == "count") {
        return WholeNumber(0);
    }
    if (word == "number") {
        return WholeNumber(1);
    }
    if (word == "status") {
        return {{"type", picojson::value("integer")}};
    }
    if (word == "exitCode") {
        return {{"enum", picojson::value(picojson::array{picojson::value(1.0), picojson::value(2.0),
                                                         picojson::value(3.0)})}};
    }
    return word.find('|') != std::string::npos
               ? OneOfWords(Split(word))
               : Object{{"$ref", picojson::value("#/$defs/" + word)}};
}

Object SchemaOfType(const std::string& type, const Words& words)
{
    const std::string inner = type.size() < 2 ? "" : type.substr(1, type.size() - 2);
    if (type.back() == '?') {
        const Object null = {{"type", picojson::value("null")}};
        return {{"anyOf", picojson::value(picojson::array{
                              picojson::value(SchemaOfType(type.substr(0, type.size() - 1), words)),
                              picojson::value(null)})}};
    }
    if (type.front() == '[') {
        return {{"type", picojson::value("array")},
                {"items", picojson::value(SchemaOfType(inner, words))}};
    }
    if (type.front() == '{') {
        return {{"type", picojson::value("object")},
                {"additionalProperties", picojson::value(SchemaOfType(inner, words))}};
    }
    return SchemaOfWord(type, words);
}

picojson::value SchemaOfShape(const Shape& shape, bool isRoot, const Words& words)
{
    Object properties;
    std::vector<std::string> required;
    if (isRoot) {
        properties["formatVersion"] = picojson::value(
            Object{{"const", picojson::value(1.0)},
                   {"description",
                    picojson::value("Another one when a field goes or means something else.")}});
        required.emplace_back("formatVersion");
    }
    for (const Field& field : shape.fields) {
        std::string name = field.name;
        if (name.back() == '?') {
            name.pop_back();
        } else {
            required.push_back(name);
        }
        Object schema = SchemaOfType(field.type, words);
        schema["description"] = picojson::value(field.description);
        properties[name] = picojson::value(schema);
    }
    return picojson::value(Object{{"type", picojson::value("object")},
                                  {"additionalProperties", picojson::value(false)},
                                  {"required", WordsAsJson(required)},
                                  {"properties", picojson::value(properties)}});
}

bool IsRoot(const Document& document, const std::string& shape)
{
    return std::find(document.roots.begin(), document.roots.end(), shape) != document.roots.end();
}

} // namespace

Fields operator+(Fields one, const Fields& other)
{
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

Document ErrorDocument()
{
    const Fields error = {{"code", "exitCode", "The exit status."},
                          {"place", "text", "A file, with line and column where known; or empty."},
                          {"message", "text", "What is wrong."},
                          {"remedy", "text", "What to do about it; or empty."}};
    return {"error",
            "Why a command could not do its work, whichever it was.",
            {"whole"},
            {{"whole",
              {{"error", "error", "The one that the exit status is of."},
               {"errors?", "[error]", "All of them, where there are several."}}},
             {"error", error}}};
}

std::vector<std::string> NamesOf(const std::vector<Document>& documents)
{
    std::vector<std::string> names;
    names.reserve(documents.size());
    for (const Document& document : documents) {
        names.push_back(document.name);
    }
    return names;
}

picojson::object OneOfWords(const std::vector<std::string>& words)
{
    return {{"enum", WordsAsJson(words)}};
}

picojson::value MakeDocumentSchema(const std::vector<Document>& documents, const std::string& name,
                                   const DocumentOwner& owner)
{
    for (const Document& document : documents) {
        if (document.name != name) {
            continue;
        }
        Object shapes;
        for (const Shape& shape : document.shapes) {
            shapes[shape.name] = SchemaOfShape(shape, IsRoot(document, shape.name), owner.words);
        }
        picojson::array roots;
        for (const std::string& root : document.roots) {
            roots.emplace_back(Object{{"$ref", picojson::value("#/$defs/" + root)}});
        }
        return picojson::value(
            Object{{"$schema", picojson::value("https://json-schema.org/draft/2020-12/schema")},
                   {"$id", picojson::value("urn:kx-updater:" + owner.prefix + name)},
                   {"title", picojson::value("JSON of " + owner.program + ": " + name)},
                   {"description", picojson::value(document.description)},
                   {"anyOf", picojson::value(roots)},
                   {"$defs", picojson::value(shapes)}});
    }
    throw std::logic_error("there is no JSON document of the name " + name);
}

} // namespace kx::cli
