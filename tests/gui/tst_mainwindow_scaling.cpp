// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// How the window is stretched to the screen, and the sizes of its fonts.
#include "gui/AutoResize.h"
#include "gui/PanelScreen.h"
#include "gui/Stage.h"

#include <QGuiApplication>
#include <QScreen>
#include <QTest>

#include <array>

namespace
{

/// The widgets that are stretched, with their names in a fixed order.
constexpr std::array<const char*, 15> kStretched = {
    "InstalledListButton", "tabsCenter", "CancelButton", "InstallButton", "OkButton",
    "RebootButton",        "appTitle",   "labelComment", "labelMsg",      "labelVersion",
    "textComment",         "textTitle",  "textVersion",  "labelTitle",    "logArea"};

/// The places of kStretched on a screen.
struct ScreenRow {
    QSize screen;
    double scaleW;
    double scaleH;
    std::array<QRect, 15> places;
};

const ScreenRow kScreens[] = {
    {{800, 480},
     1.0,
     1.0,
     {{{590, 20, 201, 51},
       {10, 50, 781, 431},
       {420, 310, 171, 61},
       {200, 310, 171, 61},
       {310, 310, 171, 61},
       {310, 310, 171, 61},
       {10, 10, 311, 31},
       {450, 0, 111, 31},
       {20, 70, 741, 231},
       {260, 0, 101, 31},
       {450, 30, 311, 31},
       {20, 30, 231, 31},
       {260, 30, 181, 31},
       {20, 0, 201, 31},
       {10, 10, 761, 351}}}},
    {{1024, 600},
     1.28,
     1.25,
     {{{755, 25, 257, 63},
       {12, 62, 999, 538},
       {537, 387, 218, 76},
       {256, 387, 218, 76},
       {396, 387, 218, 76},
       {396, 387, 218, 76},
       {12, 12, 398, 38},
       {576, 0, 142, 38},
       {25, 87, 948, 288},
       {332, 0, 129, 38},
       {576, 37, 398, 38},
       {25, 37, 295, 38},
       {332, 37, 231, 38},
       {25, 0, 257, 38},
       {12, 12, 974, 438}}}},
    {{480, 272},
     480 / 800.0,
     272 / 480.0,
     {{{354, 11, 120, 28},
       {6, 28, 468, 244},
       {252, 175, 102, 34},
       {120, 175, 102, 34},
       {186, 175, 102, 34},
       {186, 175, 102, 34},
       {6, 5, 186, 17},
       {270, 0, 66, 17},
       {12, 39, 444, 130},
       {156, 0, 60, 17},
       {270, 17, 186, 17},
       {12, 17, 138, 17},
       {156, 17, 108, 17},
       {12, 0, 120, 17},
       {6, 5, 456, 198}}}},
    {{640, 480},
     640 / 800.0,
     1.0,
     {{{472, 20, 160, 51},
       {8, 50, 624, 431},
       {336, 310, 136, 61},
       {160, 310, 136, 61},
       {248, 310, 136, 61},
       {248, 310, 136, 61},
       {8, 10, 248, 31},
       {360, 0, 88, 31},
       {16, 70, 592, 231},
       {208, 0, 80, 31},
       {360, 30, 248, 31},
       {16, 30, 184, 31},
       {208, 30, 144, 31},
       {16, 0, 160, 31},
       {8, 10, 608, 351}}}},
};

/// The font sizes of the window's widgets: "large <points> small <points> tabs <points>", or the
/// first widget that does not fit.
QString FontSizes(const Stage& stage)
{
    const auto sizeOf = [&stage](const char* name) {
        return stage.Get<QWidget>(name)->font().pointSize();
    };
    const int large = sizeOf("appTitle");
    const int small = sizeOf("OkButton");
    if (sizeOf("labelMsg") != large) {
        return QStringLiteral("labelMsg");
    }
    for (const char* const name :
         {"CancelButton", "RebootButton", "InstallButton", "InstalledListButton", "labelTitle",
          "textTitle", "labelComment", "textComment", "labelVersion", "textVersion", "logArea"}) {
        if (sizeOf(name) != small) {
            return QLatin1String(name);
        }
    }
    return QStringLiteral("%1 and %2").arg(small).arg(large);
}

} // namespace

class tst_MainWindowScaling : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stretchesToTheScreen_data();
    void stretchesToTheScreen();
    void keepsTheFormWhenThePlatformHasGivenTheScreensSize();
    void fullScreenOfAPlatformThatAnswersLaterStretches();
    void stretchesOnlyAtTheFirstShow();

    void fontSizesFollowTheWindow_data();
    void fontSizesFollowTheWindow();
    void fontSizesAtTheLimits_data();
    void fontSizesAtTheLimits();
    void fontSizesAtTheFirstShow();
    void resizingChangesNothingElseOfAFont();
};

void tst_MainWindowScaling::stretchesToTheScreen_data()
{
    QTest::addColumn<int>("row");
    for (int i = 0; i < static_cast<int>(std::size(kScreens)); ++i) {
        QTest::addRow("%d x %d", kScreens[i].screen.width(), kScreens[i].screen.height()) << i;
    }
}

void tst_MainWindowScaling::stretchesToTheScreen()
{
    QFETCH(const int, row);
    const ScreenRow& expected = kScreens[row];
    const PanelScreen screen(expected.screen.width(), expected.screen.height());
    Stage stage;

    stage.Show();

    QCOMPARE(AutoResize::ScreenScaleW, expected.scaleW);
    QCOMPARE(AutoResize::ScreenScaleH, expected.scaleH);
    for (std::size_t i = 0; i < kStretched.size(); ++i) {
        const QRect place = stage.Get<QWidget>(kStretched.at(i))->geometry();
        QVERIFY2(place == expected.places.at(i), kStretched.at(i));
    }
    QCOMPARE(stage.window->size(), QSize(800, 480));
    QCOMPARE(stage.window->centralWidget()->size(), QSize(800, 480));
    QCOMPARE(FontSizes(stage), QStringLiteral("16 and 24"));
}

void tst_MainWindowScaling::keepsTheFormWhenThePlatformHasGivenTheScreensSize()
{
    const PanelScreen screen(1024, 600);
    Stage stage;
    stage.window->resize(1024, 600);

    stage.Show();

    QCOMPARE(AutoResize::ScreenScaleW, 1.0);
    QCOMPARE(AutoResize::ScreenScaleH, 1.0);
    for (std::size_t i = 0; i < kStretched.size(); ++i) {
        const QRect place = stage.Get<QWidget>(kStretched.at(i))->geometry();
        QVERIFY2(place == kScreens[0].places.at(i), kStretched.at(i));
    }
    QCOMPARE(FontSizes(stage), QStringLiteral("18 and 26"));
}

void tst_MainWindowScaling::fullScreenOfAPlatformThatAnswersLaterStretches()
{
    QCOMPARE(QGuiApplication::primaryScreen()->size(), QSize(800, 600));
    Stage stage;

    stage.window->showFullScreen();

    QCOMPARE(AutoResize::ScreenScaleW, 1.0);
    QCOMPARE(AutoResize::ScreenScaleH, 1.25);
    QCOMPARE(stage.Get<QWidget>("tabsCenter")->geometry(), QRect(10, 62, 781, 538));
    QTRY_COMPARE_WITH_TIMEOUT(stage.window->size(), QSize(800, 600), kPatienceMs);
    QCOMPARE(stage.Get<QWidget>("tabsCenter")->geometry(), QRect(10, 62, 781, 538));
}

void tst_MainWindowScaling::stretchesOnlyAtTheFirstShow()
{
    const PanelScreen screen(1024, 600);
    Stage stage;
    stage.Show();
    stage.window->hide();

    stage.Show();
    stage.window->resize(400, 240);

    QCOMPARE(AutoResize::ScreenScaleW, 1.28);
    QCOMPARE(stage.Get<QWidget>("tabsCenter")->geometry(), QRect(12, 62, 999, 538));
}

void tst_MainWindowScaling::fontSizesFollowTheWindow_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QString>("points");
    QTest::newRow("small") << QSize(320, 240) << QStringLiteral("12 and 15");
    QTest::newRow("480 x 272") << QSize(480, 272) << QStringLiteral("12 and 15");
    QTest::newRow("one pixel more") << QSize(953, 137) << QStringLiteral("14 and 18");
    QTest::newRow("640 x 480") << QSize(640, 480) << QStringLiteral("14 and 18");
    QTest::newRow("641 x 480") << QSize(641, 480) << QStringLiteral("16 and 24");
    QTest::newRow("800 x 600") << QSize(800, 600) << QStringLiteral("16 and 24");
    QTest::newRow("801 x 600") << QSize(801, 600) << QStringLiteral("18 and 26");
    QTest::newRow("1024 x 600") << QSize(1024, 600) << QStringLiteral("18 and 26");
}

void tst_MainWindowScaling::fontSizesFollowTheWindow()
{
    QFETCH(const QSize, size);
    QFETCH(const QString, points);
    Stage stage;
    stage.Show();
    const QFont tabsFont = stage.Get<QTabWidget>("tabsCenter")->font();

    stage.window->resize(size);

    QCOMPARE(stage.window->size(), size);
    QCOMPARE(FontSizes(stage), points);
    QCOMPARE(stage.Get<QTabWidget>("tabsCenter")->font(), tabsFont);
}

void tst_MainWindowScaling::fontSizesAtTheLimits_data()
{
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("small");
    QTest::addColumn<int>("large");
    QTest::newRow("130560") << 130560 << 12 << 15;
    QTest::newRow("130561") << 130561 << 14 << 18;
    QTest::newRow("307200") << 307200 << 14 << 18;
    QTest::newRow("307201") << 307201 << 16 << 24;
    QTest::newRow("480000") << 480000 << 16 << 24;
    QTest::newRow("480001") << 480001 << 18 << 26;
}

void tst_MainWindowScaling::fontSizesAtTheLimits()
{
    QFETCH(const int, area);
    QFETCH(const int, small);
    QFETCH(const int, large);

    const AutoResize::PointSizes sizes = AutoResize::PointSizesFor(QSize(area, 1));

    QCOMPARE(sizes.small, small);
    QCOMPARE(sizes.large, large);
}

void tst_MainWindowScaling::fontSizesAtTheFirstShow()
{
    Stage stage;
    stage.window->resize(480, 272);
    QCOMPARE(FontSizes(stage), QStringLiteral("16 and 24"));

    stage.Show();

    QCOMPARE(FontSizes(stage), QStringLiteral("12 and 15"));
}

void tst_MainWindowScaling::resizingChangesNothingElseOfAFont()
{
    Stage stage;
    stage.Show();
    QFont font(QStringLiteral("DejaVu Serif"), 16);
    font.setItalic(true);
    stage.Get<QLabel>("textTitle")->setFont(font);

    stage.window->resize(480, 272);

    QCOMPARE(stage.Get<QLabel>("textTitle")->font().family(), QStringLiteral("DejaVu Serif"));
    QVERIFY(stage.Get<QLabel>("textTitle")->font().italic());
    QCOMPARE(stage.Get<QLabel>("textTitle")->font().pointSize(), 12);
}

QTEST_MAIN(tst_MainWindowScaling)

#include "tst_mainwindow_scaling.moc"
