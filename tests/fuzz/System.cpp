// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What the code under test asks of the system (osa/OSA_System.h), but for commands: files are the
// machine's, what is written leads nowhere, and no time passes.
#include "osa/OSA_System.h"

#include <cstdlib>

extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name for a wrapped function
int __wrap_system(const char* command);

// The last guard: nothing may get past OSA_SystemRun to the machine's shell.
int __wrap_system(const char* /*command*/)
{
    std::abort();
}
}

int OSA_SystemStat(const char* path, struct stat* info)
{
    return stat(path, info);
}

std::FILE* OSA_SystemOpen(const char* path, const char* mode)
{
    return std::fopen(*mode == 'w' ? "/dev/null" : path, mode);
}

int OSA_SystemList(const char* dir, dirent*** entries)
{
    return scandir(dir, entries, nullptr, alphasort);
}

void OSA_SystemSleep(unsigned /*seconds*/) {}

void OSA_SystemPause(unsigned /*microseconds*/) {}
