// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/InstallText.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kx::guard
{

namespace
{

Installed InstalledWell()
{
    Installed done;
    done.path = "d.kx-update";
    done.installation.decision.facts.name = "demo";
    done.installation.decision.facts.signer = "factory";
    done.installation.decision.facts.title = "Demo";
    done.installation.decision.facts.version = "1.2";
    done.installation.ending = {Outcome::kInstalled, 0, Speaker::kUpdater, ""};
    done.installation.historyId = 7;
    return done;
}

std::string InstalledTextOf(const Installed& done)
{
    std::ostringstream out;
    WriteInstalled({out, out}, done, Language::kEnglish);
    return out.str();
}

} // namespace

TEST(WriteInstalled, NamesThePackage)
{
    EXPECT_EQ(InstalledTextOf(InstalledWell()),
              "d.kx-update: installed: Demo 1.2 (demo), signed by factory\n"
              "See \"kx-panel history 7\".\n");
}

TEST(WriteInstalled, TellsWhoseTheExitStatusIsAndWhatHappened)
{
    Installed done = InstalledWell();
    done.installation.ending = {Outcome::kFailed, 101, Speaker::kUpdater, ""};
    EXPECT_EQ(InstalledTextOf(done),
              "d.kx-update: failed, exit status 101 of the updater: Demo 1.2 (demo), "
              "signed by factory\nSee \"kx-panel history 7\".\n");

    done.installation.ending = {Outcome::kError, 3, Speaker::kPanel, "the disk is full"};
    done.installation.decision.reasons = {{ReasonId::kUnread, {"no"}}};
    done.installation.historyId = 0;
    done.problems = {io::Error(io::ExitCode::kProblems, "keys/a.pem", "is no key")};
    EXPECT_EQ(InstalledTextOf(done), "d.kx-update: error, exit status 3 of kx-panel\n"
                                     "   the disk is full\n"
                                     "Remark: keys/a.pem: is no key\n");
}

TEST(WriteInstalled, TellsTheReasonsOfARefusal)
{
    Installed done = InstalledWell();
    done.installation.decision.reasons = {{ReasonId::kSignatureMissing, {}}};
    done.installation.ending = {Outcome::kRefused, 1, Speaker::kPanel, ""};

    EXPECT_EQ(InstalledTextOf(done),
              "d.kx-update: refused\n"
              "1. The package is not signed, and this panel installs only signed ones.  "
              "[signature-missing]\n"
              "   Get the signed package from its maker.\n"
              "See \"kx-panel history 7\".\n");
}

TEST(InstalledAsJson, HasTheDecisionAndTheEnd)
{
    Installed done = InstalledWell();
    EXPECT_EQ(picojson::value(InstalledAsJson(done)).serialize(),
              R"({"accepted":true,"facts":{"entries":null,"model":null,"name":"demo",)"
              R"("osVersion":null,"signatureBytes":0,"signer":"factory","title":"Demo",)"
              R"("unpackedBytes":null,"version":"1.2"},"from":"updater","historyId":7,)"
              R"("message":null,"package":"d.kx-update","problems":[],"reasons":[],)"
              R"("result":"installed","status":0})");

    done.installation.ending = {Outcome::kStopped, 3, Speaker::kPanel, "asked to end"};
    done.installation.historyId = 0;
    const picojson::value json(InstalledAsJson(done));
    EXPECT_EQ(json.get("from").serialize(), "\"kx-panel\"");
    EXPECT_EQ(json.get("historyId").serialize(), "null");
    EXPECT_EQ(json.get("message").serialize(), "\"asked to end\"");
    EXPECT_EQ(json.get("status").serialize(), "3");
}

TEST(RoadText, TellsStepsAndLinesAsTheyCome)
{
    std::ostringstream out;
    std::ostringstream err;
    const cli::Output output{out, err, false, false, false, "kx-panel"};
    RoadText road(output);

    for (const RoadStep step : {RoadStep::kClearing, RoadStep::kLooking, RoadStep::kCopying,
                                RoadStep::kDeciding, RoadStep::kUnpacking, RoadStep::kInstalling}) {
        road.OnStep(step);
    }
    road.OnLine("**** Installation step 1/2\x1b");
    road.OnRemark("the updater goes on");

    EXPECT_EQ(out.str(), "== Looking for what an earlier installation left\n"
                         "== Looking at the package\n"
                         "== Copying the package\n"
                         "== Deciding\n"
                         "== Unpacking\n"
                         "== Installing\n"
                         "**** Installation step 1/2\\x1b\n");
    EXPECT_EQ(err.str(), "kx-panel: the updater goes on\n");
}

TEST(RoadText, IsSilentWhereJsonIsWanted)
{
    std::ostringstream out;
    const cli::Output output{out, out, true};
    RoadText road(output);

    road.OnStep(RoadStep::kCopying);
    road.OnLine("line");
    road.OnRemark("remark");

    EXPECT_EQ(out.str(), "");
}

} // namespace kx::guard
