// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Targets.h"
#include "io/Path.h"

#include <gtest/gtest.h>

namespace kx::checks
{

namespace
{

TEST(Targets, AreComparedAsTheFilesThatTheyAre)
{
    EXPECT_EQ(io::PlainPath("/opt//a/./b/../c/"), "/opt/a/c");
    EXPECT_EQ(io::PlainPath("/.."), "/");
    EXPECT_EQ(io::PlainPath("/../a"), "/a");
    EXPECT_EQ(io::PlainPath("/"), "/");
}

TEST(Targets, KnowTheFoldersThatEveryPanelHas)
{
    Targets targets;

    EXPECT_EQ(targets.AddFile("/opt"), TargetState::kFolder);
    EXPECT_EQ(targets.AddFile("/opt/x"), TargetState::kFree);
    EXPECT_EQ(targets.AddFile("/etc/passwd/x"), TargetState::kBelowFile);
    EXPECT_EQ(targets.AddFile("/etc/passwd"), TargetState::kFree);
}

TEST(Targets, RememberWhatEarlierStepsMade)
{
    Targets targets;

    EXPECT_EQ(targets.AddFile("/opt/a/b"), TargetState::kFree);
    EXPECT_EQ(targets.AddFile("/opt/./a/b"), TargetState::kTwice);
    EXPECT_EQ(targets.AddFile("/opt/a"), TargetState::kFolder);
    EXPECT_EQ(targets.AddFile("/opt/a/b/c"), TargetState::kBelowFile);
    EXPECT_TRUE(targets.AddFolder("/opt/f"));
    EXPECT_FALSE(targets.AddFolder("/opt/a/b"));
    EXPECT_FALSE(targets.AddFolder("/opt/a/b/c"));
    EXPECT_EQ(targets.AddFile("/opt/f"), TargetState::kFolder);
}

TEST(Targets, AreWhatTheUpdatersCommandsMeet)
{
    Targets targets;

    EXPECT_EQ(targets.AddFile("/bin/tool"), TargetState::kFree);
    EXPECT_EQ(targets.AddFile("/usr/bin/tool"), TargetState::kTwice) << "/bin is a link";
    EXPECT_EQ(targets.AddFile("/opt/a/../b"), TargetState::kFree);
    EXPECT_EQ(targets.AddFile("/opt/a"), TargetState::kFolder) << "made on the way to b";
    EXPECT_EQ(targets.AddFile("/etc/passwd/../b"), TargetState::kBelowFile);
    EXPECT_EQ(targets.AddFile("/opt/new/"), TargetState::kFree) << "a name behind the mark lacks";
    EXPECT_EQ(targets.AddFile("/"), TargetState::kFolder);
}

TEST(Targets, TellWhatLiesInAFolder)
{
    EXPECT_TRUE(io::IsIn("/tmp", "/tmp"));
    EXPECT_TRUE(io::IsIn("/tmp/a", "/tmp"));
    EXPECT_FALSE(io::IsIn("/tmpa", "/tmp"));
    EXPECT_FALSE(io::IsIn("/", "/tmp"));
}

} // namespace

} // namespace kx::checks
