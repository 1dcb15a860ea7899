// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The machine itself, for the updater.
#include "osa/OSA_System.h"

#include <cstdlib>

#include <unistd.h>

int OSA_SystemRun(const char* command)
{
    return std::system(command);
}

int OSA_SystemStat(const char* path, struct stat* info)
{
    return stat(path, info);
}

std::FILE* OSA_SystemOpen(const char* path, const char* mode)
{
    return std::fopen(path, mode);
}

int OSA_SystemList(const char* dir, dirent*** entries)
{
    return scandir(dir, entries, nullptr, alphasort);
}

void OSA_SystemSleep(unsigned seconds)
{
    static_cast<void>(sleep(seconds));
}

void OSA_SystemPause(unsigned microseconds)
{
    static_cast<void>(usleep(microseconds));
}
