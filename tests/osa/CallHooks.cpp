// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/CallHooks.h"

#include <utility>

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
int __real_mkfifo(const char* path, mode_t mode);
int __wrap_mkfifo(const char* path, mode_t mode);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace
{

CallHooks* currentHooks = nullptr;

} // namespace

void* __wrap_malloc(std::size_t size)
{
    return currentHooks != nullptr ? currentHooks->Malloc(size) : __real_malloc(size);
}

int __wrap_mkfifo(const char* path, mode_t mode)
{
    return currentHooks != nullptr ? currentHooks->Mkfifo(path, mode) : __real_mkfifo(path, mode);
}

CallHooks::CallHooks()
{
    currentHooks = this;
}

CallHooks::~CallHooks()
{
    currentHooks = nullptr;
}

void CallHooks::BeforeMalloc(std::function<void()> action)
{
    m_beforeMalloc = std::move(action);
}

void CallHooks::FailMalloc()
{
    m_isMallocFailing = true;
}

void CallHooks::AfterMkfifo(std::function<void(const std::string& path, mode_t mode)> action)
{
    m_afterMkfifo = std::move(action);
}

void* CallHooks::Malloc(std::size_t size)
{
    if (const auto action = std::exchange(m_beforeMalloc, nullptr); action != nullptr) {
        action();
    }
    return std::exchange(m_isMallocFailing, false) ? nullptr : __real_malloc(size);
}

int CallHooks::Mkfifo(const char* path, mode_t mode)
{
    const int result = __real_mkfifo(path, mode);
    if (m_afterMkfifo != nullptr) {
        m_afterMkfifo(path, mode);
    }
    return result;
}
