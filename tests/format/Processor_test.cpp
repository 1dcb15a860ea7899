// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Processor.h"
#include "support/Program.h"

#include <gtest/gtest.h>

#include <sys/utsname.h>

namespace kx::format
{

TEST(FindProcessor, KnowsNamesAndOtherWordsForThem)
{
    EXPECT_STREQ(FindProcessor("arm")->name, "arm");
    EXPECT_STREQ(FindProcessor("armv7l")->name, "arm");
    EXPECT_STREQ(FindProcessor("arm64")->name, "aarch64");
    EXPECT_STREQ(FindProcessor("amd64")->name, "x86_64");
    EXPECT_STREQ(FindProcessor("i686")->name, "i386");
    EXPECT_EQ(FindProcessor("vax"), nullptr);
    EXPECT_EQ(FindProcessor(""), nullptr);
}

TEST(NativeProcessor, IsWhatTheSystemSays)
{
    utsname name{};
    ASSERT_EQ(uname(&name), 0);

    EXPECT_EQ(NativeProcessor(), FindProcessor(name.machine));
}

TEST(ProgramHead, TellsTheProcessor)
{
    for (const Processor& processor : Processors()) {
        const auto head = ReadProgramHead(ProgramFor(processor));

        ASSERT_TRUE(head.has_value());
        EXPECT_EQ(head->ProcessorName(), processor.name);
        EXPECT_TRUE(head->IsFor(processor));
    }
}

TEST(ProgramHead, TellsTheOrderOfBytesAndTheWordSize)
{
    std::string arm = ProgramFor(*FindProcessor("arm"));
    arm[5] = 2; // the other order of bytes
    std::swap(arm[18], arm[19]);
    const auto swapped = ReadProgramHead(arm);
    ASSERT_TRUE(swapped.has_value());
    EXPECT_EQ(swapped->machine, 40U);
    EXPECT_EQ(swapped->ProcessorName(), "another processor");

    std::string x32 = ProgramFor(*FindProcessor("x86_64"));
    x32[4] = 1; // 32 bits
    EXPECT_EQ(ReadProgramHead(x32)->ProcessorName(), "another processor");
}

TEST(ProgramHead, IsNothingForOtherFiles)
{
    EXPECT_FALSE(ReadProgramHead("").has_value());
    EXPECT_FALSE(ReadProgramHead("\x7f"
                                 "ELF")
                     .has_value());
    EXPECT_FALSE(ReadProgramHead("#!/bin/sh\nexec something else\n").has_value());
}

} // namespace kx::format
