// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"

#include <fcntl.h>

namespace kx::io
{

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for wrapped calls
extern "C" {
int __real_fsync(int descriptor);
int __wrap_fsync(int descriptor);
int __real_syncfs(int descriptor);
int __wrap_syncfs(int descriptor);
int __real_rename(const char* old, const char* path);
int __wrap_rename(const char* old, const char* path);
int __real_renameat(int from, const char* old, int to, const char* path);
int __wrap_renameat(int from, const char* old, int to, const char* path);
}

int __wrap_fsync(int descriptor)
{
    Placing::Note("sync", descriptor);
    return TakeFault(Call::kSync) ? __real_fsync(descriptor) : -1;
}

int __wrap_syncfs(int descriptor)
{
    Placing::Note("sync all of", descriptor);
    return TakeFault(Call::kSyncAll) ? __real_syncfs(descriptor) : -1;
}

int __wrap_rename(const char* old, const char* path)
{
    Placing::Note("name", AT_FDCWD, path);
    return TakeFault(Call::kRename) ? __real_rename(old, path) : -1;
}

int __wrap_renameat(int from, const char* old, int to, const char* path)
{
    Placing::Note("name", to, path);
    return TakeFault(Call::kRename) ? __real_renameat(from, old, to, path) : -1;
}
// NOLINTEND(bugprone-reserved-identifier)

} // namespace kx::io
