// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// UserPackageInstaller: its start and end, and its two ways of reading the description.
#include "engine/DeletionWatch.h"
#include "engine/UserPackageInstaller.h"
#include "engine/q_UpdaterEngine.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"
#include "support/EngineFixture.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"

#include <memory>
#include <stdexcept>
#include <type_traits>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PackageReading : public EngineFixture
{
protected:
    /// Writes the description with these bytes and points the installer at it.
    void Write(const std::string& bytes)
    {
        m_package->projectFile = m_dir.Write("UserPackage.kx-project", bytes);
    }

    void WriteTitled(const char* title)
    {
        ProjectBuilder::Object root = ProjectBuilder::Root();
        root["Title"] = ProjectBuilder::Text(title);
        Write(ProjectBuilder::File(root));
    }

    TempDir m_dir;
    std::unique_ptr<UserPackageInstaller> m_package = std::make_unique<UserPackageInstaller>();
};

TEST_F(PackageReading, StartsWithNothing)
{
    static_assert(std::has_virtual_destructor_v<UserPackageInstaller>);

    EXPECT_EQ(m_package->packageDir, "");
    EXPECT_EQ(m_package->projectFile, "");
    EXPECT_FALSE(m_package->removeUnpacked);
    EXPECT_EQ(m_package->Project(), nullptr);
}

TEST_F(PackageReading, ReadsTheWholeDescription)
{
    WriteTitled("whole");
    q_UpdaterEngine::ChildlenMode = 1;

    EXPECT_EQ(m_package->ReadKxProjectFile(), 0);

    EXPECT_EQ(q_UpdaterEngine::ChildlenMode, 0);
    ASSERT_NE(m_package->Project(), nullptr);
    EXPECT_EQ(m_package->Project()->Title, "whole");
    EXPECT_NE(m_package->Project()->DB_StepSets, nullptr);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(PackageReading, ReadsOnlyTheRootAndLeavesTheModeSet)
{
    WriteTitled("root only");

    EXPECT_EQ(m_package->ReadRootOnlyKxProjectFile(), 0);

    EXPECT_EQ(q_UpdaterEngine::ChildlenMode, 1);
    ASSERT_NE(m_package->Project(), nullptr);
    EXPECT_EQ(m_package->Project()->Title, "root only");
    EXPECT_EQ(m_package->Project()->DB_StepSets, nullptr);
}

TEST_F(PackageReading, FailsWithTheReadersMessage)
{
    m_package->projectFile = m_dir / "none";

    EXPECT_EQ(m_package->ReadKxProjectFile(), 2001);
    EXPECT_EQ(m_package->ReadRootOnlyKxProjectFile(), 2001);

    EXPECT_EQ(m_package->Project(), nullptr);
    const std::string line = "Unable to access " + m_dir / "none" + " file.";
    EXPECT_THAT(Lines(), ElementsAre(line, line));
}

TEST_F(PackageReading, LetsTheExceptionOfARootThatIsNoObjectPass)
{
    Write("\xEF\xBB\xBF[]");

    EXPECT_THROW(static_cast<void>(m_package->ReadKxProjectFile()), std::runtime_error);
    EXPECT_THROW(static_cast<void>(m_package->ReadRootOnlyKxProjectFile()), std::runtime_error);
}

TEST_F(PackageReading, ReplacesAnEarlierDescriptionWithoutDestroyingIt)
{
    WriteTitled("first");
    ASSERT_EQ(m_package->ReadKxProjectFile(), 0);
    const std::unique_ptr<const DB_KxUserProject> first(m_package->Project());
    WriteTitled("second");
    const DeletionWatch watch(first.get());

    EXPECT_EQ(m_package->ReadKxProjectFile(), 0);

    EXPECT_FALSE(watch.IsDeleted());
    EXPECT_EQ(first->Title, "first");
    EXPECT_EQ(m_package->Project()->Title, "second");
}

TEST_F(PackageReading, ForgetsAnEarlierDescriptionWhenTheNextOneFails)
{
    WriteTitled("first");
    ASSERT_EQ(m_package->ReadKxProjectFile(), 0);
    const std::unique_ptr<const DB_KxUserProject> first(m_package->Project());
    Write("");

    EXPECT_EQ(m_package->ReadKxProjectFile(), 2001);

    EXPECT_EQ(m_package->Project(), nullptr);
}

TEST_F(PackageReading, EndsWithTheRootDestroyedAndItsChildrenAlive)
{
    WriteTitled("title");
    ASSERT_EQ(m_package->ReadKxProjectFile(), 0);
    const std::unique_ptr<IPicoJ> steps(m_package->Project()->DB_StepSets);
    bool isRootDeleted = false;
    {
        const DeletionWatch watch(m_package->Project());
        m_package.reset();
        isRootDeleted = watch.IsDeleted();
    }

    EXPECT_TRUE(isRootDeleted);
    EXPECT_STREQ(steps->ClassType(), "Zt.Plugins.DB_StepSets, Plexa");
}

TEST_F(PackageReading, EndsWellWithoutADescription)
{
    const DeletionWatch watch(m_package.get());

    m_package.reset();

    EXPECT_TRUE(watch.IsDeleted());
}
