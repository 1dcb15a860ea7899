// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// Takes the place of the clock while it lives: records what the code under test
/// sleeps as "sleep 2" (seconds) and "pause 500000" (microseconds), and returns at once. Without
/// one nobody may sleep: it ends the test binary.
class SleepRecorder
{
public:
    SleepRecorder();
    SleepRecorder(const SleepRecorder&) = delete;
    SleepRecorder& operator=(const SleepRecorder&) = delete;
    ~SleepRecorder();

    [[nodiscard]] const std::vector<std::string>& Calls() const { return m_calls; }

    /// Notes one call of OSA_SystemSleep or OSA_SystemPause, which call it.
    void Note(const char* function, unsigned argument);

private:
    std::vector<std::string> m_calls;
};
