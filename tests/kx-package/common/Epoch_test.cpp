// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "common/Epoch.h"
#include "support/Environment.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace kx::tool
{

TEST(SourceDateEpoch, IsNothingWhenItIsNotSetOrEmpty)
{
    const Environment unset("SOURCE_DATE_EPOCH", nullptr);
    EXPECT_EQ(SourceDateEpoch(), std::nullopt);

    const Environment empty("SOURCE_DATE_EPOCH", "");
    EXPECT_EQ(SourceDateEpoch(), std::nullopt);
}

TEST(SourceDateEpoch, IsANumberOfSeconds)
{
    const Environment set("SOURCE_DATE_EPOCH", "1700000000");

    EXPECT_EQ(SourceDateEpoch(), 1700000000);

    const Environment first("SOURCE_DATE_EPOCH", "0");
    EXPECT_EQ(SourceDateEpoch(), 0);
    const Environment last("SOURCE_DATE_EPOCH", "4354819199");
    EXPECT_EQ(SourceDateEpoch(), 4354819199);
}

TEST(SourceDateEpoch, RefusesWhatNoPackageCanHold)
{
    for (const char* const text : {"x", "12x", "-1", "4354819200", "99999999999999999999", " 1"}) {
        const Environment set("SOURCE_DATE_EPOCH", text);

        EXPECT_EQ(Thrown([] { static_cast<void>(SourceDateEpoch()); }),
                  std::string("2: SOURCE_DATE_EPOCH: is '") + text +
                      "', which is not a time from 1970 to 2107; set it to seconds since 1970, or "
                      "unset it");
    }
}

TEST(DateText, IsTheDayInUniversalTimeWhateverTheTimeZone)
{
    const Environment zone("TZ", "Asia/Tokyo");
    tzset();

    EXPECT_EQ(DateText(1700000000), "2023/11/14");
    EXPECT_EQ(DateText(0), "1970/01/01");
}

} // namespace kx::tool
