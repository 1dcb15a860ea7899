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
#include <memory>

namespace
{

constexpr int kByteOrderMarkSize = 3;

/// A file buffer that frees its block on every way out.
struct FileText : SefetyTextBuffer {
    FileText() = default;
    FileText(const FileText&) = delete;
    FileText& operator=(const FileText&) = delete;
    ~FileText() { std::free(data); }
};

/// Parses the first JSON value of @p text; what follows it is ignored.
/// @return false when the text is no JSON, or holds what the JSON library refuses: a number out
///         of range, values nested too deep
bool ParseJson(const char* text, picojson::value& root)
{
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
