// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Text.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace kx::io
{

TEST(IsUtf8, TellsTextFromBytes)
{
    EXPECT_TRUE(IsUtf8(""));
    EXPECT_TRUE(IsUtf8("a\xc3\xa4\xe3\x81\x82\xf0\x9f\x98\x80"));
    EXPECT_FALSE(IsUtf8("a\xff"));
    EXPECT_FALSE(IsUtf8("\xc3"));
    EXPECT_FALSE(IsUtf8("\xc0\xaf"));
}

TEST(UnsafeCharacter, IsTheFirstThatAShellOrAListReadsAsItsOwn)
{
    EXPECT_EQ(UnsafeCharacter("/opt/a b'c;d&\xc3\xa4"), "");
    EXPECT_EQ(UnsafeCharacter("a\"b$"), "\"");
    EXPECT_EQ(UnsafeCharacter("a$b"), "$");
    EXPECT_EQ(UnsafeCharacter("a`b"), "`");
    EXPECT_EQ(UnsafeCharacter("a\\b"), "\\");
    EXPECT_EQ(UnsafeCharacter("a\nb"), "\\n");
    EXPECT_EQ(UnsafeCharacter("a\x7f"), "\\x7f");
}

TEST(SizeText, IsShortAndNeverRoundsUp)
{
    EXPECT_EQ(SizeText(0), "0 bytes");
    EXPECT_EQ(SizeText(1), "1 byte");
    EXPECT_EQ(SizeText(1023), "1023 bytes");
    EXPECT_EQ(SizeText(1024), "1.0 KiB");
    EXPECT_EQ(SizeText(1536), "1.5 KiB");
    EXPECT_EQ(SizeText(1048575), "1023.9 KiB");
    EXPECT_EQ(SizeText(std::uint64_t{5} << 30), "5.0 GiB");
    EXPECT_EQ(SizeText(UINT64_MAX), "16383.9 PiB");
}

TEST(CountText, KnowsThePlural)
{
    EXPECT_EQ(CountText(0, "file"), "0 files");
    EXPECT_EQ(CountText(1, "file"), "1 file");
    EXPECT_EQ(CountText(2, "file"), "2 files");
}

TEST(ReadWholeFile, ReadsUpToItsLimitAndSaysWhatIsWrong)
{
    const TempDir dir;
    const std::string path = dir.Write("file", "12345");

    EXPECT_EQ(ReadWholeFile(path, 5), "12345");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadWholeFile(path, 4)); }),
              "3: " + path + ": is larger than 4 bytes");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadWholeFile(dir.Path(), 4)); }),
              "3: " + dir.Path() + ": is no file");
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadWholeFile(dir / "none", 4)); }),
              "3: " + (dir / "none") + ": cannot open: No such file or directory");
}

} // namespace kx::io
