// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/CountingObject.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"
#include "model/DescriptionTable.h"
#include "model/UserPackageProjectReader.h"
#include "support/ProjectBuilder.h"
#include "support/TempDir.h"

#include <memory>
#include <stdexcept>

#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using namespace std::string_literals;
using picojson::object;
using picojson::value;

constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";

std::string NotAPackage(const std::string& path)
{
    return path + " file is not kx-package.\n"
                  " Root object of this file is not DB_KxUserProject.";
}

/// The bytes of a file and the one line that is said about it, in which "%s" is its path.
struct BadFile {
    std::string name;
    std::string bytes;
    std::vector<std::string> lines;
};

} // namespace

class ProjectReader : public OwnTableFixture
{
protected:
    /// Writes @p bytes to a file and reads it.
    [[nodiscard]] std::unique_ptr<IPicoJ> Read(const std::string& bytes)
    {
        m_path = m_dir.Write("UserPackage.kx-project", bytes);
        return std::unique_ptr<IPicoJ>(UserPackageProjectReader::Imp_Read(m_path.c_str()));
    }

    TempDir m_dir;
    std::string m_path;
};

class RefusedFile : public ProjectReader, public ::testing::WithParamInterface<BadFile>
{
};

TEST_P(RefusedFile, IsReportedAndGivesNoProject)
{
    EXPECT_EQ(Read(GetParam().bytes), nullptr);

    std::vector<std::string> expected;
    for (std::string line : GetParam().lines) {
        if (const auto place = line.find("%s"); place != std::string::npos) {
            line.replace(place, 2, m_path);
        }
        expected.push_back(line);
    }
    EXPECT_EQ(Lines(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, RefusedFile,
    ::testing::Values(
        BadFile{"Empty", "", {"%s file is corrupted."}},
        BadFile{"OneByte", "{", {"%s file is corrupted."}},
        BadFile{"TwoBytes", "{}", {"%s file is corrupted."}},
        BadFile{"AByteOrderMarkAlone", kByteOrderMark, {"%s file is corrupted."}},
        BadFile{"FourBytes", kByteOrderMark + "{"s, {" Unable to analyze the data in %s file."}},
        BadFile{"FourBytesWithABlank",
                kByteOrderMark + " "s,
                {" Unable to analyze the data in %s file."}},
        BadFile{"FourBytesWithAZeroByte",
                kByteOrderMark + "\0"s,
                {" Unable to analyze the data in %s file."}},
        BadFile{"FiveBytesWithAnEmptyObject",
                kByteOrderMark + "{}"s,
                {"$type is nothing", "%s file is not kx-package.\n"
                                     " Root object of this file is not DB_KxUserProject."}}),
    [](const auto& test) { return test.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Texts, RefusedFile,
    ::testing::Values(
        BadFile{"WithoutAByteOrderMark",
                ProjectBuilder::File(ProjectBuilder::Root()).substr(3),
                {" Unable to analyze the data in %s file."}},
        BadFile{"CutOff",
                ProjectBuilder::File(ProjectBuilder::Root()).substr(0, 100),
                {" Unable to analyze the data in %s file."}},
        BadFile{"CutByAZeroByte",
                ProjectBuilder::File(ProjectBuilder::Root()).insert(50, 1, '\0'),
                {" Unable to analyze the data in %s file."}},
        BadFile{"InUtf16", "\xFF\xFE{\0}\0"s, {" Unable to analyze the data in %s file."}},
        BadFile{"NoJson", kByteOrderMark + "hello"s, {" Unable to analyze the data in %s file."}},
        BadFile{"AnotherRoot",
                ProjectBuilder::File(ProjectBuilder::StepSets({})),
                {"%s file is not kx-package.\n"
                 " Root object of this file is not DB_KxUserProject."}},
        BadFile{"AnUnknownRoot",
                kByteOrderMark + R"({"$type":"Other"})"s,
                {"Other is unknown class.", "%s file is not kx-package.\n"
                                            " Root object of this file is not DB_KxUserProject."}}),
    [](const auto& test) { return test.param.name; });

TEST_F(ProjectReader, CannotAccessAMissingFile)
{
    EXPECT_EQ(UserPackageProjectReader::Imp_Read((m_dir / "none").c_str()), nullptr);

    EXPECT_THAT(Lines(), ElementsAre("Unable to access " + m_dir / "none" + " file."));
}

TEST_F(ProjectReader, CannotAccessAFolder)
{
    EXPECT_EQ(UserPackageProjectReader::Imp_Read(m_dir.Path().c_str()), nullptr);

    EXPECT_THAT(Lines(), ElementsAre("Unable to access " + m_dir.Path() + " file."));
}

TEST_F(ProjectReader, DoesNotWaitAtANamedPipe)
{
    const std::string pipe = m_dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    EXPECT_EQ(UserPackageProjectReader::Imp_Read(pipe.c_str()), nullptr);

    EXPECT_THAT(Lines(), ElementsAre("Unable to access " + pipe + " file."));
}

TEST_F(ProjectReader, NamesAnyPathAsItStands)
{
    for (const std::string& path : {""s, "%s%n"s, "/none/\xFF \"x\""s, std::string(5000, 'p')}) {
        EXPECT_EQ(UserPackageProjectReader::Imp_Read(path.c_str()), nullptr);
    }

    EXPECT_THAT(Lines(), ElementsAre("Unable to access  file.", "Unable to access %s%n file.",
                                     "Unable to access /none/\xFF \"x\" file.",
                                     "Unable to access " + std::string(5000, 'p') + " file."));
}

TEST_F(ProjectReader, ReadsAWholeDescription)
{
    const auto root = Read(ProjectBuilder::File(DescriptionTable::WholeDocument()));

    auto* const project = ObjectAs<DB_KxUserProject>(root.get());
    ASSERT_NE(project, nullptr);
    EXPECT_EQ(project->Title, "Line 4 recipes");
    ASSERT_NE(ObjectAs<DB_StepSets>(project->DB_StepSets), nullptr);
    EXPECT_EQ(ObjectAs<DB_StepSets>(project->DB_StepSets)->count, 3);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(ProjectReader, ReadsAnEmptyStepListAsAProjectWithoutSteps)
{
    const auto root = Read(ProjectBuilder::File(ProjectBuilder::Root()));

    ASSERT_NE(root, nullptr);
    EXPECT_EQ(ObjectAs<DB_StepSets>(ObjectAs<DB_KxUserProject>(root.get())->DB_StepSets)->count, 0);
}

TEST_F(ProjectReader, ReadsACompleteRootWithBrokenStepsInRootOnlyMode)
{
    object document = ProjectBuilder::Root({ProjectBuilder::ScriptStep("exit 0")});
    ProjectBuilder::Element(ProjectBuilder::Child(document, "DB_StepSets"), 0).clear();
    q_UpdaterEngine::ChildlenMode = 1;

    const auto root = Read(ProjectBuilder::File(document));

    ASSERT_NE(root, nullptr);
    EXPECT_EQ(ObjectAs<DB_KxUserProject>(root.get())->Date, "2024/05/17");
    EXPECT_EQ(ObjectAs<DB_KxUserProject>(root.get())->DB_StepSets, nullptr);
    EXPECT_EQ(q_UpdaterEngine::ChildlenMode, 1);
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(ProjectReader, DestroysARootOfAnotherClassAndLeavesItsChildren)
{
    RegisterCounted([](int /*round*/, object& obj) {
        if (obj.count("Child") != 0) {
            static_cast<void>(q_UpdaterEngine::CreatePicoJObject(obj["Child"].get<object>()));
        }
        return 0;
    });
    object root = Counted();
    root["Child"] = value(Counted());

    EXPECT_EQ(Read(ProjectBuilder::File(root)), nullptr);

    EXPECT_THAT(m_events,
                ElementsAre("new 1", "initialize 1", "new 2", "initialize 2", "delete 1"));
    EXPECT_THAT(Lines(), ElementsAre(NotAPackage(m_path)));
}

TEST_F(ProjectReader, RefusesARootOfEveryOtherClass)
{
    std::vector<std::string> expected;
    for (const DescriptionTable::Class& info : DescriptionTable::Classes()) {
        const auto root = Read(ProjectBuilder::File(DescriptionTable::Minimal(info)));
        EXPECT_EQ(root != nullptr, info.name == "DB_KxUserProject") << info.name;
        if (info.name != "DB_KxUserProject") {
            expected.push_back(NotAPackage(m_path));
        }
    }
    EXPECT_EQ(Lines(), expected);
}

class RootThatIsNoObject : public ProjectReader, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(RootThatIsNoObject, ThrowsWithoutAMessage)
{
    EXPECT_THROW(static_cast<void>(Read(std::string(kByteOrderMark) + GetParam())),
                 std::runtime_error);

    EXPECT_THAT(Lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Roots, RootThatIsNoObject,
                         ::testing::Values("[]", "[{}]", "7", "-1.5e3", "\"text\"", "true", "false",
                                           "null", " 7", "7}", "\"\"", "[1,2] trailing"));

TEST_F(ProjectReader, DoesNotLookAtTheNestingBehindARootThatIsNoObject)
{
    EXPECT_THROW(static_cast<void>(Read(kByteOrderMark + "7"s + std::string(2000, '['))),
                 std::runtime_error);
}

TEST_F(ProjectReader, ThrowsInRootOnlyModeToo)
{
    q_UpdaterEngine::ChildlenMode = 1;

    EXPECT_THROW(static_cast<void>(Read(kByteOrderMark + "[]"s)), std::runtime_error);
}

TEST_F(ProjectReader, ReleasesBufferAndDocumentOnEveryWayOut)
{
    // With the address sanitizer a leak of either fails the test binary.
    const std::string large(100000, 'x');
    object document = ProjectBuilder::Root();
    document["Comment"] = value(large);

    EXPECT_NE(Read(ProjectBuilder::File(document)), nullptr);
    EXPECT_EQ(Read(kByteOrderMark + "{\"a\":\""s + large), nullptr);
    EXPECT_EQ(Read(kByteOrderMark + "{\"a\":\""s + large + "\"}"), nullptr);
    EXPECT_THROW(static_cast<void>(Read(kByteOrderMark + "[\""s + large + "\"]")),
                 std::runtime_error);
}
