// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What the rules have to do with each other.
#include "checks/RuleRow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

namespace kx::checks
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CheckPackage, FindsNoProblemInAGoodPackage)
{
    EXPECT_THAT(Problems(Recipe().Check()), IsEmpty());
    EXPECT_THAT(Problems(Recipe().CheckFolder()), IsEmpty());
}

TEST(CheckPackage, OnlyWarnsOfAFailureThatTheStepMaySkip)
{
    Recipe recipe;
    recipe.Replace("\"CanSkip\": false", "\"CanSkip\": true");
    recipe.Replace("bin/hello", "bin/other");

    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre(std::string("warning payload-name ") + kSource0));
}

TEST(CheckPackage, TellsAllProblemsAtOnce)
{
    Recipe recipe;
    recipe.fileName = "a$b.kx-update";
    recipe.Replace("\"755\"", "\"rwx\"");
    recipe.Replace("\"5\"", "\"5 6\"");
    recipe.Part("kx_Updater").mode = 0100644;

    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre("error name-shell ", "error updater-mode kx_Updater",
                            std::string("error permissions ") + kMode0,
                            "error setting-blank " ITEM("0", "0", "Value")));
}

TEST(CheckPackage, NamesTheNearestOfTheFilesInTheItemsOwnFolder)
{
    Recipe recipe;
    recipe.Part("0/0/hello").name = "0/0/aa";
    recipe.parts.push_back({"0/0/hallo", ""});
    recipe.parts.push_back({"0/0/a/hello2", ""});
    EXPECT_EQ(recipe.Check().All().front().what,
              "there is no '0/0/hello', but there is '0/0/hallo'");

    Recipe far;
    far.Part("0/0/hello").name = "0/0/zz";
    far.parts.push_back({"0/0/a/hello", ""});
    EXPECT_EQ(far.Check().All().front().what, "there is no '0/0/hello', but there is '0/0/zz'");
}

TEST(CheckPackage, KeepsABoundedNumberOfFindingsOfARule)
{
    Recipe recipe;
    for (int i = 0; i < 150; ++i) {
        recipe.parts.push_back({"unused" + std::to_string(i), ""});
    }

    const Findings findings = recipe.Check();

    EXPECT_EQ(Problems(findings).size(), Findings::kMostOfARule);
    EXPECT_EQ(findings.Count(Severity::kWarning), 150U);
    EXPECT_EQ(findings.Omitted(RuleId::kPayloadUnused), 50U);
}

TEST(CheckPackage, TellsADescriptionThatIsTooLargeInsteadOfCheckingItsBeginning)
{
    constexpr std::size_t kMost = std::size_t{64} << 20;
    Recipe recipe;
    recipe.description.resize(kMost + 1, ' ');

    EXPECT_THAT(Problems(recipe.CheckFolder()),
                ElementsAre("error description-size UserPackage.kx-project"));
}

TEST(CheckPackage, SaysWhatFailsWhereNoRuleDoes)
{
    Recipe recipe;
    recipe.Replace("/opt/hello", "/mnt/usb/hello.temp/0/0/hello");
    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre(std::string("error installation-fails ") + kStep0,
                            std::string("warning target-lost ") + kTarget0));
    EXPECT_EQ(recipe.Check().All().front().what,
              "step 1 fails: File copy error(= 256) is corrupted. From "
              "/mnt/usb/hello.temp/0/0/hello to /mnt/usb/hello.temp/0/0/hello  (Permissions=755)");

    Recipe unrecorded;
    unrecorded.Replace("/opt/hello", "/var/lib/KxUserPackages/hello");
    EXPECT_EQ(unrecorded.Check().All().front().what,
              "The steps succeed, but the package cannot be recorded.");
}

TEST(CheckPackage, OfAStepThatFailsAnErrorOfAnotherStepSaysNothing)
{
    Recipe recipe;
    recipe.Replace("/opt/hello", "/mnt/usb/hello.temp/0/0/hello");
    recipe.Replace("\"5\"", "\"5 6\"");

    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre("error setting-blank " ITEM("0", "0", "Value"),
                            std::string("error installation-fails ") + kStep0,
                            std::string("warning target-lost ") + kTarget0));
}

TEST(CheckPackage, OnlyWarnsOfAMissingUpdaterInAFolder)
{
    Recipe recipe;
    recipe.parts.erase(recipe.parts.begin());

    EXPECT_THAT(Problems(recipe.CheckFolder()), ElementsAre("warning updater-missing "));
}

TEST(CheckPackage, MindsOfAFoldersNameOnlyWhatTheRecordGets)
{
    const std::vector<std::pair<std::string, std::vector<std::string>>> rows = {
        {"hello", {}},
        {"hello.temp", {}},
        {"hello.zip", {}},
        {"a*b", {}},
        {"h\xc3\xa4llo", {"error installation-fails "}}, // the window does not find its updater
        {"a.temp.b", {"warning name-temp "}},
        {"a.temp.temp", {"warning name-temp "}},
        {".temp", {"error name-empty ", "warning name-temp "}},
        {"a$b", {"error name-shell "}},
        {"a:b", {"error name-separator "}},
    };
    for (const auto& [name, problems] : rows) {
        Recipe recipe;
        recipe.folderName = name;
        EXPECT_EQ(Problems(recipe.CheckFolder()), problems) << name;
    }
}

TEST(CheckPackage, SaysNothingOfADescriptionThatDoesNotArrive)
{
    Recipe recipe;
    recipe.Replace("\"755\"", "\"rwx\"");
    recipe.damage = [](std::string& zip) {
        archive::Patch(zip, archive::kCentral, 6, std::string(1, char{63}));
    };

    EXPECT_THAT(Problems(recipe.Check()),
                ElementsAre("error entry-version UserPackage.kx-project"));
}

TEST(CheckPackage, WarnsOfWhatIsNeitherFileNorFolder)
{
    Recipe recipe;
    recipe.parts.push_back({"1/0/pipe", "", 0010600});

    EXPECT_THAT(Problems(recipe.CheckFolder()), ElementsAre("warning entry-link 1/0/pipe"));
}

TEST(CheckPackage, WarnsOfAFoldersUpdaterThatIsNotExecutable)
{
    Recipe recipe;
    recipe.Part("kx_Updater").mode = 0100644;
    EXPECT_THAT(Problems(recipe.CheckFolder()), ElementsAre("warning updater-mode kx_Updater"));

    recipe.Part("kx_Updater").mode = 0100700;
    EXPECT_THAT(Problems(recipe.CheckFolder()), IsEmpty());
}

TEST(CheckPackage, FollowsTheLinksOfAFolder)
{
    Recipe recipe;
    recipe.Part("0/0/hello").content = "../../1/0/a";
    recipe.Part("0/0/hello").mode = 0120777;
    EXPECT_THAT(Problems(recipe.CheckFolder()), ElementsAre("warning entry-link 0/0/hello"));

    recipe.Part("0/0/hello").content = "../../../hello";
    EXPECT_THAT(Problems(recipe.CheckFolder()),
                ElementsAre("error payload-link 0/0/hello", "warning entry-link 0/0/hello"));
}

} // namespace

} // namespace kx::checks
