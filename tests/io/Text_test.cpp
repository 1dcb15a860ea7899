// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Text.h"

#include <gtest/gtest.h>

namespace kx::io
{

TEST(Printable, LeavesNothingThatPlaysWithATerminal)
{
    EXPECT_EQ(Printable(""), "");
    EXPECT_EQ(Printable("a b\\\"'\xc3\xa4\xf0\x9f\x98\x80"), "a b\\\"'\xc3\xa4\xf0\x9f\x98\x80");
    EXPECT_EQ(Printable("one\ntwo\r\t\x1b[2J\x7f"), "one\\ntwo\\x0d\\x09\\x1b[2J\\x7f");
    EXPECT_EQ(Printable(std::string_view("a\0b", 3)), "a\\x00b");
    // Control characters of two bytes.
    EXPECT_EQ(Printable("\xc2\x80\xc2\x9f\xc2\xa0"), "\\xc2\\x80\\xc2\\x9f\xc2\xa0");
}

TEST(Printable, ShowsBytesThatAreNoTextOneByOne)
{
    EXPECT_EQ(Printable("\xff\xfe"), "\\xff\\xfe");
    EXPECT_EQ(Printable("a\xe3\x81"), "a\\xe3\\x81");
    EXPECT_EQ(Printable("\xe3\x81\xc3\xa4"), "\\xe3\\x81\xc3\xa4");
    EXPECT_EQ(Printable("\xed\xa0\x80z"), "\\xed\\xa0\\x80z");
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

TEST(FirstBytes, AreAllOfAShortText)
{
    EXPECT_EQ(FirstBytes("text", 0), "");
    EXPECT_EQ(FirstBytes("text", 3), "tex");
    EXPECT_EQ(FirstBytes("text", 4), "text");
    EXPECT_EQ(FirstBytes("text", 0x100000000), "text");
    EXPECT_EQ(FirstBytes("text", 0x100000001), "text");
}

} // namespace kx::io
