// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

/// Root of the classes that a multi-threaded build of the OS layer could guard. Each process of
/// the updater has one thread, so it holds nothing and offers no operation.
class OSA_Mutex
{
public:
    OSA_Mutex() = default;
    OSA_Mutex(const OSA_Mutex&) = delete;
    OSA_Mutex& operator=(const OSA_Mutex&) = delete;
    virtual ~OSA_Mutex() = default;
};
