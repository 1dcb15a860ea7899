// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/Rights.h"
#include "confined/Sanitized.h"
#include "io/Error.h"

#include <cerrno>
#include <initializer_list>
#include <memory>
#include <system_error>

#include <linux/futex.h>
#include <seccomp.h>
#include <sys/mman.h>

namespace kx::guard
{

namespace
{

/// Refuses to go on when a call of the filter's library failed.
/// @param result  0, or an errno below 0
void RequireFilter(int result)
{
    if (result < 0) {
        throw io::Error(io::ExitCode::kNoAccess, "",
                        "cannot limit the system calls of what reads packages: " +
                            std::generic_category().message(-result),
                        "use a kernel with seccomp filters (CONFIG_SECCOMP_FILTER)");
    }
}

/// The calls that a process may make.
class CallFilter
{
public:
    CallFilter() : m_filter(seccomp_init(SCMP_ACT_KILL_PROCESS), seccomp_release)
    {
        RequireFilter(m_filter == nullptr ? -ENOMEM : 0);
        RequireFilter(
            seccomp_attr_set(m_filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS));
    }

    /// Allows a call when its arguments are as told. A name that this processor, or the library,
    /// does not know allows nothing.
    void Allow(const char* name, std::initializer_list<scmp_arg_cmp> arguments = {})
    {
        const int number = seccomp_syscall_resolve_name(name);
        if (number >= 0) {
            RequireFilter(seccomp_rule_add_array(m_filter.get(), SCMP_ACT_ALLOW, number,
                                                 static_cast<unsigned>(arguments.size()),
                                                 arguments.begin()));
        }
    }

    void AllowAll(std::initializer_list<const char*> names)
    {
        for (const char* const name : names) {
            Allow(name);
        }
    }

    void Load() { RequireFilter(seccomp_load(m_filter.get())); }

private:
    std::unique_ptr<void, decltype(&seccomp_release)> m_filter;
};

/// Requires of an argument that some of its bits have a value.
scmp_arg_cmp Bits(unsigned argument, scmp_datum_t bits, scmp_datum_t value)
{
    return {argument, SCMP_CMP_MASKED_EQ, bits, value};
}

scmp_arg_cmp Is(unsigned argument, int value)
{
    return {argument, SCMP_CMP_EQ, static_cast<scmp_datum_t>(value), 0};
}

/// It has a stack of its own to forget where exceptions pass, and looks whether memory is there by
/// writing it into a pipe, which gets the lowest free descriptors.
void AllowSanitizer(CallFilter& filter, int descriptor)
{
    filter.AllowAll({"sigaltstack", "pipe", "pipe2", "close"});
    for (const int low : {0, 1, 2, 3}) {
        if (low != descriptor) {
            filter.Allow("write", {Is(0, low)});
        }
    }
}

} // namespace

void AllowOnlyReading(int descriptor, int messages)
{
    CallFilter filter;
    filter.Allow("pread64", {Is(0, descriptor)});
    filter.Allow("write", {Is(0, messages)});
    // Where numbers have 32 bits, the call of the old name takes its arguments in another way.
    filter.Allow(sizeof(void*) < sizeof(std::uint64_t) ? "mmap2" : "mmap", {Bits(2, PROT_EXEC, 0)});
    filter.Allow("mprotect", {Bits(2, PROT_EXEC, 0)});
    // Whatever was done once wakes up those who wait for it, of whom there are none.
    filter.Allow("futex",
                 {Bits(1, static_cast<scmp_datum_t>(FUTEX_CMD_MASK) & 0xffffffffU, FUTEX_WAKE)});
    filter.AllowAll({"brk", "munmap", "mremap", "madvise"});
    filter.AllowAll({"clock_gettime", "clock_gettime64"});
    filter.AllowAll({"rt_sigreturn", "sigreturn", "restart_syscall", "exit_group", "exit"});
    if (kIsSanitized) {
        AllowSanitizer(filter, descriptor);
    }
    filter.Load();
}

} // namespace kx::guard
