// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Hex.h"

#include <gtest/gtest.h>

namespace kx::io
{

TEST(Hex, HasTwoDigitsForEveryByte)
{
    EXPECT_EQ(Hex(""), "");
    EXPECT_EQ(Hex(std::string_view("\0\x09\x0a\x7f\x80\xff", 6)), "00090a7f80ff");
}

} // namespace kx::io
