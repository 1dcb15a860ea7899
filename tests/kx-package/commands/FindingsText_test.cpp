// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/FindingsText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <picojson.h>

#include <sstream>

namespace kx::tool
{

namespace
{

checks::Findings SomeFindings()
{
    checks::Findings findings;
    findings.Add(checks::RuleId::kPayloadMissing, {"UserPackage.kx-project", "DB_StepSets", {3, 7}},
                 "there is no '0/0/\x1b[2J' in the package");
    findings.Add(checks::RuleId::kPayloadUnused, checks::Location::Entry("9\xff"),
                 "no step uses it");
    findings.Add(checks::RuleId::kPayloadUnused, checks::Location::Entry("8"), "no step uses it");
    findings.Add(checks::RuleId::kNameNeighbour, checks::Location::Whole(),
                 "in the same folder there is 'b.kx-update'");
    return findings;
}

std::string Told(bool isJson, bool hasColour = false)
{
    std::ostringstream out;
    std::ostringstream err;
    const Output output{out, err, isJson, hasColour};
    WriteFindings(output, {Checked("a.kx-update", SomeFindings(), false)});
    EXPECT_EQ(err.str(), "");
    return out.str();
}

TEST(WriteFindings, TellsPeopleEverythingOnce)
{
    EXPECT_EQ(Told(false), R"(error: payload-missing: UserPackage.kx-project:3:7 DB_StepSets
  there is no '0/0/\x1b[2J' in the package
  On the panel: `cp` fails, and with it the installation.
  Remedy: Put the file into the folder named by step and item; both numbers start at 0.
warning: payload-unused: 9\xff
  no step uses it
  On the panel: It is unpacked and deleted again.
  Remedy: Remove it, or correct the number of its folder.
warning: payload-unused: 8
  no step uses it
note: name-neighbour: a.kx-update
  in the same folder there is 'b.kx-update'
  On the panel: With both on one drive, the window installs neither.
  Remedy: Copy only one of them to the drive.
a.kx-update: 1 error, 2 warnings, 1 note
)");
}

TEST(WriteFindings, ColoursBySeverity)
{
    const std::string text = Told(false, true);

    EXPECT_NE(text.find("\x1b[31merror: payload-missing\x1b[0m: "), std::string::npos);
    EXPECT_NE(text.find("\x1b[33mwarning: payload-unused\x1b[0m: "), std::string::npos);
    EXPECT_NE(text.find("\x1b[90mnote: name-neighbour\x1b[0m: "), std::string::npos);
    EXPECT_NE(text.find("a.kx-update: \x1b[31m1 error, 2 warnings, 1 note\x1b[0m\n"),
              std::string::npos);
}

TEST(WriteFindings, ColoursTheSumByTheWorstOfThem)
{
    const auto sumOf = [](const checks::Findings& findings) {
        std::ostringstream out;
        WriteFindings({out, out, false, true}, {Checked("a.kx-update", findings, false)});
        return out.str().substr(out.str().rfind("a.kx-update: "));
    };
    checks::Findings findings;
    EXPECT_EQ(sumOf(findings), "a.kx-update: \x1b[32m0 errors, 0 warnings, 0 notes\x1b[0m\n");

    findings.Add(checks::RuleId::kNameNeighbour, checks::Location::Whole(), "is near");
    EXPECT_EQ(sumOf(findings), "a.kx-update: \x1b[32m0 errors, 0 warnings, 1 note\x1b[0m\n");

    checks::Findings warnings;
    warnings.Add(checks::RuleId::kPayloadUnused, checks::Location::Entry("8"), "no step uses it");
    EXPECT_EQ(sumOf(warnings), "a.kx-update: \x1b[33m0 errors, 1 warning, 0 notes\x1b[0m\n");
}

TEST(WriteFindings, TellsHowManyOfAKindAreNotListed)
{
    checks::Findings findings;
    for (std::size_t i = 0; i < checks::Findings::kMostOfARule + 3; ++i) {
        findings.Add(checks::RuleId::kPayloadUnused, checks::Location::Entry("8"), "unused");
    }
    std::ostringstream text;
    WriteFindings({text, text}, {Checked("a.kx-update", findings, false)});
    EXPECT_THAT(text.str(), testing::HasSubstr("\n  (3 more of this kind are not listed)\n"));

    std::ostringstream json;
    WriteFindings({json, json, true}, {Checked("a.kx-update", findings, false)});
    picojson::value told;
    ASSERT_EQ(picojson::parse(told, json.str()), "");
    EXPECT_EQ(told.get("omitted").serialize(), R"({"payload-unused":3})");
    EXPECT_TRUE(told.get("clean").get<bool>());
}

TEST(WriteFindings, TellsProgramsTheSame)
{
    picojson::value told;
    ASSERT_EQ(picojson::parse(told, Told(true)), "");

    const picojson::object& document = told.get<picojson::object>();
    EXPECT_EQ(document.at("package").get<std::string>(), "a.kx-update");
    EXPECT_FALSE(document.at("clean").get<bool>());
    EXPECT_EQ(document.at("errors").get<double>(), 1);
    EXPECT_EQ(document.at("warnings").get<double>(), 2);
    EXPECT_EQ(document.at("notes").get<double>(), 1);
    EXPECT_EQ(document.at("omitted").get<picojson::object>().size(), 0U);
    const picojson::array& findings = document.at("findings").get<picojson::array>();
    ASSERT_EQ(findings.size(), 4U);
    EXPECT_EQ(
        findings[0].serialize(),
        R"({"happens":"`cp` fails, and with it the installation.","id":"payload-missing",)"
        R"("message":"there is no '0\/0\/\u001b[2J' in the package",)"
        R"("place":{"column":7,"file":"UserPackage.kx-project","line":3,"path":"DB_StepSets"},)"
        R"("remedy":"Put the file into the folder named by step and item; both numbers start )"
        R"(at 0.","severity":"error"})");
    EXPECT_EQ(findings[1].get("place").serialize(), R"({"file":"9\\xff"})");
    EXPECT_EQ(findings[3].get("place").serialize(), "{}");
}

TEST(WriteFindings, TellsSeveralPackagesOneAfterTheOther)
{
    const std::vector<Checked> all = {Checked("a", SomeFindings(), false), Checked("b", {}, false)};
    std::ostringstream text;
    WriteFindings({text, text, false, false}, all);
    EXPECT_NE(text.str().find("a: 1 error, 2 warnings, 1 note\nb: 0 errors, 0 warnings, 0 notes\n"),
              std::string::npos);

    std::ostringstream json;
    WriteFindings({json, json, true, false}, all);
    picojson::value document;
    EXPECT_EQ(picojson::parse(document, json.str()), "");
    EXPECT_FALSE(document.get("clean").get<bool>());
    ASSERT_EQ(document.get("packages").get<picojson::array>().size(), 2U);
    EXPECT_EQ(document.get("packages").get(1).get("package").get<std::string>(), "b");
    EXPECT_TRUE(document.get("packages").get(1).get("clean").get<bool>());
}

TEST(WriteProblems, LeavesOutNotesAndSaysNothingWithoutProblems)
{
    std::ostringstream text;
    const Output output{text, text, false, false};
    checks::Findings notes;
    notes.Add(checks::RuleId::kNameNeighbour, checks::Location::Whole(), "x");
    WriteProblems(text, output, Checked("a", notes, true));
    EXPECT_EQ(text.str(), "");

    WriteProblems(text, output, Checked("a", SomeFindings(), true));
    EXPECT_EQ(text.str().find("name-neighbour"), std::string::npos);
    EXPECT_NE(text.str().find("warning: payload-unused: 8\n"), std::string::npos);
    EXPECT_NE(text.str().find("a: 1 error, 2 warnings, 1 note\n"), std::string::npos);
}

TEST(Checked, CountsWarningsOnlyWhenItIsStrict)
{
    checks::Findings warning;
    warning.Add(checks::RuleId::kPayloadUnused, checks::Location::Whole(), "x");
    EXPECT_TRUE(Checked("a", warning, false).isClean);
    EXPECT_FALSE(Checked("a", warning, true).isClean);
    EXPECT_FALSE(Checked("a", SomeFindings(), false).isClean);
    EXPECT_TRUE(Checked("a", {}, true).isClean);
}

} // namespace

} // namespace kx::tool
