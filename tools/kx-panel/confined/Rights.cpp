// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/Rights.h"

#include "confined/Sanitized.h"
#include "io/Error.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string>

#include <grp.h>
#include <linux/capability.h>
#include <malloc.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

/// Refuses to go on when a step failed.
/// @param doing  "cannot keep what reads packages from …"
void RequireStep(bool isDone, const char* doing)
{
    if (!isDone) {
        throw io::AccessError("", std::string("keep what reads packages from ") + doing, errno);
    }
}

/// What its parent has set up for signals is none of the child's.
void ForgetSignals()
{
    struct sigaction action {
    };
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        // Two of them cannot be set, nor can those that the C library keeps for itself.
        static_cast<void>(sigaction(number, &action, nullptr));
    }
    sigset_t none;
    sigemptyset(&none);
    RequireStep(sigprocmask(SIG_SETMASK, &none, nullptr) == 0, "holding signals back");
}

/// Leaves the network, and what processes share by names. That is a second wall: no call that would
/// make use of them is let through anyway. So a kernel without a kind of these spaces is no
/// obstacle, nor is a container in which root may not make them.
void LeaveSpaces()
{
    for (const int space : {CLONE_NEWNET, CLONE_NEWIPC, CLONE_NEWUTS}) {
        RequireStep(unshare(space) == 0 || errno == EINVAL || errno == EPERM, "using the network");
    }
}

void DropCapabilities()
{
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    RequireStep(syscall(SYS_capset, &head, sets.data()) == 0, "keeping capabilities");
    sets.fill({~0U, ~0U, ~0U});
    RequireStep(syscall(SYS_capget, &head, sets.data()) == 0, "keeping capabilities");
    const bool hasSome = std::any_of(sets.begin(), sets.end(), [](const auto& set) {
        return set.effective != 0 || set.permitted != 0 || set.inheritable != 0;
    });
    errno = EPERM;
    RequireStep(!hasSome, "keeping capabilities");
}

/// Becomes nobody.
void ChangeUser()
{
    // Where nobody may change the groups of processes, there may be none to leave.
    static_cast<void>(setgroups(0, nullptr));
    RequireStep(setresgid(kNobody, kNobody, kNobody) == 0 &&
                    setresuid(kNobody, kNobody, kNobody) == 0,
                "being root");
    DropCapabilities();
    std::array<uid_t, 3> users{};
    std::array<gid_t, 3> groups{};
    auto& [realUser, user, savedUser] = users;
    auto& [realGroup, group, savedGroup] = groups;
    const bool isKnown = getresuid(&realUser, &user, &savedUser) == 0 &&
                         getresgid(&realGroup, &group, &savedGroup) == 0;
    const auto isNobody = [](unsigned id) { return id == kNobody; };
    const bool isBack = setresuid(0, 0, 0) == 0 || seteuid(0) == 0;
    errno = EPERM;
    RequireStep(isKnown && std::all_of(users.begin(), users.end(), isNobody) &&
                    std::all_of(groups.begin(), groups.end(), isNobody) &&
                    getgroups(0, nullptr) == 0 && !isBack,
                "being root");
}

void Limit(int resource, rlim_t soft, rlim_t hard)
{
    rlimit now{};
    const bool isKnown = getrlimit(static_cast<__rlimit_resource_t>(resource), &now) == 0;
    // Nobody may raise what is lower already.
    const rlim_t most = std::min(hard, now.rlim_max);
    const rlimit wanted{std::min(soft, most), most};
    RequireStep(isKnown && setrlimit(static_cast<__rlimit_resource_t>(resource), &wanted) == 0,
                "taking more than it may have");
}

void LimitResources(const ProcessLimits& limits)
{
    constexpr rlim_t kStack = rlim_t{8} << 20;
    if (!kIsSanitized) {
        Limit(RLIMIT_AS, limits.memoryBytes, limits.memoryBytes);
    }
    Limit(RLIMIT_STACK, kStack, kStack);
    // First the signal that tells why, then the one that cannot be missed.
    Limit(RLIMIT_CPU, limits.seconds + 1, limits.seconds + 2);
    constexpr rlim_t kMostOpen = kIsSanitized ? 16 : 0;
    Limit(RLIMIT_NOFILE, kMostOpen, kMostOpen);
    for (const int none : {RLIMIT_FSIZE, RLIMIT_NPROC, RLIMIT_CORE}) {
        Limit(none, 0, 0);
    }
    // One place to take memory from: looking for another one would ask the system for processors.
    // The sanitizer takes memory in another way.
    RequireStep(kIsSanitized || mallopt(M_ARENA_MAX, 1) == 1, "taking more than it may have");
}

} // namespace

void GiveUpRights(const ProcessLimits& limits, pid_t parent)
{
    ForgetSignals();
    RequireStep(setsid() >= 0, "hearing the terminal");
    umask(077);
    RequireStep(chdir("/") == 0, "keeping its folder");
    LeaveSpaces();
    ChangeUser();
    RequireStep(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "gaining rights");
    RequireStep(prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0, "being looked at");
    // Behind the change of the user, which would take it back.
    RequireStep(prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0, "outliving its parent");
    errno = ESRCH;
    RequireStep(getppid() == parent, "outliving its parent");
    LimitResources(limits);
}

} // namespace kx::guard
