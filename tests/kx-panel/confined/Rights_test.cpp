// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/Rights.h"
#include "kx-panel/confined/ForkedChild.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <grp.h>
#include <linux/capability.h>
#include <seccomp.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

// Processors of 32 bits have two calls of each kind; the C library takes the one with long numbers.
constexpr bool kHasShortNumbers = sizeof(void*) == 4;
constexpr int kSetUsers = kHasShortNumbers ? SCMP_SYS(setresuid32) : SCMP_SYS(setresuid);
constexpr int kSetGroups = kHasShortNumbers ? SCMP_SYS(setgroups32) : SCMP_SYS(setgroups);

constexpr ProcessLimits kOfProcess{std::uint64_t{64} << 20, 5};

/// Gives up rights in a child.
/// @param before  what is done first
std::string GivenUp(void (*before)())
{
    const pid_t parent = getpid();
    return InChild([before, parent] {
        before();
        return Thrown([parent] { GiveUpRights(kOfProcess, parent); });
    });
}

constexpr const char* kOf = "3: cannot keep what reads packages from ";

} // namespace

TEST(Rights, NothingIsMissingToGiveThemUp)
{
    EXPECT_EQ(GivenUp([] {}), "nothing thrown");
    EXPECT_EQ(GivenUp([] { LetCallFail(SCMP_SYS(unshare), EINVAL); }), "nothing thrown");
    EXPECT_EQ(GivenUp([] { LetCallFail(SCMP_SYS(unshare), EPERM); }), "nothing thrown");
    EXPECT_EQ(GivenUp([] { LetCallFail(kSetGroups, EPERM); }), "nothing thrown");
}

TEST(Rights, EachStepThatFailsIsTheEnd)
{
    const std::string of = kOf;
    const std::string denied = ": Operation not permitted";

    EXPECT_EQ(GivenUp([] { LetCallFail(SCMP_SYS(unshare), ENOSPC); }),
              of + "using the network: No space left on device");
    EXPECT_EQ(GivenUp([] { DropCapability(CAP_SETUID); }), of + "being root" + denied);
    EXPECT_EQ(GivenUp([] { DropCapability(CAP_SETGID); }), of + "being root" + denied);
    EXPECT_EQ(GivenUp([] { LetCallFail(kSetUsers, 0); }), of + "being root" + denied);
    EXPECT_EQ(GivenUp([] { LetCallFail(SCMP_SYS(capset), EPERM); }),
              of + "keeping capabilities" + denied);
    EXPECT_EQ(GivenUp([] { LetCallFail(SCMP_SYS(setsid), EPERM); }),
              of + "hearing the terminal" + denied);
    EXPECT_EQ(GivenUp([] { LetCallFail(SCMP_SYS(chdir), EACCES); }),
              of + "keeping its folder: Permission denied");
    EXPECT_EQ(GivenUp([] { LetCallFail(SCMP_SYS(prlimit64), EPERM); }),
              of + "taking more than it may have" + denied);
}

TEST(Rights, GroupsThatCannotBeLeftAreTheEnd)
{
    EXPECT_EQ(GivenUp([] {
                  const gid_t group = 7;
                  ASSERT_EQ(setgroups(1, &group), 0);
                  LetCallFail(kSetGroups, EPERM);
              }),
              std::string(kOf) + "being root: Operation not permitted");
}

TEST(Rights, AnotherParentIsTheEnd)
{
    EXPECT_EQ(InChild([] { return Thrown([] { GiveUpRights(kOfProcess, getpid()); }); }),
              std::string(kOf) + "outliving its parent: No such process");
}

TEST(Rights, AKernelWithoutFiltersIsTheEnd)
{
    EXPECT_EQ(InChild([] {
                  LetCallFail(SCMP_SYS(seccomp), EINVAL);
                  return Thrown([] { AllowOnlyReading(0, kReport); });
              }),
              "3: cannot limit the system calls of what reads packages: Operation canceled; "
              "use a kernel with seccomp filters (CONFIG_SECCOMP_FILTER)");
}

} // namespace kx::guard
