// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The road from the confirmation question to the reboot, button by button. The child is told to end
// by the test.
#include "app/Globals.h"
#include "gui/InstalledListDialog.h"
#include "gui/Stage.h"

#include <QAbstractEventDispatcher>
#include <QRegularExpression>
#include <QScreen>
#include <QTableWidget>
#include <QTest>
#include <QTimer>

namespace
{

constexpr const char* kUnmount = "/usr/bin/kxsystem/usb_umount";

/// The intervals of the single-shot timers that are under way, in milliseconds.
QList<int> SingleShots()
{
    QAbstractEventDispatcher* const dispatcher = QAbstractEventDispatcher::instance();
    QList<int> intervals;
    for (QObject* const child : dispatcher->children()) {
        if (qstrcmp(child->metaObject()->className(), "QSingleShotTimer") == 0) {
            for (const auto& timer : dispatcher->registeredTimers(child)) {
                intervals.append(timer.interval);
            }
        }
    }
    return intervals;
}

/// A screen as the framebuffer's: what is painted gets there by an event that is posted then.
class Framebuffer final : public QObject
{
public:
    explicit Framebuffer(QLabel& label) : m_label(label) { label.installEventFilter(this); }

    /// The label's text on the screen; empty before something was painted.
    [[nodiscard]] QString Shown() const { return m_shown; }

    bool eventFilter(QObject* object, QEvent* event) override
    {
        if (event->type() == QEvent::Paint) {
            QCoreApplication::postEvent(this, new QEvent(QEvent::UpdateRequest));
            m_painted = m_label.text();
        }
        return QObject::eventFilter(object, event);
    }

    bool event(QEvent* event) override
    {
        if (event->type() == QEvent::UpdateRequest) {
            m_shown = m_painted;
        }
        return QObject::event(event);
    }

private:
    const QLabel& m_label;
    QString m_painted;
    QString m_shown;
};

QImage ImageOf(const QPixmap& picture)
{
    return picture.toImage().convertToFormat(QImage::Format_RGB32);
}

/// What the platform has got of a window.
QImage ScreenOf(const QWidget& window)
{
    return ImageOf(window.screen()->grabWindow(window.winId()));
}

/// Brings a stage that is not shown yet into a state of the flow.
struct Road {
    const char* name;
    void (*go)(Stage& stage);
    const char* state; ///< what the user sees at its end
};

const Road kRoads[] = {
    {"Error", [](Stage& stage) { stage.Show(); }, "ER_MSG03 / error / Ok / Main / no panel"},
    {"Confirm",
     [](Stage& stage) {
         stage.PutPackage();
         stage.Show();
     },
     "ER_MSG01 / normal / Install Cancel / Main / panel"},
    {"Installing",
     [](Stage& stage) {
         stage.script = {"forever"};
         stage.Install();
     },
     "ER_MSG10_INSTALL_START / normal /  / Main / panel"},
    {"Finished well",
     [](Stage& stage) {
         stage.Install();
         QTRY_VERIFY_WITH_TIMEOUT(stage.Get<QPushButton>("OkButton")->isVisible(), kPatienceMs);
     },
     "ER_MSG90 / normal / Ok / Main / panel"},
    {"Finished badly",
     [](Stage& stage) {
         stage.script = {"exit 1"};
         stage.Install();
         QTRY_VERIFY_WITH_TIMEOUT(stage.Get<QPushButton>("OkButton")->isVisible(), kPatienceMs);
     },
     "ER_MSG91 / error / Ok / Main / panel"},
    {"Waiting for removal",
     [](Stage& stage) {
         stage.Show();
         stage.Press("OkButton");
     },
     "ER_MSG99 / normal /  / Main / no panel"},
    {"Rebooting",
     [](Stage& stage) {
         stage.panel.PullDrive();
         stage.Show();
         stage.Press("OkButton");
         stage.Press("RebootButton");
     },
     "ER_MSG92_REBOOTING / normal /  / Main / no panel"},
};

} // namespace

class tst_MainWindowFlow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cancelCleansUpUnmountsAndWaitsForTheDriveToBeRemoved();
    void okAfterAnErrorWaitsForTheDriveToBeRemoved();
    void finishedWith_data();
    void finishedWith();
    void lastEndOfTheChildDecidesTheMessage();
    void cleanUpRunsOnceWhateverTheRoad();

    void rebootButtonFollowsTheDrive();
    void driveIsLookedForAtOnceAndEvery1500Ms();
    void rebootRunsTheRebootCommandAndNothingElse();
    void rebootBeginsWhenTheScreenShowsTheMessage();
    void noTimerRunsBetweenThePressAndTheReboot();
    void pollGoesOnAfterReboot();

    void installRunsTheUpdaterOfThePackage();
    void installRunsExactlyTheGivenUpdater();
    void wholeRoad();

    void listOpensInEveryState_data();
    void listOpensInEveryState();
    void listKeepsTheTabInFrontOfWhichItWasOpened_data();
    void listKeepsTheTabInFrontOfWhichItWasOpened();
    void listIsReadAgainEachTime();
};

void tst_MainWindowFlow::cancelCleansUpUnmountsAndWaitsForTheDriveToBeRemoved()
{
    Stage stage;
    const std::string stem = stage.PutPackage();
    stage.Show();

    stage.Press("CancelButton");

    QCOMPARE(stage.State(), Text("ER_MSG99 / normal /  / Main / no panel"));
    QCOMPARE(stage.CommandsAfterUnpacking(), List({"rm -r \"" + stem + ".temp\"", kUnmount}));
    stage.panel.PullDrive();
    QTRY_COMPARE_WITH_TIMEOUT(stage.State(), Text("ER_MSG99 / normal / Reboot / Main / no panel"),
                              kPatienceMs);
    QCOMPARE(stage.CommandsAfterUnpacking().size(), 2);
    QCOMPARE(stage.Log(), QString());
}

void tst_MainWindowFlow::okAfterAnErrorWaitsForTheDriveToBeRemoved()
{
    Stage stage;
    stage.Show();
    QCOMPARE(stage.State(), Text("ER_MSG03 / error / Ok / Main / no panel"));

    stage.Press("OkButton");

    QCOMPARE(stage.State(), Text("ER_MSG99 / normal /  / Main / no panel"));
    QCOMPARE(stage.Commands(), List({kUnmount}));
}

void tst_MainWindowFlow::finishedWith_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("state");
    const QString failure = Text("ER_MSG91 / error / Install Cancel Ok / Main / panel");
    QTest::newRow("0") << 0 << Text("ER_MSG90 / normal / Install Cancel Ok / Main / panel");
    for (const int code : {1, 101, 255, -1}) {
        QTest::addRow("%d", code) << code << failure;
    }
}

void tst_MainWindowFlow::finishedWith()
{
    QFETCH(const int, code);
    QFETCH(const QString, state);
    Stage stage;
    const std::string stem = stage.PutPackage();
    stage.Show();
    Q_EMIT stage.window->SignOutLine("the log is in front");

    Q_EMIT stage.window->SignInstallFinished(code);

    QCOMPARE(stage.State(), state);
    QCOMPARE(stage.CommandsAfterUnpacking(), List({"rm -r \"" + stem + ".temp\"", kUnmount}));
}

void tst_MainWindowFlow::lastEndOfTheChildDecidesTheMessage()
{
    Stage stage;
    stage.PutPackage();
    stage.Show();

    Q_EMIT stage.window->SignInstallFinished(-1);
    Q_EMIT stage.window->SignInstallFinished(0);
    QCOMPARE(stage.State(), Text("ER_MSG90 / normal / Install Cancel Ok / Main / panel"));
    Q_EMIT stage.window->SignInstallFinished(9);
    QCOMPARE(stage.State(), Text("ER_MSG91 / error / Install Cancel Ok / Main / panel"));

    QCOMPARE(stage.CommandsAfterUnpacking().size(), 2);
}

void tst_MainWindowFlow::cleanUpRunsOnceWhateverTheRoad()
{
    Stage stage;
    const std::string stem = stage.PutPackage();
    stage.description.clear();

    stage.Show();
    QCOMPARE(stage.State(), Text("ER_MSG04 / error / Ok / Main / no panel"));
    Q_EMIT stage.window->SignInstallFinished(0);
    stage.Press("OkButton");
    Q_EMIT stage.window->SignInstallFinished(-1);
    stage.Press("OkButton");

    QCOMPARE(stage.CommandsAfterUnpacking(), List({"rm -r \"" + stem + ".temp\"", kUnmount}));
}

void tst_MainWindowFlow::rebootButtonFollowsTheDrive()
{
    Stage stage;
    stage.Show();
    stage.Press("OkButton");
    const auto* const reboot = stage.Get<QPushButton>("RebootButton");
    const int looks = stage.panel.DriveLooks();

    // With the drive left in, the button does not appear however often somebody looks.
    QTRY_VERIFY_WITH_TIMEOUT(stage.panel.DriveLooks() > looks, kPatienceMs);
    QVERIFY(!reboot->isVisible());
    stage.panel.PullDrive();
    QTRY_VERIFY_WITH_TIMEOUT(reboot->isVisible(), kPatienceMs);
    stage.panel.PlugDrive();
    QTRY_VERIFY_WITH_TIMEOUT(!reboot->isVisible(), kPatienceMs);
    stage.panel.PullDrive();
    QTRY_VERIFY_WITH_TIMEOUT(reboot->isVisible(), kPatienceMs);
    QCOMPARE(stage.State(), Text("ER_MSG99 / normal / Reboot / Main / no panel"));
}

void tst_MainWindowFlow::driveIsLookedForAtOnceAndEvery1500Ms()
{
    Stage stage;
    stage.panel.PullDrive();
    stage.Show();
    QCOMPARE(stage.panel.DriveLooks(), 0);
    const QList<int> others = SingleShots(); // of windows that are gone

    stage.Press("OkButton");

    QCOMPARE(stage.panel.DriveLooks(), 1);
    QCOMPARE(stage.State(), Text("ER_MSG99 / normal / Reboot / Main / no panel"));
    QCOMPARE(SingleShots(), others + QList<int>{1500});
    QTRY_COMPARE_WITH_TIMEOUT(stage.panel.DriveLooks(), 2, kPatienceMs);
    QTRY_COMPARE_WITH_TIMEOUT(SingleShots(), QList<int>{1500}, kPatienceMs);
}

void tst_MainWindowFlow::rebootRunsTheRebootCommandAndNothingElse()
{
    Stage stage;
    stage.panel.PullDrive();
    stage.Show();
    stage.Press("OkButton");
    QString state;
    stage.shell.On("/sbin/reboot", [&] { state = stage.State(); });

    stage.Press("RebootButton");

    QCOMPARE(state, Text("ER_MSG92_REBOOTING / normal /  / Main / no panel"));
    QCOMPARE(stage.State(), state);
    QCOMPARE(stage.Commands(), List({kUnmount, "/sbin/reboot"}));
}

void tst_MainWindowFlow::rebootBeginsWhenTheScreenShowsTheMessage()
{
    Stage stage;
    stage.panel.PullDrive();
    stage.Show();
    stage.Press("OkButton");
    QVERIFY(QTest::qWaitForWindowExposed(stage.window.get(), kPatienceMs));
    const Framebuffer framebuffer(*stage.Get<QLabel>("labelMsg"));
    QString shown;
    QImage screen;
    stage.shell.On("/sbin/reboot", [&] {
        shown = framebuffer.Shown();
        screen = ScreenOf(*stage.window);
    });

    stage.Press("RebootButton");

    QCOMPARE(shown, Text("ER_MSG92_REBOOTING"));
    QVERIFY(!screen.isNull());
    QCOMPARE(screen, ImageOf(stage.window->grab()));
}

void tst_MainWindowFlow::noTimerRunsBetweenThePressAndTheReboot()
{
    Stage stage;
    stage.panel.PullDrive();
    stage.Show();
    stage.Press("OkButton");
    QVERIFY(QTest::qWaitForWindowExposed(stage.window.get(), kPatienceMs));
    bool hasRun = false;
    bool hadRun = true;
    stage.shell.On("/sbin/reboot", [&] { hadRun = hasRun; });

    QTimer overdue;
    connect(&overdue, &QTimer::timeout, [&] { hasRun = true; });
    overdue.start(0);
    stage.Get<QPushButton>("RebootButton")->click();

    QVERIFY(!hadRun);
    QTRY_VERIFY_WITH_TIMEOUT(hasRun, kPatienceMs);
}

void tst_MainWindowFlow::pollGoesOnAfterReboot()
{
    Stage stage;
    stage.panel.PullDrive();
    stage.Show();
    stage.Press("OkButton");
    stage.Press("RebootButton");

    QTRY_COMPARE_WITH_TIMEOUT(
        stage.State(), Text("ER_MSG92_REBOOTING / normal / Reboot / Main / no panel"), kPatienceMs);
}

void tst_MainWindowFlow::installRunsTheUpdaterOfThePackage()
{
    Stage stage;
    stage.script = {"args"};

    stage.Install();

    QTRY_COMPARE_WITH_TIMEOUT(stage.State(), Text("ER_MSG90 / normal / Ok / Main / panel"),
                              kPatienceMs);
    QCOMPARE(stage.Log().remove(QStringLiteral("\n\n")).remove(QLatin1Char('\n')),
             Text("-unzipedDir" + (stage.drive / "Foo.temp")));
}

void tst_MainWindowFlow::installRunsExactlyTheGivenUpdater()
{
    Stage stage;
    G::Opts.updaterPath = "/bin/echo";

    stage.Install();

    QTRY_COMPARE_WITH_TIMEOUT(stage.State(), Text("ER_MSG90 / normal / Ok / Main / panel"),
                              kPatienceMs);
    QCOMPARE(stage.Log(), Text("-unzipedDir " + (stage.drive / "Foo.temp") + "\n\n"));
}

void tst_MainWindowFlow::wholeRoad()
{
    Stage stage;
    stage.script = {R"(out **** Installation step 1/1\n)", "exit 0"};
    const std::string stem = stage.PutPackage();

    stage.Show();
    QCOMPARE(stage.State(), Text("ER_MSG01 / normal / Install Cancel / Main / panel"));
    stage.Press("InstallButton");
    QCOMPARE(stage.State(), Text("ER_MSG10_INSTALL_START / normal /  / Main / panel"));
    QTRY_COMPARE_WITH_TIMEOUT(stage.State(), Text("ER_MSG90 / normal / Ok / Main / panel"),
                              kPatienceMs);
    QCOMPARE(stage.Log(), QStringLiteral("**** Installation step 1/1\n\n"));
    stage.Press("OkButton");
    QCOMPARE(stage.State(), Text("ER_MSG99 / normal /  / Main / no panel"));
    stage.panel.PullDrive();
    QTRY_COMPARE_WITH_TIMEOUT(stage.State(), Text("ER_MSG99 / normal / Reboot / Main / no panel"),
                              kPatienceMs);
    stage.Press("RebootButton");

    QCOMPARE(stage.State(), Text("ER_MSG92_REBOOTING / normal /  / Main / no panel"));
    QCOMPARE(stage.Commands(),
             List({"rm -r \"" + stem + ".temp\"", "mkdir -p \"" + stem + ".temp\"",
                   "unzip -o \"" + stem + ".kx-update\" -d \"" + stem + ".temp\" ",
                   "rm -r \"" + stem + ".temp\"", kUnmount, "/sbin/reboot"}));
}

void tst_MainWindowFlow::listOpensInEveryState_data()
{
    QTest::addColumn<int>("road");
    for (int i = 0; i < static_cast<int>(std::size(kRoads)); ++i) {
        QTest::newRow(kRoads[i].name) << i;
    }
}

void tst_MainWindowFlow::listOpensInEveryState()
{
    QFETCH(const int, road);
    Stage stage;
    kRoads[road].go(stage);
    QCOMPARE(stage.State(), Text(kRoads[road].state));
    const QStringList commands = stage.Commands();

    stage.OpenList([](InstalledListDialog& list) {
        QVERIFY(list.isFullScreen());
        QCOMPARE(list.parent(), nullptr);
        QVERIFY(list.findChild<QPushButton*>(QStringLiteral("closeButton"))->isVisible());
    });

    QCOMPARE(stage.State(), Text(kRoads[road].state));
    QCOMPARE(stage.Commands(), commands);
    QVERIFY(stage.Get<QPushButton>("InstalledListButton")->isVisible());
    if (qstrcmp(QTest::currentDataTag(), "Installing") == 0) {
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("QProcess: Destroyed")));
    }
}

void tst_MainWindowFlow::listKeepsTheTabInFrontOfWhichItWasOpened_data()
{
    QTest::addColumn<int>("tab");
    QTest::newRow("Main") << 0;
    QTest::newRow("Log") << 1;
}

void tst_MainWindowFlow::listKeepsTheTabInFrontOfWhichItWasOpened()
{
    QFETCH(const int, tab);
    Stage stage;
    stage.panel.MakeRecord("broken");
    stage.PutPackage();
    stage.Show();
    auto* const tabs = stage.Get<QTabWidget>("tabsCenter");
    tabs->setCurrentIndex(tab);

    stage.OpenList([tabs](InstalledListDialog&) { QCOMPARE(tabs->currentIndex(), 1); });

    QCOMPARE(tabs->currentIndex(), tab);
    QCOMPARE(stage.Log(), QStringLiteral("Unable to access /var/lib/KxUserPackages/broken/"
                                         "UserPackage.kx-project file.\n\n"));
}

void tst_MainWindowFlow::listIsReadAgainEachTime()
{
    Stage stage;
    stage.PutPackage();
    stage.Show();
    const auto rows = [](const InstalledListDialog& list) {
        return list.findChild<QTableWidget*>(QStringLiteral("tableWidget"))->rowCount();
    };

    stage.OpenList([&rows](const InstalledListDialog& list) { QCOMPARE(rows(list), 0); });
    stage.panel.WriteRecord("a", ProjectBuilder::File(ProjectBuilder::Root()));
    stage.OpenList([&rows](const InstalledListDialog& list) { QCOMPARE(rows(list), 1); });
    stage.panel.RemoveRecords();
    stage.OpenList([&rows](const InstalledListDialog& list) { QCOMPARE(rows(list), 0); });
}

QTEST_MAIN(tst_MainWindowFlow)

#include "tst_mainwindow_flow.moc"
