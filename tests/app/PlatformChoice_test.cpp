// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/PlatformChoice.h"
#include "support/TempDir.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QVersionNumber>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using Names = std::vector<std::string>;

struct ChoiceRow {
    const char* name;
    QVersionNumber qt;
    const char* given;
    Names there;
    const char* chosen;
    Names asked;
};

const Names kNone;
const Names kAll = {"linuxfb", "minimal", "offscreen", "xcb"};
const Names kBoth = {"offscreen", "minimal"};
const QVersionNumber kOld(5, 7, 1);
const QVersionNumber kLastOld(5, 11, 3);
const QVersionNumber kFirstNew(5, 12, 0);

const ChoiceRow kChoices[] = {
    {"OldTakesOffscreen", kOld, "", kAll, "offscreen", {"offscreen"}},
    {"OldTakesOffscreenBeforeTheGiven", kOld, "xcb", kAll, "offscreen", {"offscreen"}},
    {"OldTakesMinimal", kOld, "xcb", {"minimal", "xcb"}, "minimal", kBoth},
    {"OldTakesMinimalUnasked", kOld, "", {"minimal"}, "minimal", kBoth},
    {"OldLeavesTheGiven", kOld, "linuxfb", {"linuxfb"}, "linuxfb", kBoth},
    {"OldLeavesTheGivenWithItsArguments",
     kOld,
     "linuxfb:fb=/dev/fb0:size=800x480",
     {"linuxfb"},
     "linuxfb:fb=/dev/fb0:size=800x480",
     kBoth},
    {"OldLeavesAGivenThatNobodyKnows", kOld, "kx_none:a=b", kNone, "kx_none:a=b", kBoth},
    {"OldLeavesQtItsOwnWhenNoneIsGiven", kOld, "", {"eglfs"}, "", kBoth},
    {"OldLeavesQtItsOwnWhenThereIsNothing", kOld, "", kNone, "", kBoth},
    {"OldDoesNotSplitLists", kOld, "xcb;minimal", {"xcb"}, "xcb;minimal", kBoth},
    {"LastOldTakesMinimal", kLastOld, "xcb", {"minimal"}, "minimal", kBoth},
    {"LastOldLeavesTheGiven", kLastOld, "eglfs", {"eglfs"}, "eglfs", kBoth},
    {"NewGetsAList", kFirstNew, "", kNone, "offscreen;minimal", kNone},
    {"NewGetsTheGivenAtLast", kFirstNew, "xcb", kAll, "offscreen;minimal;xcb", kNone},
    {"NewGetsTheArgumentsToo", QVersionNumber(5, 15, 8), "linuxfb:fb=/dev/fb0", kNone,
     "offscreen;minimal;linuxfb:fb=/dev/fb0", kNone},
    {"NextGetsAList", QVersionNumber(6, 0), "", kNone, "offscreen;minimal", kNone},
};

class PlatformChoice : public ::testing::TestWithParam<ChoiceRow>
{
};

QJsonObject Json(const char* text)
{
    return QJsonDocument::fromJson(text).object();
}

} // namespace

TEST_P(PlatformChoice, DependsOnVersionValueAndPlugins)
{
    const ChoiceRow& row = GetParam();
    Names asked;

    const std::string chosen = ChoosePlatform(row.qt, row.given, [&](const QString& name) {
        asked.push_back(name.toStdString());
        return std::find(row.there.begin(), row.there.end(), asked.back()) != row.there.end();
    });

    EXPECT_EQ(chosen, row.chosen);
    EXPECT_EQ(asked, row.asked);
}

INSTANTIATE_TEST_SUITE_P(Rows, PlatformChoice, ::testing::ValuesIn(kChoices),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(PlatformPlugin, LiesInOneOfTheFolders)
{
    const TempDir dir;
    dir.Write("b/libqoffscreen.so", "");
    dir.Write("b/libqminimalegl.so", "");
    const QStringList folders = {QString(), QString::fromStdString(dir / "none"),
                                 QString::fromStdString(dir / "b")};

    EXPECT_TRUE(IsPlatformIn(folders, QStringLiteral("offscreen")));
    EXPECT_FALSE(IsPlatformIn(folders, QStringLiteral("minimal")));
    EXPECT_FALSE(IsPlatformIn({}, QStringLiteral("offscreen")));
}

TEST(PlatformPlugin, TellsItsNamesWhenItIsLinkedIn)
{
    const QJsonObject plugin = Json(R"({
        "IID": "org.qt-project.Qt.QPA.QPlatformIntegrationFactoryInterface.5.3",
        "className": "QOffscreenIntegrationPlugin", "debug": false, "version": 329472,
        "MetaData": {"Keys": ["other", "Offscreen"]}})");

    EXPECT_TRUE(IsPlatformPlugin(plugin, QStringLiteral("offscreen")));
    EXPECT_TRUE(IsPlatformPlugin(plugin, QStringLiteral("other")));
    EXPECT_FALSE(IsPlatformPlugin(plugin, QStringLiteral("minimal")));
    EXPECT_FALSE(IsPlatformPlugin(plugin, QString()));
}

TEST(PlatformPlugin, IsNoPluginOfAnotherKind)
{
    const QString name = QStringLiteral("offscreen");

    EXPECT_FALSE(IsPlatformPlugin(Json(R"({"IID": "org.qt-project.Qt.QImageIOHandlerInterface",
                                           "MetaData": {"Keys": ["offscreen"]}})"),
                                  name));
    EXPECT_FALSE(IsPlatformPlugin(
        Json(R"({"IID": "org.qt-project.Qt.QPA.QPlatformIntegrationFactoryInterface.5.3"})"),
        name));
    EXPECT_FALSE(IsPlatformPlugin(QJsonObject(), name));
}
