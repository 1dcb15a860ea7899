// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "common/Progress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

namespace kx::tool
{

namespace
{

/// Shows progress for longer than the moment in which nothing is shown.
std::string ShownDuringLongWork(bool isWatched)
{
    std::ostringstream out;
    std::ostringstream err;
    {
        Progress progress({out, err, false, false, isWatched}, "packing");
        progress.Show(0.1);
        std::this_thread::sleep_for(std::chrono::milliseconds(310));
        progress.Show(0.5);
        progress.Show(0.501);
        progress.Show(1.0);
    }
    return err.str() + out.str();
}

} // namespace

TEST(Progress, ShowsABarThatIsGoneAtTheEnd)
{
    EXPECT_EQ(ShownDuringLongWork(true), "\rpacking [###############               ] 50 %"
                                         "\rpacking [##############################] 100 %"
                                         "\r\x1b[K");
}

TEST(Progress, ShowsNothingWhenNobodyWatches)
{
    EXPECT_EQ(ShownDuringLongWork(false), "");
}

TEST(Progress, ShowsNothingOfShortWork)
{
    std::ostringstream err;
    {
        Progress progress({err, err, false, false, true}, "packing");
        progress.Show(0.5);
    }

    EXPECT_EQ(err.str(), "");
}

} // namespace kx::tool
