// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Secrets.h"

#include <gtest/gtest.h>

namespace kx::format
{
namespace
{

TEST(MaskedCommand, HidesTheWholePasswordOfAUser)
{
    EXPECT_EQ(MaskedCommand("echo 'a:b' | chpasswd"), "echo 'a:********' | chpasswd");
    EXPECT_EQ(MaskedCommand("echo 'a:' | chpasswd"), "echo 'a:********' | chpasswd");
    EXPECT_EQ(MaskedCommand("echo 'a:b:c' d\n' | chpasswd"), "echo 'a:********' | chpasswd");
    EXPECT_EQ(MaskedCommand("echo ':b' | chpasswd"), "echo ':********' | chpasswd");
    EXPECT_EQ(MaskedCommand("echo 'ab' | chpasswd"), "echo 'ab:********' | chpasswd");
}

TEST(MaskedCommand, HidesSettingsFromAPasswordOn)
{
    EXPECT_EQ(MaskedCommand("kx-setting-cui set Password=a b=c Level=8 "),
              "kx-setting-cui set Password=********");
    EXPECT_EQ(MaskedCommand("kx-setting-cui set Level=8 PASSWORD= "),
              "kx-setting-cui set Level=8 PASSWORD=********");
    EXPECT_EQ(MaskedCommand("kx-setting-cui set Name=two words Password=x "),
              "kx-setting-cui set Name=two words Password=********");
}

TEST(MaskedCommand, LeavesEveryOtherCommandAsItIs)
{
    for (const char* const command :
         {"", "sync", "echo '", "' | chpasswd", "echo 'a:b' | chpasswd -e", "cat 'a:b' | chpasswd",
          "kx-setting-cui set Level=8 Mode=script ", "kx-setting-cui set ",
          "kx-setting-cui set Password ", "kx-setting-cui set Passwords=1 OldPassword=2 ",
          "kx-setting-cui get Password=1 ", R"(cp -f "Password=1" "/a" )"}) {
        EXPECT_EQ(MaskedCommand(command), command);
    }
}

} // namespace
} // namespace kx::format
