// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include <sys/types.h>

/// Takes the place of single calls of the C library while it lives, so that a test can let a file
/// change at the moment between two steps of a function. One lives at a time; without one the
/// calls are what they always are.
class CallHooks
{
public:
    CallHooks();
    CallHooks(const CallHooks&) = delete;
    CallHooks& operator=(const CallHooks&) = delete;
    ~CallHooks();

    /// Calls @p action before the next `malloc` and only then.
    void BeforeMalloc(std::function<void()> action);

    /// Lets the next `malloc`, and only that, find no memory.
    void FailMalloc();

    /// Calls @p action after each `mkfifo`, with its arguments.
    void AfterMkfifo(std::function<void(const std::string& path, mode_t mode)> action);

    /// Play the calls; used by the replacements.
    void* Malloc(std::size_t size);
    int Mkfifo(const char* path, mode_t mode);

private:
    std::function<void()> m_beforeMalloc;
    bool m_isMallocFailing = false;
    std::function<void(const std::string& path, mode_t mode)> m_afterMkfifo;
};
