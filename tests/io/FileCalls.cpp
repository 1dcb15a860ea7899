// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"

#include <cstdarg>

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/types.h>

namespace kx::io
{

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for wrapped calls
extern "C" {
int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...);
int __real_openat64(int folder, const char* path, int flags, ...);
int __wrap_openat64(int folder, const char* path, int flags, ...);
ssize_t __real_read(int descriptor, void* bytes, size_t size);
ssize_t __wrap_read(int descriptor, void* bytes, size_t size);
ssize_t __real_pread64(int descriptor, void* bytes, size_t size, off_t offset);
ssize_t __wrap_pread64(int descriptor, void* bytes, size_t size, off_t offset);
ssize_t __real_write(int descriptor, const void* bytes, size_t size);
ssize_t __wrap_write(int descriptor, const void* bytes, size_t size);
int __real_linkat(int from, const char* old, int to, const char* path, int flags);
int __wrap_linkat(int from, const char* old, int to, const char* path, int flags);
long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...);
dirent64* __real_readdir64(DIR* folder);
dirent64* __wrap_readdir64(DIR* folder);
}

int __wrap_open64(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    const bool isNameless = (flags & O_TMPFILE) == O_TMPFILE;
    return TakeFault(isNameless ? Call::kOpenNameless : Call::kOpen)
               ? __real_open64(path, flags, mode)
               : -1;
}

// No file is made by it.
int __wrap_openat64(int folder, const char* path, int flags, ...)
{
    return TakeFault(Call::kOpenAt) ? __real_openat64(folder, path, flags) : -1;
}

ssize_t __wrap_read(int descriptor, void* bytes, size_t size)
{
    return TakeFault(Call::kRead, size) ? __real_read(descriptor, bytes, size) : -1;
}

ssize_t __wrap_pread64(int descriptor, void* bytes, size_t size, off_t offset)
{
    return TakeFault(Call::kReadAt, size) ? __real_pread64(descriptor, bytes, size, offset) : -1;
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t size)
{
    return TakeFault(Call::kWrite, size) ? __real_write(descriptor, bytes, size) : -1;
}

int __wrap_linkat(int from, const char* old, int to, const char* path, int flags)
{
    return TakeFault(Call::kLink) ? __real_linkat(from, old, to, path, flags) : -1;
}

// Only openat2 is called by its number.
long __wrap_syscall(long number, ...)
{
    va_list args;
    va_start(args, number);
    const int folder = va_arg(args, int);
    const char* const path = va_arg(args, const char*);
    const void* const how = va_arg(args, const void*);
    const size_t size = va_arg(args, size_t);
    va_end(args);
    return TakeFault(Call::kOpenInRoot) ? __real_syscall(number, folder, path, how, size) : -1;
}

dirent64* __wrap_readdir64(DIR* folder)
{
    return TakeFault(Call::kList) ? __real_readdir64(folder) : nullptr;
}
// NOLINTEND(bugprone-reserved-identifier)

} // namespace kx::io
