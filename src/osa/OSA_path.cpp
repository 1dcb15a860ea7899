// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The path-string functions of OSA.h.
#include "osa/OSA.h"

namespace
{

bool IsSeparator(char c)
{
    return c == '/' || c == '\\' || c == ':';
}

bool IsDirMark(char c)
{
    return c == '/' || c == '\\';
}

/// Returns the dot that starts the extension of @p path, or null.
const char* FindExtension(const char* path)
{
    const char* separator = path;
    const char* dot = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (IsSeparator(*p)) {
            separator = p;
        } else if (*p == '.') {
            dot = p;
        }
    }
    return separator < dot ? dot : nullptr;
}

} // namespace

const char* OSA_GetFilenameExt(const char* path)
{
    const char* name = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (IsSeparator(*p)) {
            name = p + 1;
        }
    }
    return name;
}

const char* OSA_GetExt(const char* path)
{
    const char* const dot = FindExtension(path);
    return dot != nullptr ? dot : "";
}

std::string OSA_TrimExt(const char* path)
{
    const char* const dot = FindExtension(path);
    return dot != nullptr ? std::string(path, dot) : std::string(path);
}

std::string OSA_GetFilename(const char* path)
{
    return OSA_TrimExt(OSA_GetFilenameExt(path));
}

std::string OSA_TrimDirMark(const char* path)
{
    std::string trimmed(path);
    if (!trimmed.empty() && IsDirMark(trimmed.back())) {
        trimmed.pop_back();
    }
    return trimmed;
}

std::string OSA_AddDirMark(const char* path)
{
    std::string marked(path);
    if (!marked.empty() && !IsDirMark(marked.back())) {
        marked += '/';
    }
    return marked;
}
