// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// Takes the place of the clock while it lives: records calls of `sleep` and `usleep` as
/// "sleep 2" and "usleep 500000", and returns at once. Without one the calls sleep for real.
class SleepRecorder
{
public:
    SleepRecorder();
    SleepRecorder(const SleepRecorder&) = delete;
    SleepRecorder& operator=(const SleepRecorder&) = delete;
    ~SleepRecorder();

    [[nodiscard]] const std::vector<std::string>& Calls() const { return m_calls; }

    /// Notes one call; used by the replacements.
    void Note(const char* function, unsigned argument);

private:
    std::vector<std::string> m_calls;
};
