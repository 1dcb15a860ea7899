// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/Doubts.h"

#include <gmock/gmock.h>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

StartedProgram Program(const std::string& processor, bool canRun, const std::string& loader = "",
                       int step = 3)
{
    return {"/opt/app", processor, canRun, loader, step};
}

TEST(DoubtsOf, AreNoneWhenProgramsRunAsOnThePanel)
{
    EXPECT_THAT(DoubtsOf({}, "arm"), IsEmpty());
    EXPECT_THAT(DoubtsOf({Program("arm", true)}, "arm"), IsEmpty());
    EXPECT_THAT(DoubtsOf({Program("arm", true)}, ""), IsEmpty());
    EXPECT_THAT(RemarksOnDoubts({Program("arm", true)}, "arm"), IsEmpty());
}

TEST(DoubtsOf, TellProgramsThatCannotRunHere)
{
    EXPECT_THAT(DoubtsOf({Program("arm", false)}, "arm"),
                ElementsAre("step 3 starts programs for arm"));
    EXPECT_THAT(DoubtsOf({Program("arm", false, "", 0)}, ""),
                ElementsAre("the installation starts programs for arm"));
    EXPECT_THAT(RemarksOnDoubts({Program("arm", false)}, "arm"),
                ElementsAre("/opt/app is a program for arm",
                            "this machine cannot run it: with qemu-user installed (Linux 6.7 or "
                            "later), or after scripts/setup foreign, it can"));
    // Nobody has an emulator for what is not known.
    EXPECT_THAT(RemarksOnDoubts({Program("another processor", false)}, ""),
                ElementsAre("/opt/app is a program for another processor"));
}

TEST(DoubtsOf, TellProgramsThatRunHereAndNotOnThePanel)
{
    EXPECT_THAT(DoubtsOf({Program("x86_64", true)}, "arm"),
                ElementsAre("step 3 starts programs for x86_64, the package is for arm"));
    EXPECT_THAT(DoubtsOf({Program("x86_64", true)}, "another processor"),
                ElementsAre("step 3 starts programs for x86_64, the package is for another "
                            "processor"));
    EXPECT_THAT(RemarksOnDoubts({Program("x86_64", true)}, "arm"),
                ElementsAre("/opt/app is a program for x86_64",
                            "a panel with arm cannot run it: put in the program that was built "
                            "for the panel"));
}

TEST(DoubtsOf, KnowThatProcessorsOf64BitsRunProgramsOfTheir32)
{
    EXPECT_THAT(DoubtsOf({Program("i386", true)}, "x86_64"), IsEmpty());
    EXPECT_THAT(DoubtsOf({Program("arm", true)}, "aarch64"), IsEmpty());
    EXPECT_EQ(DoubtsOf({Program("aarch64", true)}, "arm").size(), 1U);
    EXPECT_EQ(DoubtsOf({Program("i386", true)}, "aarch64").size(), 1U);
}

TEST(DoubtsOf, TellLoadersThatThePanelDoesNotHave)
{
    EXPECT_THAT(DoubtsOf({Program("arm", true, "/lib/ld.so")}, "arm"),
                ElementsAre("step 3 starts programs for arm that need /lib/ld.so, which is not on "
                            "this panel"));
    EXPECT_THAT(RemarksOnDoubts({Program("arm", true, "/lib/ld.so")}, "arm"),
                ElementsAre("/opt/app is a program for arm",
                            "its loader would have to be in the package, or on this machine"));
    // That it cannot run is all there is to say.
    EXPECT_THAT(DoubtsOf({Program("arm", false, "/lib/ld.so")}, "arm"),
                ElementsAre("step 3 starts programs for arm"));
}

TEST(DoubtsOf, StandOnceEach)
{
    const std::vector<StartedProgram> programs = {Program("arm", false), Program("arm", false),
                                                  Program("arm", false, "", 4),
                                                  Program("riscv64", false, "", 4)};

    EXPECT_THAT(DoubtsOf(programs, ""),
                ElementsAre("step 3 starts programs for arm", "step 4 starts programs for arm",
                            "step 4 starts programs for riscv64"));
    EXPECT_EQ(RemarksOnDoubts(programs, "").size(), 3U);
}

} // namespace

} // namespace kx::tool
