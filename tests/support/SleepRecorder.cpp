// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/SleepRecorder.h"

#include "osa/OSA_System.h"

#include <cstdio>
#include <cstdlib>

namespace
{

SleepRecorder* currentSleep = nullptr;

void Note(const char* function, unsigned argument)
{
    if (currentSleep == nullptr) {
        std::fprintf(stderr, "SleepRecorder: outside the life of a recorder: %s %u\n", function,
                     argument);
        std::abort();
    }
    currentSleep->Note(function, argument);
}

} // namespace

void OSA_SystemSleep(unsigned seconds)
{
    Note("sleep", seconds);
}

void OSA_SystemPause(unsigned microseconds)
{
    Note("pause", microseconds);
}

SleepRecorder::SleepRecorder()
{
    currentSleep = this;
}

SleepRecorder::~SleepRecorder()
{
    currentSleep = nullptr;
}

void SleepRecorder::Note(const char* function, unsigned argument)
{
    m_calls.push_back(std::string(function) + " " + std::to_string(argument));
}
