// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/PanelSurvey.h"
#include "support/ElfOf.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace kx::format
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

} // namespace

TEST(PanelSurvey, TellsWhatTheFilesOfAPanelSay)
{
    const TempDir dir;
    dir.Write("usr/bin/busybox", ArmProgram().Bytes(), 0755);
    dir.Write("usr/bin/python3", "");
    dir.MakeDir("usr/bin/perl"); // no file
    dir.Write("usr/lib/arm-linux-gnueabihf/libc.so.6",
              "x GNU C Library (Debian GLIBC 2.31-13) stable release version 2.31.\ny");
    dir.Write("usr/lib/arm-linux-gnueabihf/libQt5Core.so.5", "");
    dir.Write("usr/lib/readme.txt", "");
    dir.Write("usr/lib/ld-linux-armhf.so.3", "");
    dir.Write("opt/lib/libown.so", "");
    dir.Write("etc/ld.so.conf", "include /etc/ld.so.conf.d/*.conf\n");
    dir.Write("etc/ld.so.conf.d/own.conf", "# own\n/opt/lib \n");
    dir.Write("etc/passwd", "root:x:0:0::/root:/bin/sh\nuser:x:1:1::/:/bin/sh\n:x\nnone\n");
    ASSERT_EQ(symlink("usr/bin", (dir / "bin").c_str()), 0);
    ASSERT_EQ(symlink("usr/lib", (dir / "lib").c_str()), 0);
    ASSERT_EQ(symlink("busybox", (dir / "usr/bin/sh").c_str()), 0);

    const PanelSurvey survey = SurveyPanel(io::RootedFolder(dir.Path()));

    EXPECT_EQ(survey.processor, FindProcessor("arm"));
    EXPECT_EQ(survey.floatAbi, FloatAbi::kHard);
    EXPECT_EQ(survey.cLibrary, "2.31");
    EXPECT_EQ(survey.shell, "busybox");
    EXPECT_THAT(survey.libraries,
                ElementsAre("ld-linux-armhf.so.3", "libQt5Core.so.5", "libc.so.6", "libown.so"));
    EXPECT_THAT(survey.interpreters,
                ElementsAre("/bin/busybox", "/bin/python3", "/bin/sh", "/lib/ld-linux-armhf.so.3",
                            "/usr/bin/busybox", "/usr/bin/python3", "/usr/bin/sh"));
    EXPECT_THAT(survey.users, ElementsAre("root", "user"));
}

TEST(PanelSurvey, LeavesOutWhatTheFilesDoNotSay)
{
    const TempDir dir;
    dir.Write("bin/sh", "#!/bin/true\n", 0755);
    dir.Write("lib/libc.so.6", "GNU C Library of no version");

    const PanelSurvey survey = SurveyPanel(io::RootedFolder(dir.Path()));

    EXPECT_EQ(survey.processor, nullptr);
    EXPECT_EQ(survey.floatAbi, FloatAbi::kUnknown);
    EXPECT_EQ(survey.cLibrary + survey.shell, "");
    EXPECT_THAT(survey.interpreters, ElementsAre("/bin/sh"));
    EXPECT_THAT(survey.users, IsEmpty());
}

TEST(PanelSurvey, EndsAtLinksInACircle)
{
    const TempDir dir;
    dir.MakeDir("bin");
    ASSERT_EQ(symlink("/bin/sh", (dir / "bin/sh").c_str()), 0);

    EXPECT_EQ(SurveyPanel(io::RootedFolder(dir.Path())).shell, "");
}

} // namespace kx::format
