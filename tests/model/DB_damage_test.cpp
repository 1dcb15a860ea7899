// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// One thing wrong in a whole document: every field of every object missing and of every wrong
// type, every problem with "$type", and list elements that are no objects.
#include "engine/q_UpdaterEngine.h"
#include "model/DescriptionTable.h"
#include "model/IPicoJ.h"
#include "model/UserPackageProjectReader.h"
#include "support/EngineFixture.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"

#include <memory>
#include <set>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

std::string NotAPackage(const std::string& path)
{
    return path + " file is not kx-package.\n"
                  " Root object of this file is not DB_KxUserProject.";
}

std::string NameOfDamage(const ::testing::TestParamInfo<DescriptionTable::Damage>& info)
{
    return info.param.name;
}

} // namespace

class DamagedDescription : public EngineFixture,
                           public ::testing::WithParamInterface<DescriptionTable::Damage>
{
protected:
    DamagedDescription()
        : m_path(m_dir.Write("UserPackage.kx-project",
                             ProjectBuilder::File(DescriptionTable::Spoiled(GetParam()))))
    {
    }

    TempDir m_dir;
    std::string m_path;
};

TEST_P(DamagedDescription, IsRefusedWithItsWholeChainOfMessages)
{
    EXPECT_EQ(UserPackageProjectReader::Imp_Read(m_path.c_str()), nullptr);

    std::vector<std::string> expected = DescriptionTable::ChainOf(GetParam());
    expected.push_back(NotAPackage(m_path));
    EXPECT_EQ(Lines(), expected);
}

TEST_P(DamagedDescription, IsRefusedByARootOnlyReadOnlyForTheRootsOwnFields)
{
    q_UpdaterEngine::ChildlenMode = 1;

    const std::unique_ptr<IPicoJ> root(UserPackageProjectReader::Imp_Read(m_path.c_str()));

    std::vector<std::string> expected = DescriptionTable::RootOnlyChainOf(GetParam());
    EXPECT_EQ(root == nullptr, !expected.empty());
    if (root == nullptr) {
        expected.push_back(NotAPackage(m_path));
    }
    EXPECT_EQ(Lines(), expected);
}

INSTANTIATE_TEST_SUITE_P(Everywhere, DamagedDescription,
                         ::testing::ValuesIn(DescriptionTable::AllDamages()), NameOfDamage);

using DamageTable = EngineFixture;

TEST_F(DamageTable, CoversAllThirteenClassesInAValidDocument)
{
    std::set<std::string> found;
    picojson::object document = DescriptionTable::WholeDocument();
    for (const DescriptionTable::Place& place : DescriptionTable::PlacesOf(document)) {
        found.insert(DescriptionTable::ObjectAt(document, place).at("$type").get<std::string>());
    }
    std::set<std::string> all;
    for (const DescriptionTable::Class& info : DescriptionTable::Classes()) {
        all.insert(info.type);
    }
    const TempDir dir;
    const std::string path = dir.Write("UserPackage.kx-project", ProjectBuilder::File(document));

    const std::unique_ptr<IPicoJ> root(UserPackageProjectReader::Imp_Read(path.c_str()));

    EXPECT_EQ(all.size(), 13U);
    EXPECT_EQ(found, all);
    EXPECT_NE(root, nullptr);
    EXPECT_THAT(Lines(), IsEmpty());
}

// The chain of one leaf, written out as a reader of the log sees it.
TEST_F(DamageTable, BuildsTheChainOfABrokenLeafFromTheInsideOut)
{
    picojson::object document = DescriptionTable::WholeDocument();
    picojson::object& step =
        ProjectBuilder::Element(ProjectBuilder::Child(document, "DB_StepSets"), 0);
    ProjectBuilder::Element(ProjectBuilder::Child(step, "PathSetDatas"), 0).erase("Permissions");
    const TempDir dir;
    const std::string path = dir.Write("p", ProjectBuilder::File(document));

    EXPECT_EQ(UserPackageProjectReader::Imp_Read(path.c_str()), nullptr);

    EXPECT_THAT(
        Lines(),
        ElementsAre(
            "No Zt.Plugins.DB_CopyFunctionData, Plexa.Permissions field specified in "
            ".kx-project .",
            "Initialized error in Zt.Plugins.DB_CopyFunctionData, Plexa class.",
            "Initialized error in Zt.Plugins.DB_CopyFunctionDatas, Plexa class.",
            "No Zt.Plugins.DB_CopyStepSet, Plexa.PathSetDatas field specified in .kx-project .",
            "Initialized error in Zt.Plugins.DB_CopyStepSet, Plexa class.",
            "Initialized error in Zt.Plugins.DB_StepSets, Plexa class.",
            "No Zt.Plugins.DB_KxUserProject, Plexa.DB_StepSets field specified in .kx-project .",
            "Initialized error in Zt.Plugins.DB_KxUserProject, Plexa class.", NotAPackage(path)));
}

TEST_F(DamageTable, AMissingDateFailsEvenInRootOnlyModeAndMissingStepsOnlyInFullMode)
{
    picojson::object withoutDate = DescriptionTable::WholeDocument();
    withoutDate.erase("Date");
    picojson::object withoutSteps = DescriptionTable::WholeDocument();
    withoutSteps.erase("DB_StepSets");
    q_UpdaterEngine::ChildlenMode = 1;

    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(withoutDate), nullptr);
    const std::unique_ptr<IPicoJ> root(q_UpdaterEngine::CreatePicoJObject(withoutSteps));
    EXPECT_NE(root, nullptr);
    q_UpdaterEngine::ChildlenMode = 0;
    EXPECT_EQ(q_UpdaterEngine::CreatePicoJObject(withoutSteps), nullptr);

    const std::string type = "Zt.Plugins.DB_KxUserProject, Plexa";
    const std::string end = "Initialized error in " + type + " class.";
    EXPECT_THAT(Lines(), ElementsAre(DescriptionTable::NoField(type, "Date"), end,
                                     DescriptionTable::NoField(type, "DB_StepSets"), end));
}
