// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/ProjectBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::StartsWith;

TEST(ProjectBuilder, PutsAByteOrderMarkBeforeTheText)
{
    EXPECT_THAT(ProjectBuilder::File(ProjectBuilder::Root()),
                StartsWith("\xEF\xBB\xBF{\"$type\":"));
}

TEST(ProjectBuilder, LetsATestChangeANestedObject)
{
    ProjectBuilder::Object root = ProjectBuilder::Root({ProjectBuilder::ScriptStep("echo one")});

    ProjectBuilder::Object& step =
        ProjectBuilder::Element(ProjectBuilder::Child(root, "DB_StepSets"), 0);
    step["Comment"] = ProjectBuilder::Text("changed");

    EXPECT_THAT(ProjectBuilder::File(root), ::testing::HasSubstr("\"Comment\":\"changed\""));
}
