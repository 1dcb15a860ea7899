// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/Statement.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kx::signature
{

namespace
{

const std::string kDigestText = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

std::string StatementText(const std::string& name, const std::string& length,
                          const std::string& digest)
{
    return "kx-update package signature, version 1\nname: " + name + "\nlength: " + length +
           "\nsha256: " + digest + "\n";
}

std::string CountedDigest()
{
    std::string digest;
    for (char byte = 0; byte < 32; ++byte) {
        digest += byte;
    }
    return digest;
}

} // namespace

TEST(Statement, IsFourLinesOfText)
{
    const Statement statement{"hello", 1234, CountedDigest()};

    EXPECT_EQ(TextOf(statement), StatementText("hello", "1234", kDigestText));
}

TEST(Statement, IsReadAsItWasWritten)
{
    for (const std::uint64_t length : {std::uint64_t{0}, std::uint64_t{22}, UINT64_MAX}) {
        const Statement statement{std::string(100, 'n'), length, CountedDigest()};

        EXPECT_EQ(ReadStatement(TextOf(statement)), statement);
        EXPECT_LT(TextOf(statement).size(), 1024U);
    }
}

TEST(Statement, HasOneWayToBeWritten)
{
    ASSERT_TRUE(ReadStatement(StatementText("a", "1", kDigestText)).has_value());
    const std::string good = StatementText("a", "1", kDigestText);
    const std::string capitals = "000102030405060708090A0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
    for (const std::string& text :
         {std::string(),
          good.substr(0, good.size() - 1),
          good + "\n",
          "x" + good,
          StatementText("", "1", kDigestText),
          StatementText("a b", "1", kDigestText),
          StatementText("a.temp", "1", kDigestText),
          StatementText("a", "", kDigestText),
          StatementText("a", "01", kDigestText),
          StatementText("a", "+1", kDigestText),
          StatementText("a", "-1", kDigestText),
          StatementText("a", " 1", kDigestText),
          StatementText("a", "1 ", kDigestText),
          StatementText("a", "0x1", kDigestText),
          StatementText("a", "18446744073709551616", kDigestText),
          StatementText("a", "1", capitals),
          StatementText("a", "1", kDigestText + "00"),
          StatementText("a", "1", kDigestText.substr(2)),
          StatementText("a", "1", ""),
          StatementText("a", "1", "zz" + kDigestText.substr(2)),
          StatementText("a", "1", kDigestText.substr(1)),
          "kx-update package signature, version 2\n" + good.substr(good.find('\n') + 1),
          StatementText("a\r", "1", kDigestText),
          StatementText("a\nname: b", "1", kDigestText)}) {
        EXPECT_FALSE(ReadStatement(text).has_value()) << text;
    }
}

} // namespace kx::signature
