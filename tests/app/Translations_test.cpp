// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The texts of the two compiled-in translations.
#include <QCoreApplication>
#include <QDir>
#include <QObject>
#include <QTranslator>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using ::testing::ElementsAre;

namespace
{

struct Message {
    const char* key;
    const char* english;
    const char* japanese;
};

/// The keys that the program asks for, with their texts.
const std::vector<Message>& Messages()
{
    static const std::vector<Message> messages = {
        {"ER_MSG01",
         "Install the software on this device.\n"
         "Are you sure?",
         "この機器にソフトウェアをインストールします。\n"
         "よろしいですか？"},
        {"ER_MSG02",
         "Installation could not be started\n"
         "because multiple update files were found on the USB flash drive.\n",
         "USBメモリ内に複数のアップデートファイルが\n"
         "見つかったため、\n"
         "インストールを開始できませんでした。"},
        {"ER_MSG03", "There is no installation software in the USB flash drive.",
         "USBメモリの中にインストールする\n"
         "ソフトウェアがありません。"},
        {"ER_MSG04",
         "Failed to load the installation file in the USB flash drive.\n"
         "The file may be corrupted.",
         "USBメモリの中のインストールファイルの\n"
         "読み込みに失敗しました。\n"
         "ファイルが壊れている可能性があります。"},
        {"ER_MSG05", "Unable to recognize the USB flash drive.",
         "USBメモリを正しく認識できません。"},
        {"ER_MSG10_INSTALL_START",
         " Start the installation.\n"
         "Do not turn off the power during the installation.\n"
         "If you turn off the power, the files may be corrupted.",
         " インストールを開始します。\n"
         "途中で電源を切らないでください。\n"
         "途中で切るとファイルが壊れる事があります。"},
        {"ER_MSG90", "The installation completed successfully.",
         "インストールは正常に完了しました。"},
        {"ER_MSG91", "The installation failed.", "インストールに失敗しました。"},
        {"ER_MSG92_REBOOTING", "Reboot....", "再起動...."},
        {"ER_MSG99",
         "Remove the USB flash drive.\n"
         "If you remove, this will reboot.",
         "USBメモリを抜いてください。\n"
         "再起動します"},
    };
    return messages;
}

/// Shows the program in one language while it lives.
class InLanguage
{
public:
    explicit InLanguage(const char* file)
    {
        EXPECT_TRUE(m_translator.load(QString::fromLatin1(file)));
        QCoreApplication::installTranslator(&m_translator);
    }
    InLanguage(const InLanguage&) = delete;
    InLanguage& operator=(const InLanguage&) = delete;
    ~InLanguage() { QCoreApplication::removeTranslator(&m_translator); }

    [[nodiscard]] const QTranslator& Translator() const { return m_translator; }

private:
    QTranslator m_translator;
};

constexpr const char* kEnglish = ":/res/q_Updater_en.qm";
constexpr const char* kJapanese = ":/res/q_Updater_ja.qm";

std::string Shown(const char* key)
{
    return QObject::tr(key).toStdString();
}

} // namespace

TEST(Translations, AreTheOnlyTwoResources)
{
    std::vector<std::string> names;
    for (const QString& name : QDir(QStringLiteral(":/res")).entryList()) {
        names.push_back(name.toStdString());
    }

    EXPECT_THAT(names, ElementsAre("q_Updater_en.qm", "q_Updater_ja.qm"));
}

TEST(Translations, HaveAnEnglishTextForEveryKey)
{
    const InLanguage english(kEnglish);

    for (const Message& message : Messages()) {
        EXPECT_EQ(Shown(message.key), message.english);
    }
}

TEST(Translations, HaveAJapaneseTextForEveryKey)
{
    const InLanguage japanese(kJapanese);

    for (const Message& message : Messages()) {
        EXPECT_EQ(Shown(message.key), message.japanese);
    }
}

TEST(Translations, ShowTheJapaneseQuestionInTwoLinesWithAFullWidthQuestionMark)
{
    const InLanguage japanese(kJapanese);

    EXPECT_EQ(Shown("ER_MSG01"), "\u3053\u306E\u6A5F\u5668\u306B\u30BD\u30D5\u30C8\u30A6\u30A7"
                                 "\u30A2\u3092\u30A4\u30F3\u30B9\u30C8\u30FC\u30EB\u3057\u307E"
                                 "\u3059\u3002\n\u3088\u308D\u3057\u3044\u3067\u3059\u304B\uFF1F");
}

TEST(Translations, ShowEveryKeyItselfWithoutATranslator)
{
    for (const Message& message : Messages()) {
        EXPECT_EQ(Shown(message.key), message.key);
    }
    EXPECT_EQ(Shown("KX_BUG01"), "KX_BUG01");
    EXPECT_EQ(Shown("KX_BUG01 "), "KX_BUG01 ");
}

TEST(Translations, NeverMatchTheKeyOfTheMissingFolderInEitherLanguage)
{
    for (const char* const file : {kEnglish, kJapanese}) {
        const InLanguage language(file);
        EXPECT_EQ(Shown("KX_BUG01"), "KX_BUG01") << file;
    }
}

TEST(Translations, KeepTheTextOfTheMissingFolderUnderAKeyWithABlank)
{
    {
        const InLanguage english(kEnglish);
        EXPECT_EQ(Shown("KX_BUG01 "), "Specifying the folder where the update package is stored\n"
                                      "(Specifying the -upDir option) is missing.");
    }
    const InLanguage japanese(kJapanese);
    EXPECT_EQ(Shown("KX_BUG01 "), " アップデートパッケージの格納されているフォルダの指定\n"
                                  "(-upDir オプションの指定)がありません。");
}

TEST(Translations, KnowNoOtherContextNorKey)
{
    for (const char* const file : {kEnglish, kJapanese}) {
        const InLanguage language(file);
        const QTranslator& translator = language.Translator();
        EXPECT_TRUE(translator.translate("MainWindow", "ER_MSG01").isNull());
        EXPECT_TRUE(translator.translate("QObject", "ER_MSG06").isNull());
        EXPECT_TRUE(translator.translate("QObject", "ER_MSG01 ").isNull());
        EXPECT_TRUE(translator.translate("QObject", "er_msg01").isNull());
        EXPECT_EQ(QObject::tr("Log").toStdString(), "Log");
    }
}

TEST(Translations, LeaveEveryKeyWhenTheFileIsMissing)
{
    QTranslator translator;
    EXPECT_FALSE(translator.load(QStringLiteral(":/res/q_Updater_de.qm")));
    QCoreApplication::installTranslator(&translator);

    EXPECT_EQ(Shown("ER_MSG04"), "ER_MSG04");

    QCoreApplication::removeTranslator(&translator);
}
