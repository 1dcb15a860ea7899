// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Options::ComformUpPath: the check of the folder on the USB flash drive.
#include "app/Options.h"
#include "support/TempDir.h"

#include <QCoreApplication>
#include <QString>
#include <QTranslator>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::AnyOf;

namespace
{

constexpr const char* kUntouched = "untouched";

/// What a check gave.
struct Outcome {
    int result;
    std::string message; ///< UTF-8; kUntouched when the check left it alone
};

Outcome Check(Options& options)
{
    QString message = QString::fromLatin1(kUntouched);
    const int result = options.ComformUpPath(message);
    return {result, message.toStdString()};
}

struct FolderCase {
    std::string name;
    std::vector<std::string> files;
    std::string message;   ///< kUntouched for a usable folder
    std::string foundFile; ///< name in the folder; empty when none is found
};

} // namespace

class UpDirWithFiles : public ::testing::TestWithParam<FolderCase>
{
};

TEST_P(UpDirWithFiles, IsUsableWithExactlyOnePackage)
{
    const TempDir dir;
    for (const std::string& file : GetParam().files) {
        dir.Write(file, "content");
    }
    const std::vector<std::string> before = dir.Tree();
    Options options;
    options.upDir = dir.Path();

    const Outcome outcome = Check(options);

    EXPECT_EQ(outcome.result != 0, GetParam().message == kUntouched);
    EXPECT_EQ(outcome.message, GetParam().message);
    EXPECT_EQ(options.upFile,
              GetParam().foundFile.empty() ? "" : dir.Path() + "/" + GetParam().foundFile);
    EXPECT_EQ(options.upDir, dir.Path());
    EXPECT_EQ(dir.Tree(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Folders, UpDirWithFiles,
    ::testing::Values(
        FolderCase{"OnePackage", {"a.kx-update"}, kUntouched, "a.kx-update"},
        FolderCase{
            "OnePackageInOtherCase", {"a.kx-update", "b.KX-UPDATE"}, kUntouched, "a.kx-update"},
        FolderCase{"OnePackageAmongOthers",
                   {"a.txt", "b.kx-update", "c.kx-update.bak", "d.kx-updates", "ekx-update"},
                   kUntouched,
                   "b.kx-update"},
        FolderCase{"TwoDotsInTheName", {"a.b.kx-update"}, kUntouched, "a.b.kx-update"},
        FolderCase{"AHiddenPackage", {".a.kx-update"}, kUntouched, ".a.kx-update"},
        FolderCase{"StrangeBytes", {"%s \xFF\".kx-update"}, kUntouched, "%s \xFF\".kx-update"},
        FolderCase{"ALongName",
                   {std::string(240, 'n') + ".kx-update"},
                   kUntouched,
                   std::string(240, 'n') + ".kx-update"},
        FolderCase{"AFolderNamedLikeAPackage", {"a.kx-update/file"}, kUntouched, "a.kx-update"},
        FolderCase{"Empty", {}, "ER_MSG03", ""},
        FolderCase{"OtherExtensionsOnly", {"a.zip", "b.KX-update", "kx-update"}, "ER_MSG03", ""},
        FolderCase{"TheExtensionAlone", {".kx-update"}, "ER_MSG03", ""},
        FolderCase{"ABlankBehindTheExtension", {"a.kx-update "}, "ER_MSG03", ""},
        FolderCase{"APackageInAFolder", {"sub/a.kx-update"}, "ER_MSG03", ""}),
    [](const auto& test) { return test.param.name; });

TEST(ComformUpPath, RefusesTwoPackages)
{
    const TempDir dir;
    const std::string a = dir.Write("a.kx-update", "");
    const std::string b = dir.Write("b.kx-update", "");
    Options options;
    options.upDir = dir.Path();

    const Outcome outcome = Check(options);

    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.message, "ER_MSG02");
    EXPECT_THAT(options.upFile, AnyOf(a, b));
}

TEST(ComformUpPath, AcceptsConsoleModeAtOnceWhateverUpDirHolds)
{
    const TempDir dir;
    dir.Write("a.kx-update", "");
    dir.Write("b.kx-update", "");
    for (const std::string& upDir : {std::string(), dir.Path(), dir / "none"}) {
        Options options;
        options.unzipedDir = "/tmp/none";
        options.upDir = upDir;

        const Outcome outcome = Check(options);

        EXPECT_NE(outcome.result, 0);
        EXPECT_EQ(outcome.message, kUntouched);
        EXPECT_EQ(options.upFile, "");
    }
}

TEST(ComformUpPath, CannotRecogniseAFolderThatDoesNotExist)
{
    const TempDir dir;
    for (const std::string& upDir : {dir / "none", std::string(5000, 'p')}) {
        Options options;
        options.upDir = upDir;

        const Outcome outcome = Check(options);

        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.message, "ER_MSG05");
    }
}

TEST(ComformUpPath, FindsNothingInAFileGivenAsFolder)
{
    const TempDir dir;
    Options options;
    options.upDir = dir.Write("a.kx-update", "");

    const Outcome outcome = Check(options);

    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.message, "ER_MSG03");
}

TEST(ComformUpPath, KeepsATrailingMarkOfTheFolder)
{
    const TempDir dir;
    dir.Write("a.kx-update", "");
    Options options;
    options.upDir = dir.Path() + "/";

    EXPECT_NE(Check(options).result, 0);

    EXPECT_EQ(options.upFile, dir.Path() + "//a.kx-update");
}

TEST(ComformUpPath, SeesTheResultOfAnEarlierCall)
{
    const TempDir dir;
    const TempDir empty;
    dir.Write("a.kx-update", "");
    Options options;
    options.upDir = dir.Path();
    EXPECT_NE(Check(options).result, 0);

    EXPECT_EQ(Check(options).message, "ER_MSG02");
    options.upDir = empty.Path();
    EXPECT_NE(Check(options).result, 0);

    EXPECT_EQ(options.upFile, dir / "a.kx-update");
}

namespace
{

struct TranslatedCase {
    std::string name;
    std::string language; ///< "en", "ja", or empty for no translator
    std::string bug01;
    std::string msg02;
    std::string msg03;
    std::string msg05;
};

} // namespace

class TranslatedUpDirMessages : public ::testing::TestWithParam<TranslatedCase>
{
protected:
    TranslatedUpDirMessages()
    {
        if (!GetParam().language.empty()) {
            const std::string file = ":/res/q_Updater_" + GetParam().language + ".qm";
            EXPECT_TRUE(m_translator.load(QString::fromStdString(file)));
            QCoreApplication::installTranslator(&m_translator);
        }
    }
    ~TranslatedUpDirMessages() override { QCoreApplication::removeTranslator(&m_translator); }

    static std::string MessageFor(const std::string& upDir)
    {
        Options options;
        options.upDir = upDir;
        return Check(options).message;
    }

private:
    QTranslator m_translator;
};

TEST_P(TranslatedUpDirMessages, AreShownInTheInstalledLanguage)
{
    const TempDir empty;
    const TempDir two;
    two.Write("a.kx-update", "");
    two.Write("b.kx-update", "");

    EXPECT_EQ(MessageFor(""), GetParam().bug01);
    EXPECT_EQ(MessageFor(two.Path()), GetParam().msg02);
    EXPECT_EQ(MessageFor(empty.Path()), GetParam().msg03);
    EXPECT_EQ(MessageFor(empty / "none"), GetParam().msg05);
}

INSTANTIATE_TEST_SUITE_P(
    Languages, TranslatedUpDirMessages,
    ::testing::Values(TranslatedCase{"None", "", "KX_BUG01", "ER_MSG02", "ER_MSG03", "ER_MSG05"},
                      TranslatedCase{
                          "English", "en", "KX_BUG01",
                          "Installation could not be started\n"
                          "because multiple update files were found on the USB flash drive.\n",
                          "There is no installation software in the USB flash drive.",
                          "Unable to recognize the USB flash drive."},
                      TranslatedCase{"Japanese", "ja", "KX_BUG01",
                                     "USBメモリ内に複数のアップデートファイルが\n"
                                     "見つかったため、\n"
                                     "インストールを開始できませんでした。",
                                     "USBメモリの中にインストールする\n"
                                     "ソフトウェアがありません。",
                                     "USBメモリを正しく認識できません。"}),
    [](const auto& test) { return test.param.name; });
