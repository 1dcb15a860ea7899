// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// For code under test that runs no command.
#include "osa/OSA_System.h"

#include <cstdlib>

int OSA_SystemRun(const char* /*command*/)
{
    std::abort();
}
