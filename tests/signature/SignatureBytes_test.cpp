// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/SignatureBytes.h"
#include "signature/SignedOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace kx::signature
{

namespace
{

using namespace std::string_literals;

/// n, n/2, and n less n/2, of P-256.
const std::string kN =
    "\xff\xff\xff\xff\0\0\0\0\xff\xff\xff\xff\xff\xff\xff\xff\xbc\xe6\xfa\xad\xa7"
    "\x17\x9e\x84\xf3\xb9\xca\xc2\xfc\x63\x25\x51"s;
const std::string kHalfN = "\x7f\xff\xff\xff\x80\0\0\0\x7f\xff\xff\xff\xff\xff\xff\xff\xde\x73\x7d"
                           "\x56\xd3\x8b\xcf\x42\x79\xdc\xe5\x61\x7e\x31\x92\xa8"s;
const std::string kOverHalfN = kHalfN.substr(0, 31) + "\xa9";
/// The order of Ed25519's base point, least significant byte first.
const std::string kL = "\xed\xd3\xf5\x5c\x1a\x63\x12\x58\xd6\x9c\xf7\xa2\xde\xf9\xde\x14"s +
                       std::string(15, '\0') + "\x10";

std::string Small(char last)
{
    return std::string(31, '\0') + last;
}

} // namespace

TEST(SignatureBytes, OfP256HaveTheSmallerSAndNumbersInTheGroup)
{
    EXPECT_TRUE(IsCanonical(KeyType::kP256, Small(1) + Small(1)));
    EXPECT_TRUE(IsCanonical(KeyType::kP256, Small(1) + kHalfN));
    EXPECT_FALSE(IsCanonical(KeyType::kP256, Small(1) + kOverHalfN));
    EXPECT_FALSE(IsCanonical(KeyType::kP256, Small(1) + kN));
    EXPECT_FALSE(IsCanonical(KeyType::kP256, kN + Small(1)));
    EXPECT_FALSE(IsCanonical(KeyType::kP256, Small(0) + Small(1)));
    EXPECT_FALSE(IsCanonical(KeyType::kP256, Small(1) + Small(0)));
    EXPECT_FALSE(IsCanonical(KeyType::kP256, Small(1) + Small(1) + "x"));
    EXPECT_FALSE(IsCanonical(KeyType::kP256, ""));
}

TEST(SignatureBytes, OfEd25519HaveSBelowTheOrder)
{
    std::string below = kL;
    below.front() = '\xec';
    EXPECT_TRUE(IsCanonical(KeyType::kEd25519, std::string(32, '\xff') + below));
    EXPECT_FALSE(IsCanonical(KeyType::kEd25519, std::string(32, '\0') + kL));
    EXPECT_FALSE(IsCanonical(KeyType::kEd25519, std::string(63, '\0')));
    EXPECT_FALSE(IsCanonical(KeyType::kEd25519, std::string(65, '\0')));
}

TEST(SignatureBytes, BecomeCanonical)
{
    EXPECT_EQ(P256FromRaw(Small(1) + kOverHalfN), Small(1) + kHalfN);
    EXPECT_EQ(P256FromRaw(Small(1) + Small(9)), Small(1) + Small(9));
    EXPECT_EQ(P256FromDer("\x30\6\2\1\7\2\1\x09"s), Small(7) + Small(9));
    EXPECT_EQ(P256ToDer(Small(7) + Small(9)), "\x30\6\2\1\7\2\1\x09"s);
}

TEST(SignatureBytes, AreRefusedWhenTheyAreNone)
{
    for (const std::string& der : {""s, "\x30\6\2\1\7\2\1"s, "\x30\6\2\1\7\2\1\x09x"s,
                                   "\x30\6\2\1\0\2\1\x09"s, "\x30\6\2\1\xff\2\1\x09"s, "x"s}) {
        EXPECT_FALSE(P256FromDer(der).has_value());
    }
    EXPECT_FALSE(P256FromRaw(Small(1)).has_value());
    EXPECT_FALSE(P256FromRaw(Small(1) + kN).has_value());
}

} // namespace kx::signature
