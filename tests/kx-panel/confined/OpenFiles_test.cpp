// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/OpenFiles.h"
#include "kx-panel/confined/ForkedChild.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>

#include <fcntl.h>
#include <seccomp.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

using Close = void (*)(const std::set<int>&);

/// Opens some descriptors, closes all but some, and tells which are open then.
std::string OpenAfter(Close close, const std::set<int>& kept)
{
    for (const int number : {0, 1, 2, 3, 10, 11, 12, 50, 51, 200}) {
        dup2(kReport, number);
    }
    close(kept);
    std::string open;
    for (int number = 0; number < 300; ++number) {
        open += fcntl(number, F_GETFD) >= 0 ? std::to_string(number) + " " : "";
    }
    return open;
}

} // namespace

class OpenFiles : public ::testing::TestWithParam<Close>
{
};

TEST_P(OpenFiles, AllButTheKeptOnesAreClosed)
{
    const auto open = [](const std::set<int>& kept) {
        return InChild([&kept] { return OpenAfter(GetParam(), kept); });
    };

    EXPECT_EQ(open({kReport}), "150 ");
    EXPECT_EQ(open({0, kReport}), "0 150 ");
    EXPECT_EQ(open({11, kReport, 200}), "11 150 200 ");
    EXPECT_EQ(open({11, 12, 13, kReport}), "11 12 150 ");
}

INSTANTIATE_TEST_SUITE_P(Ways, OpenFiles, ::testing::Values(CloseAllBut, CloseListedBut),
                         [](const auto& row) {
                             return row.param == CloseAllBut ? "AsLinuxCan" : "ByTheList";
                         });

TEST(OpenFilesFallback, TheListIsTakenWhereLinuxCannotCloseARange)
{
    EXPECT_EQ(InChild([] {
                  LetCallFail(SCMP_SYS(close_range), ENOSYS);
                  return OpenAfter(CloseAllBut, {11, kReport});
              }),
              "11 150 ");
}

TEST(OpenFilesFallback, WithoutAListNothingIsTakenForClosed)
{
    EXPECT_EQ(InChild([] {
                  LetCallFail(SCMP_SYS(close_range), ENOSYS);
                  LetCallFail(SCMP_SYS(openat), EACCES);
                  return Thrown([] { CloseAllBut({kReport}); });
              }),
              "3: /proc/self/fd: cannot list open files in: Permission denied");
}

} // namespace kx::guard
