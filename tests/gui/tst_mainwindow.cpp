// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The window as a class, and what its first show does.
#include "app/Globals.h"
#include "gui/AutoResize.h"
#include "gui/MetaObject.h"
#include "gui/Stage.h"
#include "gui/VirtualTable.h"

#include <QTest>
#include <QTranslator>

#include <filesystem>
#include <functional>
#include <stdexcept>

using ProjectBuilder::File;
using ProjectBuilder::Root;

Q_DECLARE_METATYPE(std::function<void(Stage&)>)

namespace
{

/// A window that counts the calls of Onloaded.
class CountingWindow final : public MainWindow
{
public:
    CountingWindow() : MainWindow(nullptr) {}

    void Onloaded() override
    {
        ++calls;
        MainWindow::Onloaded();
    }

    static std::ptrdiff_t PlaceOfOnloaded()
    {
        return PlaceInVirtualTable(&CountingWindow::Onloaded);
    }

    int calls = 0;
};

std::string DescriptionWithout(const std::string& field)
{
    ProjectBuilder::Object root = Root();
    root.erase(field);
    return File(root);
}

/// The commands that unpack the package @p stem.
QStringList Unpacking(const std::string& stem)
{
    return List({"rm -r \"" + stem + ".temp\"", "mkdir -p \"" + stem + ".temp\"",
                 "unzip -o \"" + stem + ".kx-update\" -d \"" + stem + ".temp\" "});
}

QString Caption(const Stage& stage, const char* label)
{
    return stage.Get<QLabel>(label)->text();
}

} // namespace

class tst_MainWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalsAndSlotsStandInTheirOrder();
    void onloadedStandsBehindTheVirtualFunctionsOfTheBase();
    void doesNothingBeforeItsFirstShow();
    void eachSignalReachesItsSlotAtOnceAndOnce();
    void onloadedRunsExactlyOnceInsideTheFirstShow();
    void showsEverythingAndNoMessageWhileItLoads();

    void confirmsThePackage();
    void unpacksIntoAFolderBesideThePackage_data();
    void unpacksIntoAFolderBesideThePackage();
    void titleIsShownByteByByteAsLatin1WhileTheLogIsUtf8();
    void readsOnlyTheRootOfTheDescription();

    void driveFailures_data();
    void driveFailures();
    void packageFailures_data();
    void packageFailures();
    void rootThatIsNoObjectEndsTheLoading();

    void messagesFollowTheTranslation_data();
    void messagesFollowTheTranslation();
};

void tst_MainWindow::signalsAndSlotsStandInTheirOrder()
{
    QCOMPARE(OwnMethods(MainWindow::staticMetaObject),
             List({"signal SignOutMsg(const char*)", "signal SignOutLine(const char*)",
                   "signal SignInstallFinished(int)", "slot on_InstallButton_clicked()",
                   "slot on_CancelButton_clicked()", "slot on_InstalledListButton_clicked()",
                   "slot on_OkButton_clicked()", "slot on_RebootButton_clicked()",
                   "slot onCheckUSBTimeout()", "slot resizeEvent(QResizeEvent*)",
                   "slot SlotOutMsg(const char*)", "slot SlotOutLine(const char*)",
                   "slot SlotInstallFinished(int)"}));
}

void tst_MainWindow::onloadedStandsBehindTheVirtualFunctionsOfTheBase()
{
    QCOMPARE(CountingWindow::PlaceOfOnloaded(),
             PlaceInVirtualTable(&QMainWindow::createPopupMenu) + 1);
}

void tst_MainWindow::doesNothingBeforeItsFirstShow()
{
    Stage stage;
    stage.PutPackage();

    QCoreApplication::processEvents();

    QCOMPARE(stage.window->parent(), nullptr);
    QCOMPARE(stage.window->windowFlags(), QMainWindow().windowFlags());
    QCOMPARE(stage.Log(), QString());
    QCOMPARE(Caption(stage, "labelMsg"), QString());
    QVERIFY(stage.shell.Commands().empty());
    QCOMPARE(stage.panel.DriveLooks(), 0);
    QVERIFY(G::Opts.upFile.empty());
    QCOMPARE(AutoResize::ScreenScaleW, 1.0);
    QCOMPARE(AutoResize::ScreenScaleH, 1.0);
}

void tst_MainWindow::eachSignalReachesItsSlotAtOnceAndOnce()
{
    Stage stage;
    stage.Show();

    Q_EMIT stage.window->SignOutMsg("a");
    QCOMPARE(stage.Log(), QStringLiteral("a"));
    Q_EMIT stage.window->SignOutLine("b");
    QCOMPARE(stage.Log(), QStringLiteral("ab\n"));
    Q_EMIT stage.window->SignInstallFinished(0);
    QCOMPARE(Caption(stage, "labelMsg"), QStringLiteral("ER_MSG90"));
    QCOMPARE(stage.Log(), QStringLiteral("ab\n"));
}

void tst_MainWindow::onloadedRunsExactlyOnceInsideTheFirstShow()
{
    Stage stage;
    stage.PutPackage();
    auto* const window = new CountingWindow;
    stage.window.reset(window);
    G::MainWin = window;

    QCOMPARE(window->calls, 0);
    window->show();
    QCOMPARE(window->calls, 1);
    QCOMPARE(Caption(stage, "labelMsg"), QStringLiteral("ER_MSG01"));
    window->hide();
    window->show();
    window->showFullScreen();
    QCoreApplication::processEvents();

    QCOMPARE(window->calls, 1);
    QCOMPARE(stage.shell.Commands().size(), std::size_t{3});
}

void tst_MainWindow::showsEverythingAndNoMessageWhileItLoads()
{
    Stage stage;
    const std::string stem = stage.PutPackage();
    QString state;
    stage.shell.On("mkdir -p \"" + stem + ".temp\"", [&] { state = stage.State(); });

    stage.Show();

    QCOMPARE(state, Text(" / normal / Install Cancel Ok Reboot / Main / panel"));
}

void tst_MainWindow::confirmsThePackage()
{
    Stage stage;
    const std::string stem = stage.PutPackage();

    stage.Show();

    QCOMPARE(stage.State(), Text("ER_MSG01 / normal / Install Cancel / Main / panel"));
    QCOMPARE(Caption(stage, "textTitle"), QStringLiteral("Line 4 recipes"));
    QCOMPARE(Caption(stage, "textVersion"), QStringLiteral("1.0.3"));
    QCOMPARE(Caption(stage, "textComment"), QStringLiteral("Adds the recipe viewer"));
    QCOMPARE(stage.Commands(), Unpacking(stem));
    QCOMPARE(stage.Log(), QString());
    QVERIFY(stage.Get<QPushButton>("InstalledListButton")->isVisible());
}

void tst_MainWindow::unpacksIntoAFolderBesideThePackage_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << QStringLiteral("update01");
    QTest::newRow("dots") << QStringLiteral("update.v1.2");
    QTest::newRow("blanks and apostrophe") << QStringLiteral(" our  'new' one");
    QTest::newRow("percent signs") << QStringLiteral("100%s%n");
    QTest::newRow("letters beyond ASCII") << QStringLiteral("Füße 更新");
}

void tst_MainWindow::unpacksIntoAFolderBesideThePackage()
{
    QFETCH(const QString, name);
    Stage stage;
    const std::string stem = stage.PutPackage(name.toStdString());

    stage.Show();

    QCOMPARE(stem, stage.drive / name.toStdString());
    QCOMPARE(stage.State(), Text("ER_MSG01 / normal / Install Cancel / Main / panel"));
    QCOMPARE(stage.Commands(), Unpacking(stem));
    QCOMPARE(G::Opts.upFile, stem + ".kx-update");
    QCOMPARE(G::Opts.unzipedDir, stem + ".temp");
    QCOMPARE(G::TargetUP.packageDir, stem + ".temp");
    QCOMPARE(G::TargetUP.projectFile, stem + ".temp/UserPackage.kx-project");
    QVERIFY(G::TargetUP.removeUnpacked);
}

void tst_MainWindow::titleIsShownByteByByteAsLatin1WhileTheLogIsUtf8()
{
    Stage stage;
    ProjectBuilder::Object root = Root();
    root["Title"] = ProjectBuilder::Text("Füße");
    root["PackageVersion"] = ProjectBuilder::Text("1.0 é");
    root["Comment"] = ProjectBuilder::Text("新");
    stage.description = File(root);
    stage.PutPackage();

    stage.Show();
    Q_EMIT stage.window->SignOutLine("Füße 新");

    QCOMPARE(Caption(stage, "textTitle"), QString::fromUtf8("F\u00C3\u00BC\u00C3\u009Fe"));
    QCOMPARE(Caption(stage, "textVersion"), QString::fromUtf8("1.0 \u00C3\u00A9"));
    QCOMPARE(Caption(stage, "textComment"), QString::fromUtf8("\u00E6\u0096\u00B0"));
    QCOMPARE(stage.Log(), QString::fromUtf8("F\u00FC\u00DFe \u65B0\n"));
}

void tst_MainWindow::readsOnlyTheRootOfTheDescription()
{
    Stage stage;
    stage.description = File(Root({{{"$type", ProjectBuilder::Text("Nobody.Knows")}}}));
    stage.PutPackage();

    stage.Show();

    QCOMPARE(stage.State(), Text("ER_MSG01 / normal / Install Cancel / Main / panel"));
    QCOMPARE(stage.Log(), QString());
}

void tst_MainWindow::driveFailures_data()
{
    using Arrange = std::function<void(Stage&)>;
    QTest::addColumn<Arrange>("arrange");
    QTest::addColumn<QString>("message");

    QTest::newRow("no folder given")
        << Arrange([](Stage&) { G::Opts.upDir.clear(); }) << QStringLiteral("KX_BUG01");
    QTest::newRow("folder missing")
        << Arrange([](Stage& stage) { G::Opts.upDir = stage.drive / "none"; })
        << QStringLiteral("ER_MSG05");
    QTest::newRow("empty folder") << Arrange([](Stage&) {}) << QStringLiteral("ER_MSG03");
    QTest::newRow("other files only") << Arrange([](Stage& stage) {
        stage.drive.Write("a.zip", "");
        stage.drive.Write("b.KX-UPDATE", "");
        stage.drive.Write("c.kx-update.bak", "");
    }) << QStringLiteral("ER_MSG03");
    QTest::newRow("two packages") << Arrange([](Stage& stage) {
        stage.drive.Write("a.kx-update", "");
        stage.drive.Write("b.kx-update", "");
    }) << QStringLiteral("ER_MSG02");
}

void tst_MainWindow::driveFailures()
{
    QFETCH(const std::function<void(Stage&)>, arrange);
    QFETCH(const QString, message);
    Stage stage;
    arrange(stage);

    stage.Show();

    QCOMPARE(stage.State(), message + Text(" / error / Ok / Main / no panel"));
    // Nothing was unpacked, so there is nothing to delete.
    QCOMPARE(stage.Commands(), List({"/usr/bin/kxsystem/usb_umount"}));
    QCOMPARE(stage.Log(), QString());
    QVERIFY(stage.Get<QPushButton>("InstalledListButton")->isVisible());
    QVERIFY(stage.window->isVisible());
}

void tst_MainWindow::packageFailures_data()
{
    QTest::addColumn<int>("failing"); // the command that fails, from 1
    QTest::addColumn<QByteArray>("description");
    QTest::addColumn<QString>("log"); // %1 is the package's path without extension

    const auto bytes = [](const std::string& text) { return QByteArray::fromStdString(text); };
    QTest::newRow("folder cannot be made")
        << 2 << bytes(File(Root()))
        << QStringLiteral("Unable to create folder of temporary to %1.temp.\n\n");
    QTest::newRow("archive is corrupt")
        << 3 << bytes(File(Root()))
        << QStringLiteral("Unable to unpack %1.kx-update file to %1.temp.\n\n");
    QTest::newRow("no description")
        << 0 << QByteArray()
        << QStringLiteral("Unable to access %1.temp/UserPackage.kx-project file.\n\n");
    QTest::newRow("empty description")
        << 0 << bytes("\xEF\xBB\xBF")
        << QStringLiteral("%1.temp/UserPackage.kx-project file is corrupted.\n\n");
    QTest::newRow("description is no JSON")
        << 0 << bytes("\xEF\xBB\xBF{\"$type\":")
        << QStringLiteral(" Unable to analyze the data in %1.temp/UserPackage.kx-project "
                          "file.\n\n");
    QTest::newRow("description of something else")
        << 0 << bytes(File(ProjectBuilder::StepSets({})))
        << QStringLiteral("%1.temp/UserPackage.kx-project file is not kx-package.\n Root object "
                          "of this file is not DB_KxUserProject.\n\n");
    QTest::newRow("description without a title")
        << 0 << bytes(DescriptionWithout("Title"))
        << QStringLiteral(
               "No Zt.Plugins.DB_KxUserProject, Plexa.Title field specified in .kx-project .\n\n"
               "Initialized error in Zt.Plugins.DB_KxUserProject, Plexa class.\n\n"
               "%1.temp/UserPackage.kx-project file is not kx-package.\n Root object "
               "of this file is not DB_KxUserProject.\n\n");
}

void tst_MainWindow::packageFailures()
{
    QFETCH(const int, failing);
    QFETCH(const QByteArray, description);
    QFETCH(const QString, log);
    Stage stage;
    stage.description = description.toStdString();
    const std::string stem = stage.PutPackage();
    stage.shell.AnswerNth(failing, 256);

    stage.Show();

    QCOMPARE(stage.State(), Text("ER_MSG04 / error / Ok / Main / no panel"));
    QCOMPARE(stage.Log(), QString(log).replace(QStringLiteral("%1"), Text(stem)));
    QCOMPARE(Caption(stage, "textTitle"), QString());
    QStringList commands = Unpacking(stem);
    if (failing == 2) {
        commands.removeLast();
    }
    commands += List({"rm -r \"" + stem + ".temp\"", "/usr/bin/kxsystem/usb_umount"});
    QCOMPARE(stage.Commands(), commands);
}

void tst_MainWindow::rootThatIsNoObjectEndsTheLoading()
{
    Stage stage;
    stage.description = "\xEF\xBB\xBF[]";
    stage.PutPackage();
    CountingWindow window;
    G::MainWin = &window;

    QVERIFY_EXCEPTION_THROWN(window.Onloaded(), std::runtime_error);
}

void tst_MainWindow::messagesFollowTheTranslation_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("hasPackage");
    QTest::addColumn<QString>("message");

    const QString english = QStringLiteral(":/res/q_Updater_en.qm");
    const QString japanese = QStringLiteral(":/res/q_Updater_ja.qm");
    QTest::newRow("English question")
        << english << true << Text("Install the software on this device.\nAre you sure?");
    QTest::newRow("Japanese question")
        << japanese << true
        << Text("この機器にソフトウェアをインストールします。\nよろしいですか？");
    QTest::newRow("no translation") << QString() << true << Text("ER_MSG01");
    QTest::newRow("the bare identifier in English") << english << false << Text("KX_BUG01");
    QTest::newRow("the bare identifier in Japanese") << japanese << false << Text("KX_BUG01");
}

void tst_MainWindow::messagesFollowTheTranslation()
{
    QFETCH(const QString, file);
    QFETCH(const bool, hasPackage);
    QFETCH(const QString, message);
    QTranslator translator;
    QVERIFY(file.isEmpty() || translator.load(file));
    QCoreApplication::installTranslator(&translator);
    Stage stage;
    if (hasPackage) {
        stage.PutPackage();
    } else {
        G::Opts.upDir.clear();
    }

    stage.Show();

    QCOMPARE(Caption(stage, "labelMsg"), message);
    // The form's own texts are in no translation.
    QCOMPARE(stage.Get<QPushButton>("InstallButton")->text(), QStringLiteral("Install"));
}

QTEST_MAIN(tst_MainWindow)

#include "tst_mainwindow.moc"
