// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Processor.h"
#include "support/Program.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include <sys/utsname.h>

namespace kx::format
{

TEST(FindProcessor, KnowsNamesAndOtherWordsForThem)
{
    const std::map<std::string, std::vector<std::string>> words = {
        {"aarch64", {"aarch64", "arm64", "armv8", "armv8l"}},
        {"arm", {"arm", "armhf", "armel", "armv5tel", "armv6l", "armv7", "armv7l"}},
        {"i386", {"i386", "i486", "i586", "i686", "x86"}},
        {"riscv64", {"riscv64"}},
        {"x86_64", {"x86_64", "amd64", "x86-64"}},
    };
    std::vector<std::string> names;
    for (const auto& [name, others] : words) {
        names.push_back(name);
        for (const std::string& word : others) {
            ASSERT_NE(FindProcessor(word), nullptr) << word;
            EXPECT_EQ(FindProcessor(word)->name, name) << word;
        }
    }
    EXPECT_EQ(ProcessorNames(), names);
    for (const char* const word : {"", "vax", "ARM", "arm6", "armv7l ", "x86_6", "i786"}) {
        EXPECT_EQ(FindProcessor(word), nullptr) << word;
    }
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

TEST(ProgramHead, TakesTheFirstTwentyBytesAndNoFewer)
{
    const std::string program = ProgramFor(*FindProcessor("arm"));
    EXPECT_EQ(ReadProgramHead(program.substr(0, 20))->ProcessorName(), "arm");
    EXPECT_FALSE(ReadProgramHead(program.substr(0, 19)).has_value());
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
