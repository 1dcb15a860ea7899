// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Needs -Wl,--wrap=_ZdlPv and the same for KX_SIZED_DELETE: the linker's names of operator delete,
// the second of which ends with the letter of std::size_t.
#include "engine/DeletionWatch.h"

#include <cstddef>

#define KX_JOINED(beginning, end) beginning##end
#define KX_NAME(beginning, end) KX_JOINED(beginning, end)
#define KX_REAL_SIZED_DELETE KX_NAME(__real_, KX_SIZED_DELETE)
#define KX_WRAPPED_SIZED_DELETE KX_NAME(__wrap_, KX_SIZED_DELETE)

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
void __real__ZdlPv(void* block);
void __wrap__ZdlPv(void* block);
void KX_REAL_SIZED_DELETE(void* block, std::size_t size);
void KX_WRAPPED_SIZED_DELETE(void* block, std::size_t size);
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

void KX_WRAPPED_SIZED_DELETE(void* block, std::size_t size)
{
    NoteDeletion(block);
    KX_REAL_SIZED_DELETE(block, size);
}

DeletionWatch::DeletionWatch(const void* object) : m_object(object)
{
    currentWatch = this;
}

DeletionWatch::~DeletionWatch()
{
    currentWatch = nullptr;
}
