// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Packages for each rule: faulty ones, spoiled in the thing that the rule is about and in nothing
// else, and their nearest clean neighbours.
#include "checks/RuleRow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace kx::checks
{

namespace
{

/// One package of a row.
struct RuleCase {
    const RuleRow* row;
    const std::string* value;
};

void PrintTo(const RuleCase& one, std::ostream* out)
{
    constexpr std::size_t kMost = 60;
    *out << one.row->id << ", " << (one.row->severity == kSilent ? "clean" : one.row->severity)
         << ": '" << one.value->substr(0, kMost) << "'";
}

std::vector<RuleCase> AllCases()
{
    std::vector<RuleCase> cases;
    for (const std::vector<RuleRow>* const rows :
         {&NameRows(), &ArchiveRows(), &EntryRows(), &SignatureRows(), &PathRows(), &UpdaterRows(),
          &DescriptionRows(), &ClassRows(), &StepRows(), &TargetRows(), &ScriptRows(),
          &SettingRows(), &PayloadRows()}) {
        for (const RuleRow& row : *rows) {
            for (const std::string& value : row.values) {
                cases.push_back({&row, &value});
            }
        }
    }
    return cases;
}

/// Where a row says that the finding is.
std::string PlaceOf(const RuleCase& one)
{
    std::string place = one.row->where;
    if (const std::size_t at = place.find('@'); at != std::string::npos) {
        place.replace(at, 1, *one.value);
    }
    return place;
}

class EveryRule : public testing::TestWithParam<RuleCase>
{
};

TEST_P(EveryRule, IsFoundWhereItAppliesAndThereAlone)
{
    const RuleRow& row = *GetParam().row;
    Recipe recipe;
    row.put(recipe, *GetParam().value);

    const Findings findings = recipe.Check();

    std::vector<std::string> found; // of the rule
    for (const Finding& finding : findings.All()) {
        if (RuleOf(finding.rule).id == std::string(row.id)) {
            const Location& place = finding.location;
            found.push_back(std::string(SeverityName(finding.severity)) + " " +
                            (row.where == nullptr ? ""
                             : place.path.empty() ? place.file
                                                  : place.path));
        }
    }
    const std::vector<std::string> problems = Problems(findings);
    if (row.severity == kSilent) {
        EXPECT_THAT(found, testing::IsEmpty());
    } else {
        const std::string place = row.where == nullptr ? "" : PlaceOf(GetParam());
        EXPECT_THAT(found, testing::Contains(row.severity + (" " + place)))
            << testing::PrintToString(problems);
    }
    if (row.isAlone) {
        const bool isProblem = row.severity != kSilent && row.severity != std::string(kNote);
        EXPECT_EQ(problems.size(), isProblem ? 1 : 0) << testing::PrintToString(problems);
    }
}

INSTANTIATE_TEST_SUITE_P(Rules, EveryRule, testing::ValuesIn(AllCases()),
                         [](const testing::TestParamInfo<RuleCase>& one) {
                             const RuleRow& row = *one.param.row;
                             std::string name = row.id + std::string("_") +
                                                (row.severity == kSilent ? "clean" : row.severity) +
                                                "_" + std::to_string(one.index);
                             for (char& c : name) {
                                 c = c == '-' ? '_' : c;
                             }
                             return name;
                         });

TEST(EveryRuleTable, HoldsAFaultyAndACleanPackageForEveryRule)
{
    std::map<std::string, int> faulty;
    std::map<std::string, int> clean;
    for (const RuleCase& one : AllCases()) {
        ++(one.row->severity == kSilent ? clean : faulty)[one.row->id];
    }

    std::map<std::string, int> known;
    for (std::size_t i = 0; i < static_cast<std::size_t>(RuleId::kEnd); ++i) {
        const char* const id = RuleOf(static_cast<RuleId>(i)).id;
        if (i >= static_cast<std::size_t>(RuleId::kManifestMistake)) {
            continue; // no package breaks them: found where manifests are read
        }
        ++known[id];
        EXPECT_GT(faulty[id], 0) << "no package breaks the rule " << id;
        EXPECT_GT(clean[id], 0) << "no package just keeps the rule " << id;
    }
    EXPECT_EQ(faulty.size(), known.size()) << "a row names a rule that there is not";
    EXPECT_EQ(clean.size(), known.size()) << "a row names a rule that there is not";
}

} // namespace

} // namespace kx::checks
