// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/MadePackage.h"
#include "rehearsal/Stage.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace kx::rehearsal
{

using Kind = VirtualPanel::Kind;
using testing::ElementsAre;

namespace
{

constexpr int kFailed = 256;
constexpr int kNotStarted = 32512;

constexpr auto kFileEntry = archive::PackageEntry::Kind::kFile;
constexpr auto kFolder = archive::PackageEntry::Kind::kFolder;
constexpr auto kLink = archive::PackageEntry::Kind::kLink;

class StageTest : public testing::Test
{
protected:
    StageTest() { plan.packageFile = "/mnt/usb/Foo.kx-update"; }

    /// What the marks of the last command are: A after a script, D read differently, U unknown.
    [[nodiscard]] std::string Marks() const
    {
        const PlannedCommand& last = plan.commands.back();
        return std::string(last.isAfterScript ? "A" : "") + (last.isReadDifferently ? "D" : "") +
               (last.isUnknown ? "U" : "");
    }

    static int Unpack(Stage& stage)
    {
        static_cast<void>(stage.Run(R"(mkdir -p "/mnt/usb/Foo.temp")"));
        return stage.Run(R"(unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" )");
    }

    VirtualPanel panel{""};
    MadePackage package;
    Plan plan;
};

TEST_F(StageTest, IsUpAsLongAsItLives)
{
    EXPECT_EQ(Stage::Current(), nullptr);
    {
        const Stage stage(panel, package, plan);
        EXPECT_EQ(Stage::Current(), &stage);
    }
    EXPECT_EQ(Stage::Current(), nullptr);
}

TEST_F(StageTest, UnpacksNothingWhereUnzipDoesNot)
{
    package.Add(kFileEntry, archive::kUpdaterName, "", 0755);
    package.unpackStatus = 1;
    Stage stage(panel, package, plan);

    EXPECT_EQ(Unpack(stage), kFailed);

    EXPECT_EQ(panel.KindOf("/mnt/usb/Foo.temp/kx_Updater"), Kind::kNone);
}

struct CommandCase {
    const char* name;
    const char* command;
    int status;
    const char* marks;
};

class StageCommand : public StageTest, public testing::WithParamInterface<CommandCase>
{
};

TEST_P(StageCommand, IsPlayedAndKept)
{
    ASSERT_TRUE(panel.MakeFile("/opt/file"));
    Stage stage(panel, package, plan);
    stage.SetStep(3);
    stage.SetProcess(PlannedCommand::Process::kInstaller);

    EXPECT_EQ(stage.Run(GetParam().command), GetParam().status);

    ASSERT_EQ(plan.commands.size(), 1U);
    EXPECT_EQ(plan.commands[0].command, GetParam().command);
    EXPECT_EQ(plan.commands[0].step, 3);
    EXPECT_EQ(plan.commands[0].process, PlannedCommand::Process::kInstaller);
    EXPECT_EQ(Marks(), GetParam().marks);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, StageCommand,
    testing::Values(
        CommandCase{"Sync", "sync", 0, ""},
        CommandCase{"Wprotect", "/usr/bin/kxsystem/wprotect_off", 0, ""},
        CommandCase{"Mkdir", R"(mkdir -p "/opt/new")", 0, ""},
        CommandCase{"MkdirOverAFile", R"(mkdir -p "/opt/file")", kFailed, ""},
        CommandCase{"MkdirVariable", R"(mkdir -p "/opt/$HOME")", 0, "D"},
        CommandCase{"MkdirLoneDollar", R"(mkdir -p "/opt/file/$")", kFailed, ""},
        CommandCase{"Copy", R"(cp -f "/opt/file" "/opt/new" )", 0, ""},
        CommandCase{"CopyNothing", R"(cp -f "/opt/gone" "/opt/new" )", kFailed, ""},
        CommandCase{"CopyToNoName", R"(cp -f "/opt/file" "" )", kFailed, ""},
        CommandCase{"CopyQuotedSource", R"(cp -f "/opt/a"b" "/opt/new" )", 0, "D"},
        CommandCase{"CopyBackquotedTarget", R"(cp -f "/opt/gone" "/opt/`x`" )", 0, "D"},
        CommandCase{"CopyBackslashAtTheSourcesEnd", R"(cp -f "/opt/a\" "/opt/b" )", 0, "D"},
        CommandCase{"CopyBackslashInside", R"(cp -f "/opt/a\b" "/opt/b" )", kFailed, ""},
        CommandCase{"CopyTree", R"(cp -f -r "/mnt" "/opt/new" )", 0, ""},
        CommandCase{"CopyTreeInto", R"(cp -f -r "/mnt" "/opt" )", 0, ""},
        CommandCase{"CopyTreeOfOneFile", R"(cp -f -r "/opt/file" "/opt/new" )", 0, ""},
        CommandCase{"CopyTreeBelowNothing", R"(cp -f -r "/mnt" "/opt/x/y" )", kFailed, ""},
        CommandCase{"CopyTreeOverAFile", R"(cp -f -r "/mnt" "/opt/file" )", kFailed, ""},
        CommandCase{"CopyTreeVariable", R"(cp -f -r "/mnt" "/opt/$X" )", 0, "D"},
        CommandCase{"Remove", R"(rm -r "/opt/file")", 0, ""},
        CommandCase{"RemoveNothing", R"(rm -r "/opt/gone")", kFailed, ""},
        CommandCase{"RemoveVariable", R"(rm -r "/opt/${X}")", 0, "D"},
        CommandCase{"Chmod", R"(chmod 755 "/opt/file" )", 0, ""},
        CommandCase{"ChmodSymbolic", R"(chmod u+x,go-w "/opt/file" )", 0, ""},
        CommandCase{"ChmodFolder", R"(chmod 777 "/opt/" )", 0, ""},
        CommandCase{"ChmodOfTheScript", R"(chmod +x "/opt/file")", 0, ""},
        CommandCase{"ChmodOfNoScript", R"(chmod +x "/opt/gone")", kFailed, ""},
        CommandCase{"ChmodAsked", R"(chmod --help "/opt/file" )", 0, ""},
        CommandCase{"ChmodAskedWithBlanks", R"(chmod  --version "/opt/gone" )", 0, "D"},
        CommandCase{"ChmodNoMode", R"(chmod 99 "/opt/file" )", kFailed, ""},
        CommandCase{"ChmodNothing", R"(chmod 755 "/opt/gone" )", kFailed, ""},
        CommandCase{"ChmodNoName", R"(chmod 755 "" )", kFailed, ""},
        CommandCase{"ChmodMore", R"(chmod 755 "/x" "/opt/gone" )", 0, "D"},
        CommandCase{"ChmodTwoModes", R"(chmod 755 644 "/opt/gone" )", 0, "D"},
        CommandCase{"ChmodSemicolon", R"(chmod 755; "/opt/gone" )", 0, "D"},
        CommandCase{"ChmodPattern", R"(chmod * "/opt/gone" )", 0, "D"},
        CommandCase{"Script", "\"/tmp/Zt/temp.sh\"", 0, "U"},
        CommandCase{"Password", "echo 'user:pass word$' | chpasswd", 0, "U"},
        CommandCase{"PasswordQuote", "echo 'user:it's' | chpasswd", 0, "DU"},
        CommandCase{"Settings", "kx-setting-cui set Level=8 Mute=off ", 0, "U"},
        CommandCase{"SettingsVariable", "kx-setting-cui set Level=$X ", 0, "DU"},
        CommandCase{"SettingsPattern", "kx-setting-cui set Level=* ", 0, "DU"},
        CommandCase{"SettingsComment", "kx-setting-cui set Level=1 #=2 ", 0, "DU"},
        CommandCase{"UnpackVariable", R"(unzip -o "/mnt/usb/$X" -d "/mnt/usb/Foo.temp" )", 0, "D"},
        CommandCase{"UnpackToVariable", R"(unzip -o "/mnt/usb/Foo" -d "/mnt/usb/$X" )", 0, "D"},
        CommandCase{"Umount", "/usr/bin/kxsystem/usb_umount", 0, ""},
        CommandCase{"Reboot", "/sbin/reboot", 0, ""}),
    [](const auto& row) { return row.param.name; });

class StageUnknownCommand : public StageTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(StageUnknownCommand, IsAFaultOfTheProgramAndNoSuccess)
{
    Stage stage(panel, package, plan);
    std::string thrown;

    try {
        static_cast<void>(stage.Run(GetParam()));
    } catch (const UnknownCommand& error) {
        thrown = error.what();
    }

    EXPECT_EQ(thrown, std::string("the updater runs a command that the rehearsal does not know, "
                                  "which is a fault of this program and not of the package: ") +
                          GetParam());
    EXPECT_TRUE(plan.commands.empty());
}

INSTANTIATE_TEST_SUITE_P(Commands, StageUnknownCommand,
                         testing::Values("ls /", "", "sync now", "/sbin/reboot -f", "rm \"/opt\"",
                                         "cp \"/opt/a\" \"/opt/b\" ", "\"/tmp/Zt/other.sh\"",
                                         "mv \"/opt/a\" \"/opt/b\"", "cp -f \"/opt/a\"",
                                         "kx-setting-cui get Level"));

TEST_F(StageTest, ALineLongerThanTheKernelTakesIsNotStarted)
{
    Stage stage(panel, package, plan);
    const std::string begin = "kx-setting-cui set ";

    EXPECT_EQ(stage.Run(begin + std::string(131071 - begin.size(), 'x')), 0);
    EXPECT_EQ(stage.Run(begin + std::string(131072 - begin.size(), 'x')), kNotStarted);
    EXPECT_EQ(plan.commands.size(), 2U);
}

TEST_F(StageTest, ALineThatIsNotStartedDoesNothing)
{
    Stage stage(panel, package, plan);
    ASSERT_TRUE(panel.MakeFile("/opt/file"));
    const std::string dots = "/" + std::string(131072, '/');

    EXPECT_EQ(stage.Run("rm -r \"/opt" + dots + "/../file\""), kNotStarted);

    EXPECT_EQ(panel.KindOf("/opt/file"), Kind::kFile);
}

TEST_F(StageTest, CopiesATreeWithAllThatIsInIt)
{
    ASSERT_TRUE(panel.MakeFolder("/opt/from/empty"));
    ASSERT_TRUE(panel.MakeFolder("/opt/from/deep/er"));
    ASSERT_TRUE(panel.MakeFile("/opt/from/deep/er/file"));
    Stage stage(panel, package, plan);

    EXPECT_EQ(stage.Run(R"(cp -f -r "/opt/from" "/opt/new" )"), 0);
    EXPECT_EQ(stage.Run(R"(cp -f -r "/opt/from" "/opt/new" )"), 0);

    EXPECT_EQ(panel.KindOf("/opt/new/empty"), Kind::kFolder);
    EXPECT_EQ(panel.KindOf("/opt/new/deep/er/file"), Kind::kFile);
    EXPECT_EQ(panel.KindOf("/opt/new/from/deep/er/file"), Kind::kFile);
}

TEST_F(StageTest, ATreeOfWhichAPartCannotBeCopiedIsAFailure)
{
    ASSERT_TRUE(panel.MakeFolder("/opt/from/a"));
    ASSERT_TRUE(panel.MakeFile("/opt/from/b"));
    ASSERT_TRUE(panel.MakeFolder("/opt/new/from"));
    ASSERT_TRUE(panel.MakeFile("/opt/new/from/a"));
    Stage stage(panel, package, plan);

    EXPECT_EQ(stage.Run(R"(cp -f -r "/opt/from" "/opt/new" )"), kFailed);

    EXPECT_EQ(panel.KindOf("/opt/new/from/b"), Kind::kFile) << "cp goes on";
}

TEST_F(StageTest, MarksWhatTheShellReadsInWordsWithoutQuotes)
{
    Stage stage(panel, package, plan);
    for (char c = 1; c > 0 && c < 0x7f; ++c) {
        const bool isRead = std::string(";&|<>()$`\\\"'*?[#~\n").find(c) != std::string::npos;
        const bool isBlank = c == ' ' || c == '\t';
        ASSERT_EQ(stage.Run(std::string("kx-setting-cui set Level=") + c + " "), 0);
        EXPECT_EQ(Marks(), isRead ? "DU" : "U") << "setting " << c;
        static_cast<void>(stage.Run(std::string("chmod u") + c + "x \"/opt\" "));
        EXPECT_EQ(Marks(), isRead || isBlank ? "D" : "") << "mode " << c;
    }
}

// ---- what a script may have changed ----

TEST_F(StageTest, MarksTheCommandWhoseTurnALookDecidedAfterAScript)
{
    Stage stage(panel, package, plan);
    static_cast<void>(stage.LookAt("/opt/before"));
    static_cast<void>(stage.Run(R"(mkdir -p "/opt/before")"));
    EXPECT_EQ(Marks(), "");

    static_cast<void>(stage.Run("\"/tmp/Zt/temp.sh\""));
    static_cast<void>(stage.Run("sync"));
    EXPECT_EQ(Marks(), "") << "no look decided it";
    static_cast<void>(stage.LookAt("/opt/after"));
    static_cast<void>(stage.Run(R"(mkdir -p "/opt/after")"));
    EXPECT_EQ(Marks(), "A");
    static_cast<void>(stage.Run("sync"));
    EXPECT_EQ(Marks(), "") << "its own look is long past";
}

TEST_F(StageTest, TheUnpackedPackageIsNoScriptsBusinessTheDriveIs)
{
    Stage stage(panel, package, plan);
    static_cast<void>(stage.Run("\"/tmp/Zt/temp.sh\""));

    static_cast<void>(stage.LookAt("/mnt/usb/Foo.temp/0/0/a"));
    static_cast<void>(stage.Run("sync"));
    EXPECT_EQ(Marks(), "");
    static_cast<void>(stage.LookAt("/mnt/usb/other"));
    static_cast<void>(stage.Run("sync"));
    EXPECT_EQ(Marks(), "A");
}

// ---- unpacking ----

TEST_F(StageTest, UnpacksFilesFoldersAndLinks)
{
    package.Add(kFileEntry, "0/0/app", "a");
    package.Add(kFolder, "1/0/empty");
    package.Add(kLink, "1/0/link", "../../0/0");
    package.Add(kFileEntry, "UserPackage.kx-project", "description");
    Stage stage(panel, package, plan);

    EXPECT_EQ(Unpack(stage), 0);

    EXPECT_THAT(panel.Names("/mnt/usb/Foo.temp"), ElementsAre("0", "1", "UserPackage.kx-project"));
    EXPECT_EQ(panel.KindOf("/mnt/usb/Foo.temp/1/0/link/app"), Kind::kFile);
    EXPECT_EQ(panel.KindOf("/mnt/usb/Foo.temp/1/0/empty"), Kind::kFolder);
    EXPECT_EQ(*stage.ContentOf("/mnt/usb/Foo.temp/UserPackage.kx-project"), "description");
    EXPECT_EQ(stage.ContentOf("/mnt/usb/Foo.temp/0/0/app"), nullptr) << "nobody reads it";
}

TEST_F(StageTest, ReadsTheDescriptionThatALinkLeadsTo)
{
    package.Add(kFileEntry, "sub/real", "description");
    package.Add(kLink, "second", "sub/real");
    package.Add(kLink, "UserPackage.kx-project", "second");
    Stage stage(panel, package, plan);

    EXPECT_EQ(Unpack(stage), 0);

    const VirtualPanel::Bytes bytes = stage.ContentOf("/mnt/usb/Foo.temp/UserPackage.kx-project");
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(*bytes, "description");
}

/// Lists in lists, each of which doubles the objects that are read: 2 ^ count - 1.
std::string Doubled(int count)
{
    std::string lists;
    for (int i = 0; i < count; ++i) {
        lists += R"({"$values": [)";
    }
    return lists;
}

TEST_F(StageTest, ADescriptionOfFourMillionObjectsIsRead)
{
    package.Add(kFileEntry, "UserPackage.kx-project", Doubled(22));
    Stage stage(panel, package, plan);

    EXPECT_EQ(Unpack(stage), 0);
}

TEST_F(StageTest, ADescriptionWithoutEndIsRefused)
{
    package.Add(kFileEntry, "UserPackage.kx-project", Doubled(23));
    Stage stage(panel, package, plan);

    EXPECT_EQ(Thrown([&] { static_cast<void>(Unpack(stage)); }),
              "1: Foo.kx-update:UserPackage.kx-project: takes too long to read: there are too many "
              "objects in it, and each list doubles what stands in it; look for lists in lists");
}

TEST_F(StageTest, ADamagedDescriptionIsAnError)
{
    package.Add(kFileEntry, "UserPackage.kx-project", "damaged");
    Stage stage(panel, package, plan);

    EXPECT_EQ(Thrown([&] { static_cast<void>(Unpack(stage)); }),
              "3: UserPackage.kx-project: is damaged");
}

TEST_F(StageTest, FindsTheUpdaterAsTheWindowDoes)
{
    package.Add(kFileEntry, "program", "", 0755);
    package.Add(kLink, "kx_Updater", "program");
    Stage stage(panel, package, plan);
    static_cast<void>(Unpack(stage));

    EXPECT_TRUE(stage.CanStartUpdater(false));
}

TEST_F(StageTest, FindsTheUpdaterThatAnybodyMayExecute)
{
    for (const unsigned mode : {0755U, 0100U, 0010U, 0001U, 0641U, 0654U}) {
        VirtualPanel fresh("");
        MadePackage made;
        made.Add(kFileEntry, "kx_Updater", "", mode);
        Stage stage(fresh, made, plan);
        static_cast<void>(Unpack(stage));

        EXPECT_TRUE(stage.CanStartUpdater(false)) << std::oct << mode;
    }
}

TEST_F(StageTest, FindsNoUpdaterThatCannotBeExecuted)
{
    for (const unsigned mode : {0644U, 0U, 0666U, 04222U}) {
        VirtualPanel fresh("");
        MadePackage made;
        made.Add(kFileEntry, "kx_Updater", "", mode);
        Stage stage(fresh, made, plan);
        static_cast<void>(Unpack(stage));

        EXPECT_FALSE(stage.CanStartUpdater(false)) << std::oct << mode;
        EXPECT_TRUE(stage.CanStartUpdater(true)) << "the window was told another one";
    }
}

TEST_F(StageTest, AFolderIsNoUpdater)
{
    package.Add(kFolder, "kx_Updater", "", 0755);
    Stage stage(panel, package, plan);
    static_cast<void>(Unpack(stage));

    EXPECT_FALSE(stage.CanStartUpdater(false));
}

TEST_F(StageTest, FindsNoUpdaterInAFolderOfForeignLetters)
{
    package.Add(kFileEntry, "kx_Updater", "", 0755);
    plan.packageFile = "/mnt/usb/F\xc3\xb6\xc3\xb6.kx-update";
    Stage stage(panel, package, plan);
    static_cast<void>(stage.Run("mkdir -p \"/mnt/usb/F\xc3\xb6\xc3\xb6.temp\""));
    static_cast<void>(
        stage.Run("unzip -o \"" + plan.packageFile + "\" -d \"/mnt/usb/F\xc3\xb6\xc3\xb6.temp\" "));

    EXPECT_FALSE(stage.CanStartUpdater(false));
    EXPECT_FALSE(stage.CanStartUpdater(true));
}

// ---- what goes wrong ----

TEST_F(StageTest, TheNextCommandThrowsWhatALookCouldNot)
{
    Stage stage(panel, package, plan);
    for (const char* const text : {"first", "second"}) {
        try {
            throw io::Error(io::ExitCode::kNoAccess, "/x", text);
        } catch (...) {
            stage.Keep();
        }
    }

    EXPECT_EQ(Thrown([&stage] { static_cast<void>(stage.Run("sync")); }), "3: /x: first");
    EXPECT_TRUE(plan.commands.empty());
}

TEST_F(StageTest, ALookThatIsTooMuchIsToldByTheNextCommand)
{
    const TempDir root;
    root.Write("huge", "x");
    ASSERT_EQ(truncate((root / "huge").c_str(), off_t{1} << 40), 0);
    VirtualPanel given(root.Path());
    Stage stage(given, package, plan);

    EXPECT_EQ(stage.SizeOf("/huge"), std::uint64_t{1} << 40U);
    EXPECT_EQ(stage.ContentOf("/huge"), nullptr);

    EXPECT_EQ(Thrown([&stage] { static_cast<void>(stage.Run("sync")); }),
              "3: " + root / "huge" + ": is larger than 256.0 MiB");
}

TEST_F(StageTest, APlanWithoutEndEnds)
{
    Stage stage(panel, package, plan);
    const std::string text(1U << 20U, 'x');

    const std::string thrown = Thrown([&] {
        for (int i = 0; i < 300; ++i) {
            static_cast<void>(stage.Run(text));
        }
    });

    EXPECT_EQ(thrown, "1: Foo.kx-update: its installation takes more commands than can be planned; "
                      "look for links that multiply its folders: find . -type l");
    EXPECT_EQ(plan.commands.size(), 255U);
}

} // namespace

} // namespace kx::rehearsal
