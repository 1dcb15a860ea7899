// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "policy/Guarded.h"

#include "policy/GuardedFiles.h"

namespace kx::guard
{

void RefuseUnguarded(const std::string& path, GuardedKind kind)
{
    GuardedFiles().RefuseUnguarded(path, kind);
}

std::string ReadGuarded(const std::string& path, std::uint64_t limit)
{
    return GuardedFiles().Read(path, limit);
}

} // namespace kx::guard
