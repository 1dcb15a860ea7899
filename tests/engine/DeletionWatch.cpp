// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Needs -Wl,--wrap=_ZdlPv -Wl,--wrap=_ZdlPvm: the linker's names of operator delete.
#include "engine/DeletionWatch.h"

#include <cstddef>

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
void __real__ZdlPv(void* block);
void __wrap__ZdlPv(void* block);
void __real__ZdlPvm(void* block, std::size_t size);
void __wrap__ZdlPvm(void* block, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace
{

DeletionWatch* currentWatch = nullptr;

void NoteDeletion(const void* block)
{
    if (currentWatch != nullptr) {
        currentWatch->Note(block);
    }
}

} // namespace

void __wrap__ZdlPv(void* block)
{
    NoteDeletion(block);
    __real__ZdlPv(block);
}

void __wrap__ZdlPvm(void* block, std::size_t size)
{
    NoteDeletion(block);
    __real__ZdlPvm(block, size);
}

DeletionWatch::DeletionWatch(const void* object) : m_object(object)
{
    currentWatch = this;
}

DeletionWatch::~DeletionWatch()
{
    currentWatch = nullptr;
}
