// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What the check says of a description, against what the updater's own reader does with it.
#include "checks/DescriptionChecks.h"
#include "checks/Recipe.h"
#include "engine/q_UpdaterEngine.h"
#include "model/IPicoJ.h"
#include "model/UserPackageProjectReader.h"
#include "support/EngineFixture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace kx::checks
{

namespace
{

class DescriptionAgreement : public EngineFixture
{
protected:
    /// Tells whether the updater reads a description.
    bool IsRead(const std::string& bytes)
    {
        const std::string path = folder.Write("UserPackage.kx-project", bytes);
        q_UpdaterEngine::ChildlenMode = q_UpdaterEngine::kReadAll;
        try {
            return std::unique_ptr<IPicoJ>(UserPackageProjectReader::Imp_Read(path.c_str())) !=
                   nullptr;
        } catch (const std::runtime_error&) {
            return false;
        }
    }

    /// Compares both; a wrong class in a place is an error that the reader leaves to the steps.
    void Compare(const std::string& bytes)
    {
        Findings findings;
        static_cast<void>(CheckDescription(bytes, findings));
        std::size_t errors = 0;
        for (const Finding& finding : findings.All()) {
            const bool isRoot = finding.location.path == "$type";
            errors += finding.severity == Severity::kError &&
                              (finding.rule != RuleId::kTypePlace || isRoot)
                          ? 1
                          : 0;
        }
        const bool isRead = IsRead(bytes);
        ASSERT_EQ(errors == 0, isRead) << bytes << "\n"
                                       << testing::PrintToString(Problems(findings));
        reads += isRead ? 1 : 0;
        refusals += isRead ? 0 : 1;
    }

    TempDir folder;
    int reads = 0;
    int refusals = 0;
};

TEST_F(DescriptionAgreement, HoldsForEveryCutAndChangedByte)
{
    const std::string good = Recipe().description;
    std::mt19937 chance(1);
    Compare(good);
    for (int i = 0; i < 1500; ++i) {
        std::string bytes = good;
        const std::size_t at = chance() % bytes.size();
        switch (chance() % 4) {
        case 0:
            bytes.resize(at);
            break;
        case 1:
            bytes.erase(at, 1 + chance() % 20);
            break;
        default:
            bytes[at] = "{}[]\",: x0\\\0\xff"[chance() % 13];
        }
        ASSERT_NO_FATAL_FAILURE(Compare(bytes));
    }
    EXPECT_GT(reads, 100);
    EXPECT_GT(refusals, 200);
}

TEST_F(DescriptionAgreement, HoldsForMovedPieces)
{
    const std::string good = Recipe().description;
    std::mt19937 chance(2);
    const std::vector<std::string> words = {"\"$type\"",
                                            "\"$values\"",
                                            "true",
                                            "false",
                                            "null",
                                            "1",
                                            "[]",
                                            "{}",
                                            "\"\"",
                                            ", Plexa",
                                            "DB_CopyStepSet",
                                            "DB_StepSets",
                                            "DB_HardwareItem",
                                            "DB_ScriptFunctionData",
                                            "IsUsed",
                                            "CanSkip",
                                            "DB_CopyFunctionData",
                                            "Comment"};
    for (int i = 0; i < 1500; ++i) {
        std::string bytes = good;
        const std::string& from = words[chance() % words.size()];
        const std::string& to = words[chance() % words.size()];
        std::size_t at = bytes.find(from, chance() % bytes.size());
        at = at == std::string::npos ? bytes.find(from) : at;
        if (at != std::string::npos) {
            bytes.replace(at, from.size(), to);
        }
        ASSERT_NO_FATAL_FAILURE(Compare(bytes));
    }
    EXPECT_GT(reads, 100);
    EXPECT_GT(refusals, 200);
}

TEST_F(DescriptionAgreement, HoldsForOddTexts)
{
    for (const char* const text :
         {"", "\xef\xbb\xbf", "\xef\xbb\xbf{", "\xef\xbb\xbf{}", "\xef\xbb\xbf[]", "abc1", "abc{}",
          "abc{}x", "\xef\xbb\xbf\"x\"", "\xef\xbb\xbf//\n{}"}) {
        ASSERT_NO_FATAL_FAILURE(Compare(text));
    }
}

TEST(DescriptionChecks, TellTheLineAndColumn)
{
    Recipe recipe;
    recipe.Replace(R"("Date": "d")", R"("Date": 1)");

    Findings findings;
    static_cast<void>(CheckDescription(recipe.description, findings));

    ASSERT_EQ(findings.All().size(), 1U);
    EXPECT_EQ(findings.All()[0].location.at.line, 4U);
    EXPECT_EQ(findings.All()[0].location.at.column, 9U);
    EXPECT_EQ(findings.All()[0].what, "is a number, not a text");
}

TEST(DescriptionChecks, DoNotReadWhatIsNestedToDoHarm)
{
    std::string list = "[]";
    for (int i = 0; i < 40; ++i) {
        list.insert(0, R"([{"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": )").append("}]");
    }
    Recipe recipe;
    recipe.Replace(R"("ScriptData": "gone"})", R"("ScriptData": "gone"},
        "Other": {}})");
    recipe.description =
        "\xef\xbb\xbf{\"$type\": \"Zt.Plugins.DB_StepSets, Plexa\", \"$values\": " + list + "}";

    Findings findings;
    static_cast<void>(CheckDescription(recipe.description, findings));

    EXPECT_TRUE(findings.Has(RuleId::kListsNested));
    EXPECT_GT(findings.Count(Severity::kError), 1U);
}

TEST(DescriptionChecks, RefuseWhatIsTooLargeToBeOne)
{
    Findings findings;
    std::string many = "\xef\xbb\xbf[";
    for (int i = 0; i < 1000001; ++i) {
        many += "1,";
    }
    static_cast<void>(CheckDescription(many + "1]", findings));

    EXPECT_EQ(Problems(findings),
              std::vector<std::string>{"error description-size UserPackage.kx-project"});
}

} // namespace

} // namespace kx::checks
