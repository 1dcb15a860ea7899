// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "kx-panel/confined/ForkedChild.h"

#include "io/Descriptor.h"
#include "io/Transfer.h"

#include <array>
#include <cerrno>
#include <cstdlib>

#include <linux/capability.h>
#include <seccomp.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::guard
{

std::string InChild(const std::function<std::string()>& call)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return "no pipe";
    }
    const io::Descriptor from(ends[0]);
    io::Descriptor to(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        dup2(to.Number(), kReport);
        to.Close();
        static_cast<void>(io::TryWriteAll(kReport, call()));
        _exit(EXIT_SUCCESS);
    }
    to.Close();
    const std::string told = io::ReadAll(from.Number(), 100000, "child");
    waitpid(child, nullptr, 0);
    return told.empty() ? "nothing told" : told;
}

void LetCallFail(int call, int error)
{
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    if (seccomp_rule_add(filter, SCMP_ACT_ERRNO(static_cast<unsigned>(error)), call, 0) != 0 ||
        seccomp_load(filter) != 0) {
        std::abort();
    }
    seccomp_release(filter);
}

void DropCapability(unsigned capability)
{
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    const unsigned bit = 1U << (capability % 32);
    bool isDone = syscall(SYS_capget, &head, sets.data()) == 0;
    auto& set = sets.at(capability / 32);
    set.effective &= ~bit;
    set.permitted &= ~bit;
    isDone = isDone && syscall(SYS_capset, &head, sets.data()) == 0;
    if (!isDone) {
        std::abort();
    }
}

bool HasNoChild()
{
    return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD;
}

} // namespace kx::guard
