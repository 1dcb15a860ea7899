// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/UserPackageProjectReader.h"

#include "engine/ILogger.h"
#include "engine/q_UpdaterEngine.h"
#include "model/DB_KxUserProject.h"
#include "osa/OSA.h"

#include <picojson.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

namespace
{

constexpr int kByteOrderMarkSize = 3;

/// Objects and lists, one in another, that a description may hold. Reading this many takes less
/// than 1 MiB of stack, 512 KiB optimised; the format itself needs 11.
constexpr int kDeepestNesting = 1000;

/// A file buffer that frees its block on every way out.
struct FileText : SefetyTextBuffer {
    FileText() = default;
    FileText(const FileText&) = delete;
    FileText& operator=(const FileText&) = delete;
    ~FileText() { std::free(data); }
};

/// Returns the text behind the JSON string that starts at @p text with its quotation mark.
const char* SkipString(const char* text)
{
    for (++text; *text != '\0' && *text != '"'; ++text) {
        if (*text == '\\' && text[1] != '\0') {
            ++text;
        }
    }
    return *text == '"' ? text + 1 : text;
}

/// Tells whether the first JSON value of @p text is nested deeper than kDeepestNesting. The JSON
/// library counts the lists only, and objects without a limit would end in a stack overflow.
bool IsNestedTooDeep(const char* text)
{
    text += std::strspn(text, " \t\r\n");
    if (*text != '{' && *text != '[') {
        return false;
    }
    int depth = 0;
    while (*text != '\0') {
        const char c = *text;
        text = c == '"' ? SkipString(text) : text + 1;
        if ((c == '{' || c == '[') && ++depth > kDeepestNesting) {
            return true;
        }
        if ((c == '}' || c == ']') && --depth == 0) {
            return false;
        }
    }
    return false;
}

/// Parses the first JSON value of @p text; what follows it is ignored.
/// @return false when the text is no JSON, is nested too deep, or holds what the JSON library
///         refuses: a number out of range
bool ParseJson(const char* text, picojson::value& root)
{
    if (IsNestedTooDeep(text)) {
        return false;
    }
    try {
        std::string error;
        picojson::parse(root, text, text + std::strlen(text), &error);
        return error.empty();
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace

IPicoJ* UserPackageProjectReader::Imp_Read(const char* path)
{
    ILogger* const log = q_UpdaterEngine::SysLogger;
    FileText file;
    if (OSA_ReadTextFile(path, file) != 0) {
        log->OutLine("Unable to access %s file.", path);
        return nullptr;
    }
    if (static_cast<int>(file.size) <= kByteOrderMarkSize + 1) {
        log->OutLine("%s file is corrupted.", path);
        return nullptr;
    }
    picojson::value root;
    if (!ParseJson(file.data + kByteOrderMarkSize, root)) {
        log->OutLine(" Unable to analyze the data in %s file.", path);
        return nullptr;
    }
    std::unique_ptr<IPicoJ> project(
        q_UpdaterEngine::CreatePicoJObject(root.get<picojson::object>()));
    if (project == nullptr ||
        std::strcmp(project->ClassType(), DB_KxUserProject::kInfo.type) != 0) {
        log->OutLine("%s file is not kx-package.\n"
                     " Root object of this file is not DB_KxUserProject.",
                     path);
        return nullptr;
    }
    return project.release();
}
