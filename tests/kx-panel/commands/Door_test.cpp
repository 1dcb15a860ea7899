// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Door.h"
#include "io/Error.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kx::guard
{

namespace
{

/// The door of a panel whose description and keys answer like this.
Door Opened(const std::function<Policy()>& policy,
            const std::function<signature::TrustedKeys(SignatureRule)>& keys)
{
    return OpenDoor({policy, keys});
}

std::vector<std::string> DoorReasonsOf(const Door& door)
{
    std::vector<std::string> lines;
    for (const Reason& reason : door.reasons) {
        lines.push_back(std::string(ReasonWord(reason.id)) + " " + reason.values.front());
    }
    return lines;
}

io::Error WrongFile(const std::string& what)
{
    return {io::ExitCode::kProblems, "file", what};
}

} // namespace

TEST(Door, IsOpenWhereBothCanBeRead)
{
    SignatureRule asked = SignatureRule::kRequired;
    const Door door = Opened(
        [] {
            Policy policy;
            policy.signatures = SignatureRule::kOptional;
            return policy;
        },
        [&asked](SignatureRule rule) {
            asked = rule;
            return signature::TrustedKeys();
        });

    EXPECT_TRUE(door.IsOpen());
    EXPECT_TRUE(door.policy.has_value());
    EXPECT_EQ(asked, SignatureRule::kOptional);
}

TEST(Door, IsClosedForEverythingThatIsWrong)
{
    const Door door = Opened(
        []() -> Policy {
            throw io::Errors({WrongFile("says nothing"), WrongFile("says it twice")});
        },
        [](SignatureRule rule) -> signature::TrustedKeys {
            EXPECT_EQ(rule, SignatureRule::kRequired);
            throw WrongFile("is missing");
        });

    EXPECT_FALSE(door.IsOpen());
    EXPECT_FALSE(door.policy.has_value());
    EXPECT_EQ(DoorReasonsOf(door), (std::vector<std::string>{"panel-file file: says nothing",
                                                             "panel-file file: says it twice",
                                                             "key-folder file: is missing"}));
}

} // namespace kx::guard
