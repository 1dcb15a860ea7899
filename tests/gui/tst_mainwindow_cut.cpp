// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Which texts the screen does not show whole: in every state and both languages, on screens of
// several sizes, with the style that Qt takes on a framebuffer and the one of a desktop. Runs once
// for each resolution that QT_FONT_DPI gives. The fonts are DejaVu Sans, among the widest there
// are.
#include "CutTexts.h"
#include "app/Globals.h"
#include "gui/AutoResize.h"
#include "gui/InstalledListDialog.h"
#include "gui/PanelScreen.h"
#include "gui/Stage.h"

#include <QApplication>
#include <QScreen>
#include <QStyle>
#include <QTabBar>
#include <QTest>
#include <QTranslator>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace
{

/// What is cut on a screen, from a number of dots per inch on.
struct CutRow {
    int dpi;
    QSize screen;
    std::vector<std::string> cut;
};

const QSize kSmall(480, 272);
const QSize kVga(640, 480);
const QSize kUsual(800, 480);
const QSize kWide(1024, 600);

const CutRow kCut[] = {
    {78, kSmall, {}},
    {78, kVga, {}},
    {78, kUsual, {}},
    {78, kWide, {}},
    {96, kSmall, {"appTitle: Software Update", "labelComment: Comment"}},
    {96, kVga, {"labelComment: Comment"}},
    {96, kUsual, {}},
    {96, kWide, {}},
    {100,
     kSmall,
     {"appTitle: Software Update", "labelComment: Comment", "labelVersion: Version",
      "textComment: A greeting", "textTitle: Hello panel"}},
    {100, kVga, {"labelComment: Comment"}},
    {100, kUsual, {"appTitle: Software Update"}},
    {100, kWide, {}},
};

struct StyleRow {
    const char* name;
    int points; ///< of the application's font
};

constexpr StyleRow kStyles[] = {{"windows", 12}, {"fusion", 9}};

int DotsPerInch()
{
    return qRound(QGuiApplication::primaryScreen()->logicalDotsPerInchY());
}

/// Adds what a window of this size does not show whole.
void Look(QWidget& window, const QSize& size, QStringList& cut)
{
    window.resize(size);
    QCoreApplication::processEvents();
    for (const QWidget* const widget : window.findChildren<QWidget*>()) {
        for (const QString& text : CutTexts(*widget)) {
            cut.append(widget->objectName() + QStringLiteral(": ") + text);
        }
    }
}

/// How many pixels of a label its letters take.
int Marks(QLabel& label)
{
    const QImage image = label.grab().toImage();
    int marks = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            marks += image.pixel(x, y) != image.pixel(image.width() - 1, 0) ? 1 : 0;
        }
    }
    return marks;
}

std::string PackageToShow()
{
    auto root = ProjectBuilder::Root();
    root["Title"] = ProjectBuilder::Text("Hello panel");
    root["Comment"] = ProjectBuilder::Text("A greeting");
    return ProjectBuilder::File(root);
}

/// From the question to the reboot.
void LookAtTheRoad(const QSize& size, QStringList& cut)
{
    Stage stage;
    stage.description = PackageToShow();
    stage.script = {"forever"};
    stage.panel.PullDrive();
    stage.panel.WriteRecord("Foo", stage.description);
    stage.PutPackage();
    stage.Show();
    Look(*stage.window, size, cut);
    stage.Press("InstallButton");
    Look(*stage.window, size, cut);
    for (const int code : {0, 1}) {
        Q_EMIT stage.window->SignInstallFinished(code);
        Look(*stage.window, size, cut);
    }
    stage.OpenList([&](InstalledListDialog& list) { Look(list, size, cut); });
    stage.Press("OkButton");
    Look(*stage.window, size, cut);
    stage.Press("RebootButton");
    Look(*stage.window, size, cut);
}

/// The errors before the question.
void LookAtTheErrors(const QSize& size, QStringList& cut)
{
    using Prepare = void (*)(Stage & stage);
    constexpr Prepare kErrors[] = {
        [](Stage&) {},
        [](Stage& stage) {
            stage.PutPackage("Foo");
            stage.PutPackage("Bar");
        },
        [](Stage& stage) {
            stage.PutPackage();
            stage.description.clear();
        },
        [](Stage& stage) { G::Opts.upDir = stage.drive / "folder"; },
    };
    for (const Prepare prepare : kErrors) {
        Stage stage;
        prepare(stage);
        stage.Show();
        Look(*stage.window, size, cut);
    }
}

} // namespace

class tst_MainWindowCut : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void textsThatAreCut_data();
    void textsThatAreCut();
    void lowLabelShowsTheTailsOfItsLetters();
    void captionsThatFitKeepTheirFont_data();
    void captionsThatFitKeepTheirFont();
};

void tst_MainWindowCut::initTestCase()
{
    // QtTest asks for 96 dots per inch whatever the screen has.
    QCoreApplication::setAttribute(Qt::AA_Use96Dpi, false);
    const auto isMeant = [](const CutRow& row) { return row.dpi == DotsPerInch(); };
    QVERIFY(std::any_of(std::begin(kCut), std::end(kCut), isMeant));
}

void tst_MainWindowCut::textsThatAreCut_data()
{
    QTest::addColumn<QString>("style");
    QTest::addColumn<int>("points");
    QTest::addColumn<QSize>("screen");
    QTest::addColumn<QStringList>("cut");
    for (const CutRow& row : kCut) {
        for (const StyleRow& style : kStyles) {
            if (row.dpi == DotsPerInch()) {
                QTest::addRow("%s, %d x %d, %d", style.name, row.screen.width(),
                              row.screen.height(), row.dpi)
                    << QString::fromLatin1(style.name) << style.points << row.screen
                    << List(row.cut);
            }
        }
    }
}

void tst_MainWindowCut::textsThatAreCut()
{
    QFETCH(const QString, style);
    QFETCH(const int, points);
    QFETCH(const QSize, screen);
    QFETCH(const QStringList, cut);
    QApplication::setStyle(style);
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), points));
    const PanelScreen panelScreen(screen.width(), screen.height());
    QStringList seen;

    for (const char* const language : {"en", "ja"}) {
        QTranslator texts;
        QVERIFY(texts.load(QStringLiteral(":/res/q_Updater_%1.qm").arg(QLatin1String(language))));
        QVERIFY(QCoreApplication::installTranslator(&texts));
        LookAtTheRoad(screen, seen);
        LookAtTheErrors(screen, seen);
    }

    seen.removeDuplicates();
    seen.sort();
    QCOMPARE(seen, cut);
}

void tst_MainWindowCut::lowLabelShowsTheTailsOfItsLetters()
{
    QLabel label(QStringLiteral("Software Update"));
    label.setFont(QFont(QStringLiteral("DejaVu Sans"), 24));
    const QFontMetrics metrics(label.font());
    const QRect letters = metrics.tightBoundingRect(label.text());
    label.resize(400, 2 * metrics.height());
    AutoResize::KeepTails(label);
    QCOMPARE(label.margin(), 0); // what has room stays as it is
    const int whole = Marks(label);

    label.resize(400, letters.height());
    QVERIFY(Marks(label) < whole);
    AutoResize::KeepTails(label);
    QCOMPARE(Marks(label), whole);

    label.resize(400, letters.height() - 1);
    AutoResize::KeepTails(label);
    const int best = Marks(label);
    QVERIFY(best < whole);
    label.setMargin(0);
    QVERIFY(Marks(label) < best);
}

void tst_MainWindowCut::captionsThatFitKeepTheirFont_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("pixels");
    QTest::newRow("wide enough") << 100 << 16;
    QTest::newRow("narrow") << 36 << 12;
    QTest::newRow("too narrow for what can be read") << 4 << 9;
}

void tst_MainWindowCut::captionsThatFitKeepTheirFont()
{
    QFETCH(const int, width);
    QFETCH(const int, pixels);
    QTabBar bar;
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(16);
    bar.setFont(font);
    bar.addTab(QStringLiteral("  Install  "));
    bar.setStyleSheet(
        QStringLiteral("QTabBar::tab {width: %1px; padding: 0px; margin: 0px; border: 0px}")
            .arg(width));
    bar.show(); // only then its tabs get their places

    AutoResize::FitCaptions(bar);

    QCOMPARE(bar.font().pixelSize(), pixels);
}

QTEST_MAIN(tst_MainWindowCut)

#include "tst_mainwindow_cut.moc"
