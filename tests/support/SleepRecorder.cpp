// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/SleepRecorder.h"

#include <unistd.h>

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds);
int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace
{

SleepRecorder* current = nullptr;

} // namespace

unsigned __wrap_sleep(unsigned seconds)
{
    if (current == nullptr) {
        return __real_sleep(seconds);
    }
    current->Note("sleep", seconds);
    return 0;
}

int __wrap_usleep(useconds_t microseconds)
{
    if (current == nullptr) {
        return __real_usleep(microseconds);
    }
    current->Note("usleep", microseconds);
    return 0;
}

SleepRecorder::SleepRecorder()
{
    current = this;
}

SleepRecorder::~SleepRecorder()
{
    current = nullptr;
}

void SleepRecorder::Note(const char* function, unsigned argument)
{
    m_calls.push_back(std::string(function) + " " + std::to_string(argument));
}
