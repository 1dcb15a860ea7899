// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

/// Ends the test binary by SIGALRM when the object lives longer than some seconds: for what would
/// otherwise be waited for, or tried again, without end.
class Deadline
{
public:
    Deadline() { alarm(kSeconds); }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
    ~Deadline() { alarm(0); }

private:
    static constexpr unsigned kSeconds = 30; ///< far more than a busy machine needs
};
