// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <deque>
#include <filesystem>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/types.h>

namespace kx::io
{

namespace
{

/// What is to go wrong with one of the calls.
struct Plan {
    std::deque<Fault> next;
    int always = 0; ///< errno
};

Plan& PlanOf(Call call)
{
    constexpr std::size_t kCalls = 11;
    static std::array<Plan, kCalls> plans;
    return plans.at(static_cast<std::size_t>(call));
}

/// Takes what is to happen with the present call.
/// @return false when it fails; errno says why
bool TakeFault(Call call, std::size_t& size)
{
    Plan& plan = PlanOf(call);
    Fault fault{plan.always};
    if (!plan.next.empty()) {
        fault = plan.next.front();
        plan.next.pop_front();
    }
    if (fault.before != nullptr) {
        fault.before();
    }
    size = std::min(size, fault.most);
    errno = fault.error != 0 ? fault.error : errno;
    return fault.error == 0;
}

bool TakeFault(Call call)
{
    std::size_t none = 0;
    return TakeFault(call, none);
}

} // namespace

Faults::Faults(Call call, const std::vector<Fault>& faults) : m_call(call)
{
    PlanOf(call).next.assign(faults.begin(), faults.end());
}

Faults::Faults(Call call, int error) : m_call(call)
{
    PlanOf(call).always = error;
}

Faults::~Faults()
{
    EXPECT_EQ(PlanOf(m_call).next.size(), 0U) << "faults that did not happen";
    PlanOf(m_call) = {};
}

namespace
{

Placing* g_placing = nullptr;

} // namespace

Placing::Placing()
{
    g_placing = this;
}

Placing::~Placing()
{
    g_placing = nullptr;
}

void Placing::Note(const std::string& call)
{
    if (g_placing != nullptr) {
        g_placing->m_calls.push_back(call);
    }
}

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
int __real_fsync(int descriptor);
int __wrap_fsync(int descriptor);
int __real_rename(const char* old, const char* path);
int __wrap_rename(const char* old, const char* path);
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

int __wrap_fsync(int descriptor)
{
    std::error_code error;
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    Placing::Note("sync " + std::filesystem::read_symlink(link, error).string());
    return TakeFault(Call::kSync) ? __real_fsync(descriptor) : -1;
}

int __wrap_rename(const char* old, const char* path)
{
    Placing::Note(std::string("name ") + path);
    return TakeFault(Call::kRename) ? __real_rename(old, path) : -1;
}

dirent64* __wrap_readdir64(DIR* folder)
{
    return TakeFault(Call::kList) ? __real_readdir64(folder) : nullptr;
}
// NOLINTEND(bugprone-reserved-identifier)

} // namespace kx::io
