// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/SystemFiles.h"

#include <cstdlib>

namespace
{

SystemFiles* currentFiles = nullptr;

} // namespace

int OSA_SystemStat(const char* path, struct stat* info)
{
    return currentFiles != nullptr ? currentFiles->Stat(path, info) : stat(path, info);
}

std::FILE* OSA_SystemOpen(const char* path, const char* mode)
{
    return currentFiles != nullptr ? currentFiles->Open(path, mode) : std::fopen(path, mode);
}

int OSA_SystemList(const char* dir, dirent*** entries)
{
    return currentFiles != nullptr ? currentFiles->List(dir, entries)
                                   : scandir(dir, entries, nullptr, alphasort);
}

SystemFiles::SystemFiles()
{
    if (currentFiles != nullptr) {
        std::fputs("SystemFiles: a second one\n", stderr);
        std::abort();
    }
    currentFiles = this;
}

SystemFiles::~SystemFiles()
{
    currentFiles = nullptr;
}

int SystemFiles::Stat(const char* path, struct stat* info)
{
    return stat(path, info);
}

std::FILE* SystemFiles::Open(const char* path, const char* mode)
{
    return std::fopen(path, mode);
}

int SystemFiles::List(const char* dir, dirent*** entries)
{
    return scandir(dir, entries, nullptr, alphasort);
}
