// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Program.h"
#include "support/ElfOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace kx::format
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// The attributes of an arm program: each a number and what stands behind it.
std::string Attributes(const std::string& pairs, const std::string& vendor = "aeabi")
{
    return std::string("A\1\0\0\0", 5) + vendor + '\0' + std::string("\1\1\0\0\0", 5) + pairs;
}

FloatAbi FloatAbiOf(unsigned flags, const std::string& attributes)
{
    ElfOf elf = ArmProgram();
    elf.loader = "/lib/ld-linux.so.3";
    elf.flags = flags;
    elf.attributes = attributes;
    return ReadProgram(elf.Bytes()).value().floatAbi;
}

} // namespace

TEST(Program, TellsWhatItNeeds)
{
    for (const bool is64Bit : {false, true}) {
        ElfOf elf = ArmProgram();
        elf.is64Bit = is64Bit;
        elf.machine = is64Bit ? 183 : 40;
        elf.needed = {"libQt5Core.so.5", "libc.so.6"};
        elf.folders = "$ORIGIN/../lib::/opt/lib";
        elf.version = {"GLIBC_2.9", "GLIBC_2.31", "GLIBC_PRIVATE", "GLIBC_2.4"};

        const Program program = ReadProgram(elf.Bytes()).value();

        EXPECT_EQ(program.head.ProcessorName(), is64Bit ? "aarch64" : "arm");
        EXPECT_EQ(program.kind, Program::Kind::kStarted);
        EXPECT_EQ(program.floatAbi, is64Bit ? FloatAbi::kUnknown : FloatAbi::kHard);
        EXPECT_EQ(program.loader, "/lib/ld-linux-armhf.so.3");
        EXPECT_THAT(program.libraries, ElementsAre("libQt5Core.so.5", "libc.so.6"));
        EXPECT_THAT(program.folders, ElementsAre("$ORIGIN/../lib", "/opt/lib"));
        EXPECT_EQ(program.cLibrary, "2.31");
        EXPECT_EQ(program.name, "");
    }
}

TEST(Program, IsStartedOrLoadedOrNeither)
{
    ElfOf library;
    library.name = "libfoo.so.1";
    EXPECT_EQ(ReadProgram(library.Bytes()).value().kind, Program::Kind::kLibrary);
    EXPECT_EQ(ReadProgram(library.Bytes()).value().name, "libfoo.so.1");
    EXPECT_THAT(ReadProgram(library.Bytes()).value().libraries, IsEmpty());

    ElfOf alone; // linked statically
    alone.type = 2;
    EXPECT_EQ(ReadProgram(alone.Bytes()).value().kind, Program::Kind::kStarted);
    alone.hasStack = false; // firmware of another processor looks like this
    EXPECT_EQ(ReadProgram(alone.Bytes()).value().kind, Program::Kind::kOther);
    alone.hasStack = true;
    alone.type = 1; // a kernel module
    EXPECT_EQ(ReadProgram(alone.Bytes()).value().kind, Program::Kind::kOther);
}

TEST(Program, TellsItsFloatAbiByFlagsLoaderOrAttributes)
{
    EXPECT_EQ(FloatAbiOf(0x5000400, ""), FloatAbi::kHard);
    EXPECT_EQ(FloatAbiOf(0x5000200, ""), FloatAbi::kSoft);
    EXPECT_EQ(FloatAbiOf(0x5000000, ""), FloatAbi::kUnknown);
    // The name of the processor, then: floats in registers of their own.
    EXPECT_EQ(FloatAbiOf(0x5000000, Attributes(std::string("\5v7\0\6\12\34\1", 8))),
              FloatAbi::kHard);
    EXPECT_EQ(FloatAbiOf(0x5000000, Attributes(std::string("\34\0", 2))), FloatAbi::kSoft);
    EXPECT_EQ(FloatAbiOf(0x5000000, Attributes(std::string("\40\1gnu\0\34\1", 8))),
              FloatAbi::kHard);
    EXPECT_EQ(FloatAbiOf(0x5000000, Attributes(std::string("\103z\0\34\2", 5))),
              FloatAbi::kUnknown);
    EXPECT_EQ(FloatAbiOf(0x5000000, Attributes("\6\12")), FloatAbi::kUnknown);
    EXPECT_EQ(FloatAbiOf(0x5000000, Attributes(std::string("\34\1", 2), "gnu")),
              FloatAbi::kUnknown);
    EXPECT_EQ(FloatAbiOf(0x5000200, Attributes(std::string("\34\1", 2))), FloatAbi::kSoft);

    ElfOf loaded = ArmProgram();
    loaded.flags = 0x5000000;
    EXPECT_EQ(ReadProgram(loaded.Bytes()).value().floatAbi, FloatAbi::kHard);
}

TEST(Program, IsNoneWithoutItsHead)
{
    EXPECT_FALSE(ReadProgram("").has_value());
    EXPECT_FALSE(ReadProgram("#!/bin/sh\n").has_value());
    EXPECT_FALSE(ReadProgram("\x7f"
                             "ELF")
                     .has_value());
    EXPECT_FALSE(ReadProgram(ArmProgram().Bytes().substr(0, 51)).has_value());
    EXPECT_FALSE(ReadProgram("!<arch>\n" + std::string(100, 'x')).has_value());
}

TEST(Program, ThatIsDamagedIsReadWithoutHarm)
{
    ElfOf elf = ArmProgram();
    elf.name = "libfoo.so.1";
    elf.folders = "/opt";
    elf.attributes = Attributes(std::string("\5v7\0\34\1", 6));
    for (const bool is64Bit : {false, true}) {
        elf.is64Bit = is64Bit;
        const std::string whole = elf.Bytes();
        for (std::size_t size = 0; size < whole.size(); ++size) {
            static_cast<void>(ReadProgram(whole.substr(0, size)));
        }
        std::mt19937 chance(1); // NOLINT(cert-msc51-cpp): the same every time
        for (int round = 0; round < 20000; ++round) {
            std::string damaged = whole;
            for (unsigned i = 0; i < 1 + chance() % 6; ++i) {
                damaged[chance() % damaged.size()] =
                    static_cast<char>(chance() % 4 == 0 ? 0xffU : chance());
            }
            static_cast<void>(ReadProgram(damaged));
        }
    }
}

TEST(IsOlder, ComparesNumberByNumber)
{
    EXPECT_TRUE(IsOlder("2.9", "2.31"));
    EXPECT_TRUE(IsOlder("2.31", "2.31.1"));
    EXPECT_TRUE(IsOlder("", "2.4"));
    EXPECT_TRUE(IsOlder("1.99", "2"));
    EXPECT_FALSE(IsOlder("2.31", "2.9") || IsOlder("2.31", "2.31") || IsOlder("2.31.1", "2.31") ||
                 IsOlder("2", "2.0") || IsOlder("", "") || IsOlder("2.4", ""));
}

} // namespace kx::format
