// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The last guard of test binaries without a ShellRecorder: nothing gets to the machine's shell.
#include <cstdio>
#include <cstdlib>

extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name for a wrapped function
int __wrap_system(const char* command);

int __wrap_system(const char* command)
{
    std::fprintf(stderr, "NoShell: %s\n", command);
    std::abort();
}
}
