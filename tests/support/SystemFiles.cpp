// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/SystemFiles.h"

#include <cstdlib>

namespace
{

SystemFiles* current = nullptr;

} // namespace

int OSA_SystemStat(const char* path, struct stat* info)
{
    return current != nullptr ? current->Stat(path, info) : stat(path, info);
}

std::FILE* OSA_SystemOpen(const char* path, const char* mode)
{
    return current != nullptr ? current->Open(path, mode) : std::fopen(path, mode);
}

int OSA_SystemList(const char* dir, dirent*** entries)
{
    return current != nullptr ? current->List(dir, entries)
                              : scandir(dir, entries, nullptr, alphasort);
}

SystemFiles::SystemFiles()
{
    if (current != nullptr) {
        std::fputs("SystemFiles: a second one\n", stderr);
        std::abort();
    }
    current = this;
}

SystemFiles::~SystemFiles()
{
    current = nullptr;
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
