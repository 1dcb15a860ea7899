// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/ReallocRecorder.h"

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace
{

ReallocRecorder* currentRecorder = nullptr;

} // namespace

void* __wrap_realloc(void* block, std::size_t size)
{
    return currentRecorder != nullptr ? currentRecorder->Reallocate(block, size)
                                      : __real_realloc(block, size);
}

ReallocRecorder::ReallocRecorder()
{
    currentRecorder = this;
}

ReallocRecorder::~ReallocRecorder()
{
    currentRecorder = nullptr;
}

void* ReallocRecorder::Reallocate(void* block, std::size_t size)
{
    m_sizes.push_back(size);
    if (m_isNextFailing) {
        m_isNextFailing = false;
        return nullptr;
    }
    return __real_realloc(block, size);
}
