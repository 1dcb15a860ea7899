// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "schema/TomlSchemas.h"

#include "format/Kinds.h"
#include "format/PanelFile.h"
#include "format/Processor.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace kx::tool
{

namespace
{

// What stands between two @ is filled in from the tables of the readers.
constexpr const char* kPanel = R"({
"$schema": "https://json-schema.org/draft/2020-12/schema",
"$id": "urn:kx-updater:panel",
"title": "A model of panel",
"description": "panel.toml: what packages can count on. What is left out is not judged; a list that is there is complete.",
"type": "object",
"additionalProperties": false,
"properties": {
  "format": {"description": "Version of this file's format.", "const": @FORMAT@},
  "models": {"description": "Names of the models that are meant.", "$ref": "#/$defs/names"},
  "os-versions": {"description": "Versions of their system.", "$ref": "#/$defs/names"},
  "processor": {"description": "The processor, or another word for it.", "enum": [@PROCESSORS@]},
  "float-abi": {"description": "Of an arm: hard (armhf) or soft (armel).", "enum": ["hard", "soft"]},
  "c-library": {"description": "Version of the GNU C library.", "type": "string",
    "pattern": "^[0-9]+([0-9.]*[0-9])?$"},
  "root": {"description": "Folder with a copy of the panel's files.", "type": "string",
    "minLength": 1},
  "libraries": {"description": "Names of all shared libraries.", "$ref": "#/$defs/names"},
  "interpreters": {"description": "All interpreters of scripts, and the loader of programs.",
    "$ref": "#/$defs/paths"},
  "shell": {"description": "The program that /bin/sh is.", "enum": [@SHELLS@]},
  "users": {"description": "Users whose passwords a package can change.",
    "$ref": "#/$defs/names"},
  "protected": {"description": "Where a package should write nothing.", "$ref": "#/$defs/paths"},
  "places": {"description": "Places of limited room.", "type": "array", "items": {
    "type": "object", "additionalProperties": false, "required": ["path", "size-mib"],
    "properties": {
      "path": {"description": "The folder.", "$ref": "#/$defs/path"},
      "size-mib": {"description": "How many MiB packages may fill there.", "type": "integer",
        "minimum": 0, "maximum": 1099511627776}}}},
  "settings": {"description": "The names that the setting tool takes.", "type": "object",
    "additionalProperties": {
      "type": "object", "additionalProperties": false, "not": {"required": ["values", "range"]},
      "properties": {
        "values": {"description": "All values that it takes.", "$ref": "#/$defs/texts"},
        "range": {"description": "The least and the most number.", "type": "array",
          "items": {"type": "integer"}, "minItems": 2, "maxItems": 2}}}},
  "signatures": {"description": "On the panel: whether a package must be signed.",
    "enum": ["required", "optional"], "default": "required"},
  "downgrade": {"description": "On the panel: what becomes of an older version.",
    "enum": ["refuse", "allow"], "default": "refuse"},
  "state": {"description": "On the panel: the folder of what is remembered.",
    "$ref": "#/$defs/place", "default": "@STATE@"},
  "updater": {"description": "On the panel: the program that installs.",
    "$ref": "#/$defs/place", "default": "@UPDATER@"},
  "limits": {"description": "On the panel: how much it looks at, takes and remembers.",
    "type": "object", "additionalProperties": false, "properties": {@LIMITS@}}
},
"dependentRequired": {"float-abi": ["processor"]},
"$defs": {
  "texts": {"type": "array", "items": {"type": "string"}, "uniqueItems": true},
  "names": {"type": "array", "items": {"type": "string", "minLength": 1}, "uniqueItems": true},
  "path": {"type": "string", "pattern": "^/"},
  "paths": {"type": "array", "items": {"$ref": "#/$defs/path"}, "uniqueItems": true},
  "place": {"type": "string", "maxLength": @LONGEST@,
    "pattern": "^(?!(@UNKEPT@)(/|$))(/(?!\\.\\.?(/|$))[A-Za-z0-9._-]+)+$"}
}
})";

constexpr const char* kManifest = R"({
"$schema": "https://json-schema.org/draft/2020-12/schema",
"$id": "urn:kx-updater:manifest",
"title": "The manifest of a package",
"description": "package.toml: what is in a package, and what the panel does with it.",
"type": "object",
"additionalProperties": false,
"required": ["package"],
"properties": {
  "package": {
    "type": "object", "additionalProperties": false,
    "anyOf": [{"required": ["processor"]}, {"required": ["updater"]}],
    "if": {"required": ["description-file"]},
    "then": {"properties": {"title": false, "version": false, "comment": false, "model": false,
      "os-version": false, "date": false}},
    "else": {"required": ["title", "version", "model", "os-version"]},
    "properties": {
      "name": {"description": "Of the package's file, without extension.", "type": "string",
        "pattern": "^[A-Za-z0-9_][A-Za-z0-9_.-]*$"},
      "title": {"description": "Shown on the panel.", "type": "string"},
      "version": {"description": "Shown on the panel.", "type": "string"},
      "comment": {"description": "Shown on the panel.", "type": "string"},
      "model": {"description": "The panel's model, for people.", "type": "string"},
      "os-version": {"description": "The version of its system, for people.", "type": "string"},
      "date": {"description": "A date; without it SOURCE_DATE_EPOCH must be set.",
        "type": "string"},
      "processor": {"description": "The panel's processor, or another word for it.",
        "enum": [@PROCESSORS@]},
      "updater": {"description": "The file of the updater to put in.", "type": "string"},
      "timestamp": {"description": "Date and time of everything in the package, with an offset.",
        "type": "string"},
      "extra": {"description": "What is in the package besides.", "$ref": "#/$defs/tree"},
      "description-file": {"description": "A JSON object with title and so on, taken as it is.",
        "type": "string"},
      "panel": {"description": "The file that describes the model of panel.", "type": "string",
        "minLength": 1}}},
  "steps": {"description": "In the order in which the panel executes them.", "type": "array",
    "items": {"type": "object", "required": ["kind"], "oneOf": [
      {"$ref": "#/$defs/copy-files"}, {"$ref": "#/$defs/copy-folder"},
      {"$ref": "#/$defs/script"}, {"$ref": "#/$defs/settings"},
      {"$ref": "#/$defs/verbatim"}]}}
},
"$defs": {
  "comment": {"description": "For people.", "type": "string"},
  "skip": {"description": "What fails is reported and passed over.", "type": "boolean",
    "default": false},
  "record": {"description": "What it creates is listed on the panel.", "type": "boolean",
    "default": true},
  "target": {"description": "Full path on the panel.", "type": "string", "pattern": "^/"},
  "patterns": {"type": "array", "items": {"type": "string"}},
  "modes": {"description": "Modes of single files.", "type": "object",
    "additionalProperties": {"type": "string", "pattern": "^[0-7]{3}$"}},
  "names": {"description": "What files are called in the package.", "type": "object",
    "additionalProperties": {"type": "string", "minLength": 1}},
  "tree": {"type": "object", "additionalProperties": false, "required": ["source"],
    "properties": {
      "source": {"description": "A folder.", "type": "string", "minLength": 1},
      "exclude": {"description": "Patterns of what stays out.", "$ref": "#/$defs/patterns"},
      "executable": {"description": "Patterns of programs.", "$ref": "#/$defs/patterns"},
      "modes": {"$ref": "#/$defs/modes"}, "names": {"$ref": "#/$defs/names"}}},
  "verbatim": {
    "additionalProperties": false, "required": ["description-file"],
    "properties": {
      "kind": {"description": "Is taken as it is.", "const": "verbatim"},
      "description-file": {"description": "The file with the step's JSON object.",
        "type": "string"},
      "payload": {"description": "What is in the package's folder of the step.",
        "$ref": "#/$defs/tree"}}},
  "copy-files": {
    "additionalProperties": false, "required": ["files"],
    "properties": {
      "kind": {"description": "Copies files.", "const": "copy-files"},
      "comment": {"$ref": "#/$defs/comment"}, "skip": {"$ref": "#/$defs/skip"},
      "record": {"$ref": "#/$defs/record"},
      "files": {"type": "array", "minItems": 1, "items": {
        "type": "object", "additionalProperties": false, "required": ["source", "target"],
        "properties": {
          "source": {"description": "A file, or a pattern.", "type": "string", "minLength": 1},
          "target": {"$ref": "#/$defs/target"},
          "mode": {"description": "Three or four octal digits.", "type": "string",
            "pattern": "^[0-7]{3,4}$", "default": "644"},
          "origin": {"description": "What the description says instead of the source.",
            "type": "string"}}}}}},
  "copy-folder": {
    "additionalProperties": false, "required": ["folders"],
    "if": {"required": ["fast"], "properties": {"fast": {"const": true}}},
    "else": {"properties": {"folders": {"items": {"properties": {"archive": false}}}}},
    "properties": {
      "kind": {"description": "Copies everything in a folder.", "const": "copy-folder"},
      "comment": {"$ref": "#/$defs/comment"}, "skip": {"$ref": "#/$defs/skip"},
      "record": {"$ref": "#/$defs/record"},
      "fast": {"description": "The files travel in one archive; a script unpacks them.",
        "type": "boolean", "default": false},
      "folders": {"type": "array", "minItems": 1, "items": {
        "type": "object", "additionalProperties": false, "required": ["source", "target"],
        "properties": {
          "source": {"description": "A folder.", "type": "string", "minLength": 1},
          "target": {"$ref": "#/$defs/target"},
          "archive": {"description": "Of a fast step: the archive's full path on the panel.",
            "type": "string", "pattern": "^/.*[^/]$"},
          "exclude": {"description": "Patterns of what stays out.", "$ref": "#/$defs/patterns"},
          "executable": {"description": "Patterns of programs.",
            "$ref": "#/$defs/patterns"},
          "modes": {"$ref": "#/$defs/modes"}, "names": {"$ref": "#/$defs/names"},
          "origin": {"description": "What the description says instead of the source.",
            "type": "string"}}}}}},
  "script": {
    "additionalProperties": false,
    "oneOf": [{"required": ["install"]}, {"required": ["install-file"]}],
    "not": {"required": ["uninstall", "uninstall-file"]},
    "properties": {
      "kind": {"description": "Runs a script on the panel, as root.", "const": "script"},
      "comment": {"$ref": "#/$defs/comment"}, "skip": {"$ref": "#/$defs/skip"},
      "install": {"description": "The script's text.", "type": "string"},
      "install-file": {"description": "The script's file.", "type": "string"},
      "uninstall": {"description": "The text of its counterpart.", "type": "string"},
      "uninstall-file": {"description": "The file of its counterpart.", "type": "string"}}},
  "settings": {
    "additionalProperties": false, "required": ["settings"],
    "properties": {
      "kind": {"description": "Changes settings.", "const": "settings"},
      "comment": {"$ref": "#/$defs/comment"}, "skip": {"$ref": "#/$defs/skip"},
      "settings": {"type": "array", "minItems": 1, "items": {
        "type": "object", "additionalProperties": false, "required": ["kind"],
        "not": {"required": ["script", "script-file"]},
        "if": {"anyOf": [{"required": ["script"]}, {"required": ["script-file"]}]},
        "then": {"properties": {"kind": {"const": "auto-start"}}},
        "properties": {
          "kind": {"description": "What is changed.", "enum": [@SETTINGS@]},
          "used": {"description": "A setting that is not used is passed over.",
            "type": "boolean", "default": true},
          "values": {"description": "Names and values, handed over in this order.",
            "type": "object", "additionalProperties": {"type": "string"}},
          "script": {"description": "The start-up script's text.", "type": "string"},
          "script-file": {"description": "The start-up script's file.", "type": "string"}}}}}}
}
})";

std::string QuotedList(const std::vector<std::string>& words)
{
    std::string list;
    for (const std::string& word : words) {
        list += (list.empty() ? "\"" : ", \"") + word + "\"";
    }
    return list;
}

/// The names of the processors, and the other words for them.
std::vector<std::string> ProcessorWords()
{
    std::vector<std::string> words;
    for (const format::Processor& processor : format::Processors()) {
        words.emplace_back(processor.name);
        words.insert(words.end(), processor.aliases.begin(), processor.aliases.end());
    }
    return words;
}

/// The keys of the panel's limits, as a schema's properties.
std::string LimitProperties()
{
    std::string properties;
    for (const format::PanelLimit& limit : format::PanelLimitKeys()) {
        properties += properties.empty() ? "\"" : ", \"";
        properties += limit.key;
        properties += R"(": {"description": ")";
        properties += limit.about;
        properties += R"(", "type": "integer", "minimum": )" + std::to_string(limit.least) +
                      ", \"maximum\": " + std::to_string(limit.most) +
                      ", \"default\": " + std::to_string(format::PanelLimits().*limit.value) + "}";
    }
    return properties;
}

/// The folders of which none may hold what a panel keeps, as alternatives of a pattern.
std::string UnkeptAlternatives()
{
    std::string alternatives;
    for (const std::string& folder : format::UnkeptFolders()) {
        alternatives += (alternatives.empty() ? "" : "|") + folder;
    }
    return alternatives;
}

void Fill(std::string& text, const std::string& mark, const std::string& words)
{
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at)) {
        text.replace(at, mark.size(), words);
    }
}

picojson::value Made(std::string text)
{
    Fill(text, "@FORMAT@", std::to_string(format::kPanelFormat));
    Fill(text, "@PROCESSORS@", QuotedList(ProcessorWords()));
    Fill(text, "@SHELLS@", QuotedList(format::PanelShells()));
    Fill(text, "@SETTINGS@", QuotedList(format::NamesOf(format::SettingKinds())));
    Fill(text, "@STATE@", format::PanelRules().state);
    Fill(text, "@UPDATER@", format::PanelRules().updater);
    Fill(text, "@LIMITS@", LimitProperties());
    Fill(text, "@LONGEST@", std::to_string(format::kLongestPanelPath));
    Fill(text, "@UNKEPT@", UnkeptAlternatives());
    picojson::value schema;
    if (const std::string error = picojson::parse(schema, text); !error.empty()) {
        throw std::logic_error("a schema of this program is no JSON: " + error);
    }
    return schema;
}

} // namespace

picojson::value MakePanelSchema()
{
    return Made(kPanel);
}

picojson::value MakeManifestSchema()
{
    return Made(kManifest);
}

} // namespace kx::tool
