// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

/// Watches `realloc` while it lives, in a test binary linked with -Wl,--wrap=realloc and
/// ReallocRecorder.cpp: keeps the sizes asked for, and plays a machine without memory.
class ReallocRecorder
{
public:
    ReallocRecorder();
    ReallocRecorder(const ReallocRecorder&) = delete;
    ReallocRecorder& operator=(const ReallocRecorder&) = delete;
    ~ReallocRecorder();

    /// Lets the next call fail.
    void FailNext() { m_isNextFailing = true; }

    [[nodiscard]] const std::vector<std::size_t>& Sizes() const { return m_sizes; }

    /// Plays `realloc`; called by its replacement.
    void* Reallocate(void* block, std::size_t size);

private:
    std::vector<std::size_t> m_sizes;
    bool m_isNextFailing = false;
};
