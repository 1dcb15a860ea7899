// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/PackageName.h"

#include <gtest/gtest.h>

#include <string>

namespace kx::signature
{

TEST(PackageName, TakesLettersDigitsAndThreeMarks)
{
    for (const std::string name : {"a", "Z", "0", "hello", "Hello-1.0_b", "a.b.c", "x-", "a..b"}) {
        EXPECT_TRUE(IsSafePackageName(name)) << name;
    }
    EXPECT_TRUE(IsSafePackageName(std::string(100, 'x')));
}

TEST(PackageName, RefusesAllThatPathsShellsAndRecordsCouldTakeForMore)
{
    for (const std::string name :
         {"",    ".",         "..",   ".a",     "-a",       "_a",    "a/b",
          "a b", "Hello (1)", "a\"b", "a$b",    "a`b",      "a\\b",  "a:b",
          "a*",  "a\nb",      "é",    "a.temp", "a.temp.b", ".temp", "a\x7f"}) {
        EXPECT_FALSE(IsSafePackageName(name)) << name;
    }
    EXPECT_FALSE(IsSafePackageName(std::string(101, 'x')));
    EXPECT_FALSE(IsSafePackageName(std::string("a\0b", 3)));
}

} // namespace kx::signature
