// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/HistoryText.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kx::guard
{

namespace
{

PastInstallation FailedPast()
{
    PastInstallation past;
    past.id = 12;
    past.began = 86400;
    past.file = "d.kx-update";
    past.name = "demo";
    past.version = "1.2";
    past.signer = "factory";
    past.lines = {{0, "**** Installation step 1/2"}, {61500, "cp: no\x1b room"}};
    past.omittedLines = 3;
    past.omittedAt = 1;
    past.ending = {Outcome::kFailed, 101, Speaker::kUpdater, "step 1 failed"};
    return past;
}

PastInstallation RefusedPast()
{
    PastInstallation past;
    past.id = 13;
    past.file = "e.kx-update";
    past.reasons = {{"model", "Wrong model.", "Get another.", "違う。", "別の。"}};
    past.ending = {Outcome::kRefused, 1, Speaker::kPanel, ""};
    return past;
}

std::string PastTextOf(const PastInstallation& past)
{
    std::ostringstream out;
    WritePast({out, out}, past);
    return out.str();
}

} // namespace

TEST(MomentText, IsInUniversalTime)
{
    EXPECT_EQ(MomentText(0), "1970-01-01 00:00:00 UTC");
    EXPECT_EQ(MomentText(1769860800), "2026-01-31 12:00:00 UTC");
    EXPECT_EQ(MomentText(INT64_MAX), "9223372036854775807");
}

TEST(SummaryLine, TellsWhoseTheExitStatusIs)
{
    EXPECT_EQ(SummaryLine(FailedPast()),
              "12  1970-01-02 00:00:00 UTC  demo 1.2  failed, exit status "
              "101 of the updater");
    EXPECT_EQ(SummaryLine(RefusedPast()), "13  1970-01-01 00:00:00 UTC  e.kx-update  refused, exit "
                                          "status 1 of kx-panel");

    PastInstallation running = FailedPast();
    running.ending.reset();
    EXPECT_EQ(SummaryLine(running), "12  1970-01-02 00:00:00 UTC  demo 1.2  running");
    running.ending = {Outcome::kInstalled, 0, Speaker::kUpdater, ""};
    EXPECT_EQ(SummaryLine(running), "12  1970-01-02 00:00:00 UTC  demo 1.2  installed");
}

TEST(WritePast, HasTheLinesAndSaysWhereSomeAreLeftOut)
{
    EXPECT_EQ(PastTextOf(FailedPast()), "12  demo 1.2: failed, exit status 101 of the updater\n"
                                        "  began:     1970-01-02 00:00:00 UTC\n"
                                        "  file:      d.kx-update\n"
                                        "  signed by: factory\n"
                                        "  message:   step 1 failed\n"
                                        "  what was printed:\n"
                                        "    0 s  **** Installation step 1/2\n"
                                        "    (3 lines left out)\n"
                                        "    61 s  cp: no\\x1b room\n");

    PastInstallation past = FailedPast();
    past.omittedAt = 2;
    EXPECT_NE(PastTextOf(past).find("room\n    (3 lines left out)\n"), std::string::npos);
}

TEST(WritePast, HasTheReasons)
{
    EXPECT_EQ(PastTextOf(RefusedPast()), "13  e.kx-update: refused, exit status 1 of kx-panel\n"
                                         "  began:     1970-01-01 00:00:00 UTC\n"
                                         "  file:      e.kx-update\n"
                                         "  reason:    Wrong model.  [model]\n");
}

TEST(PastAsJson, HasTheLinesWhereTheyAreWanted)
{
    EXPECT_EQ(PastAsJson(FailedPast(), true).serialize(),
              R"({"began":86400,"file":"d.kx-update","from":"updater","id":12,"lines":)"
              R"([{"milliseconds":0,"text":"**** Installation step 1\/2"},)"
              R"({"milliseconds":61500,"text":"cp: no\u001b room"}],"message":"step 1 failed",)"
              R"("name":"demo","omittedAt":1,"omittedLines":3,"reasons":[],"result":"failed",)"
              R"("signer":"factory","status":101,"version":"1.2"})");
    EXPECT_EQ(
        PastAsJson(RefusedPast(), false).serialize(),
        R"({"began":0,"file":"e.kx-update","from":"kx-panel","id":13,"message":null,)"
        R"("name":null,"reasons":[{"id":"model","remedy":{"en":"Get another.","ja":"別の。"},)"
        R"("what":{"en":"Wrong model.","ja":"違う。"}}],"result":"refused","signer":null,)"
        R"("status":1,"version":null})");

    PastInstallation running = RefusedPast();
    running.ending.reset();
    EXPECT_EQ(PastAsJson(running, false).get("from").serialize(), "null");
    EXPECT_EQ(PastAsJson(running, false).get("status").serialize(), "null");
    EXPECT_EQ(PastAsJson(running, false).get("result").serialize(), "\"running\"");
}

} // namespace kx::guard
