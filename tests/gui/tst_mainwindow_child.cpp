// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The window with a real child, whatever the child does.
#include "app/Globals.h"
#include "gui/FileLimit.h"
#include "gui/InstalledListDialog.h"
#include "gui/Stage.h"
#include "support/Fifo.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QTextCodec>
#include <QTimer>

#include <filesystem>

namespace
{

const char* const kInstalling = "ER_MSG10_INSTALL_START / normal /  / Main / panel";
const char* const kInstallingWithLog = "ER_MSG10_INSTALL_START / normal /  / Log / panel";
const char* const kSuccess = "ER_MSG90 / normal / Ok / Main / panel";
const char* const kFailure = "ER_MSG91 / error / Ok / Main / panel";

/// The codes with which the window heard of the child's end.
QList<int> Codes(const QSignalSpy& spy)
{
    QList<int> codes;
    for (const QList<QVariant>& arguments : spy) {
        codes.append(arguments.at(0).toInt());
    }
    return codes;
}

/// A stage with the window shown, the package confirmed, and the ends of the child watched.
class Installation : public Stage
{
public:
    explicit Installation(const std::vector<std::string>& instructions)
    {
        script = instructions;
        PutPackage();
        Show();
    }

    void Start() const { Press("InstallButton"); }

    /// The commands that delete the unpacked package and unmount the drive.
    [[nodiscard]] QStringList CleanUp() const
    {
        return List({"rm -r \"" + (drive / "Foo.temp") + "\"", "/usr/bin/kxsystem/usb_umount"});
    }

    QSignalSpy ends{window.get(), &MainWindow::SignInstallFinished};
};

/// Qt's remark about a child that is killed with the window.
void ExpectKilledChild()
{
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("^QProcess: Destroyed while process")));
}

} // namespace

class tst_MainWindowChild : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void outputBringsTheLogToTheFrontAndTheEndTheMessage();
    void exitCode_data();
    void exitCode();
    void noOutput();
    void standardErrorGoesToTheLogToo();
    void extraLineBreakFollowsEveryChunk();
    void crashIsToldTwiceAndTheLastDecides();

    void cannotStartIsLoggedAndThenTheFailureShown();
    void programThatCannotBeExecuted_data();
    void programThatCannotBeExecuted();
    void givenProgramThatDoesNotExist();
    void nonAsciiFolderMakesTheStartFail();

    void longOutputWithoutLineBreak();
    void endlessOutputLeavesTheWindowAlive();
    void binaryBytes();
    void closedPipesDoNotEndTheInstallation();
    void lastWordsOfAChildThatEndedBeforeTheFirstReadAreShown();
    void grandchildThatKeepsThePipeOpenDoesNotHoldTheEndBack();
    void neverEndingChildLeavesTheWindowAlive();
    void endOfTheWindowKillsTheChild();
};

void tst_MainWindowChild::initTestCase()
{
    // What Qt makes of an argument depends on the locale.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void tst_MainWindowChild::outputBringsTheLogToTheFrontAndTheEndTheMessage()
{
    const TempDir dir;
    Fifo fifo(dir);
    Installation run({R"(out step 1\n)", "wait " + fifo.Path()});

    run.Start();

    QCOMPARE(run.State(), Text(kInstalling));
    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kInstallingWithLog), kPatienceMs);
    QCOMPARE(run.Log(), QStringLiteral("step 1\n\n"));
    QCOMPARE(run.CommandsAfterUnpacking(), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(fifo.Take(), kPatienceMs);
    fifo.Release();
    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kSuccess), kPatienceMs);
    QCOMPARE(run.CommandsAfterUnpacking(), run.CleanUp());
    QCOMPARE(Codes(run.ends), QList<int>{0});
}

void tst_MainWindowChild::exitCode_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("state");
    QTest::newRow("success") << 0 << Text(kSuccess);
    QTest::newRow("failure of a step") << 3 << Text(kFailure);
    QTest::newRow("result above 255") << 101 << Text(kFailure);
}

void tst_MainWindowChild::exitCode()
{
    QFETCH(const int, code);
    QFETCH(const QString, state);
    Installation run({R"(out last line\n)", "exit " + std::to_string(code)});

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), state, kPatienceMs);
    QCOMPARE(Codes(run.ends), QList<int>{code});
    QCOMPARE(run.Log(), QStringLiteral("last line\n\n"));
    QCOMPARE(run.CommandsAfterUnpacking(), run.CleanUp());
}

void tst_MainWindowChild::noOutput()
{
    Installation run({});

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kSuccess), kPatienceMs);
    QCOMPARE(run.Log(), QString());
}

void tst_MainWindowChild::standardErrorGoesToTheLogToo()
{
    const TempDir dir;
    Fifo fifo(dir);
    Installation run({R"(err cp: no such file\n)", "wait " + fifo.Path(), R"(out next\n)"});

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kInstallingWithLog), kPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(fifo.Take(), kPatienceMs);
    fifo.Release();
    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kSuccess), kPatienceMs);
    QCOMPARE(run.Log(), QStringLiteral("cp: no such file\n\nnext\n\n"));
}

void tst_MainWindowChild::extraLineBreakFollowsEveryChunk()
{
    const TempDir dir;
    Fifo fifo(dir);
    Installation run({R"(out one\ntwo\nthr)", "wait " + fifo.Path(), R"(out ee\n)"});

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.Log(), QStringLiteral("one\ntwo\nthr\n"), kPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(fifo.Take(), kPatienceMs);
    fifo.Release();
    QTRY_COMPARE_WITH_TIMEOUT(run.Log(), QStringLiteral("one\ntwo\nthr\nee\n\n"), kPatienceMs);
}

void tst_MainWindowChild::crashIsToldTwiceAndTheLastDecides()
{
    Installation run({R"(out half\n)", "kill 9"});

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(Codes(run.ends), (QList<int>{-1, 9}), kPatienceMs);
    QCOMPARE(run.State(), Text(kFailure));
    QCOMPARE(run.Log(), QStringLiteral("half\n\n"));
    QCOMPARE(run.CommandsAfterUnpacking(), run.CleanUp());
}

void tst_MainWindowChild::cannotStartIsLoggedAndThenTheFailureShown()
{
    Installation run({});
    QString stateAtTheLine;
    connect(run.Get<QPlainTextEdit>("logArea"), &QPlainTextEdit::textChanged, this,
            [&] { stateAtTheLine = run.State(); });

    {
        const FileLimit limit;
        run.Start();
    }

    const std::string folder = run.drive / "Foo.temp";
    QCOMPARE(run.Log(),
             Text("Cannot start : " + folder + "/kx_Updater -unzipedDir " + folder + "\n\n"));
    QCOMPARE(run.State(), Text(kFailure));
    // The process's own report came before the line.
    QCOMPARE(stateAtTheLine, Text(kFailure));
    QCOMPARE(Codes(run.ends), (QList<int>{-1, -1}));
    QCOMPARE(run.CommandsAfterUnpacking(), run.CleanUp());
}

void tst_MainWindowChild::programThatCannotBeExecuted_data()
{
    QTest::addColumn<bool>("isThere");
    QTest::newRow("missing from the package") << false;
    QTest::newRow("may not be executed") << true;
}

void tst_MainWindowChild::programThatCannotBeExecuted()
{
    QFETCH(const bool, isThere);
    Installation run({});
    QVERIFY(std::filesystem::remove(run.drive / "Foo.temp/kx_Updater"));
    if (isThere) {
        run.drive.Write("Foo.temp/kx_Updater", "#!/bin/sh\n", 0644);
    }

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kFailure), kPatienceMs);
    QCOMPARE(Codes(run.ends), QList<int>{-1});
    QCOMPARE(run.CommandsAfterUnpacking(), run.CleanUp());
}

void tst_MainWindowChild::givenProgramThatDoesNotExist()
{
    Installation run({});
    G::Opts.updaterPath = run.drive / "none";

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kFailure), kPatienceMs);
    QCOMPARE(run.CommandsAfterUnpacking(), run.CleanUp());
}

void tst_MainWindowChild::nonAsciiFolderMakesTheStartFail()
{
    // The path is read as Latin-1, so its bytes are not those of the folder any more.
    Stage stage;
    stage.PutPackage("Füße");
    stage.Show();

    stage.Press("InstallButton");

    QTRY_COMPARE_WITH_TIMEOUT(stage.State(), Text(kFailure), kPatienceMs);
    QCOMPARE(stage.CommandsAfterUnpacking(), List({"rm -r \"" + (stage.drive / "Füße.temp") + "\"",
                                                   "/usr/bin/kxsystem/usb_umount"}));
}

void tst_MainWindowChild::longOutputWithoutLineBreak()
{
    Installation run({"flood 300000"});

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kSuccess), kPatienceMs);
    QCOMPARE(run.Log().remove(QLatin1Char('\n')), QString(300000, QLatin1Char('x')));
}

void tst_MainWindowChild::endlessOutputLeavesTheWindowAlive()
{
    Installation run({"endless"});
    int ticks = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, this, [&ticks] { ++ticks; });
    timer.start(10);

    run.Start();

    QTRY_VERIFY_WITH_TIMEOUT(ticks >= 5 && run.Log().size() > 100000, kPatienceMs);
    QCOMPARE(run.State(), Text(kInstallingWithLog));
    ExpectKilledChild();
    run.Close();
}

void tst_MainWindowChild::binaryBytes()
{
    Installation run({R"(out \xFF\xFE\x01\x7Fa\xC0\x80b\x1B[0m\n)"});

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kSuccess), kPatienceMs);
    QCOMPARE(run.Log(), QString::fromUtf8("\xFF\xFE\x01\x7F"
                                          "a\xC0\x80"
                                          "b\x1B[0m\n\n"));
}

void tst_MainWindowChild::closedPipesDoNotEndTheInstallation()
{
    const TempDir dir;
    Fifo fifo(dir);
    Installation run({R"(out bye\n)", "close", "wait " + fifo.Path(), "exit 5"});

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kInstallingWithLog), kPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(fifo.Take(), kPatienceMs);
    QCOMPARE(run.ends.size(), 0);
    QCOMPARE(run.CommandsAfterUnpacking(), QStringList());
    fifo.Release();
    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kFailure), kPatienceMs);
    QCOMPARE(Codes(run.ends), QList<int>{5});
}

void tst_MainWindowChild::lastWordsOfAChildThatEndedBeforeTheFirstReadAreShown()
{
    const TempDir dir;
    Fifo life(dir, "life");
    Fifo order(dir, "order");
    Installation run({R"(out last words\n)", R"(err and last cries\n)", "keep " + life.Path(),
                      "wait " + order.Path(), "exit 6"});

    run.Start();
    // Nothing is read here, because the events stand still.
    order.Await();
    QVERIFY(life.Take());
    order.Release();
    QVERIFY(life.AwaitEnd());
    QCOMPARE(run.Log(), QString());

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kFailure), kPatienceMs);
    QCOMPARE(Codes(run.ends), QList<int>{6});
    QVERIFY(run.Log().contains(QStringLiteral("last words\n\n")));
    QVERIFY(run.Log().contains(QStringLiteral("and last cries\n\n")));
}

void tst_MainWindowChild::grandchildThatKeepsThePipeOpenDoesNotHoldTheEndBack()
{
    const TempDir dir;
    Fifo fifo(dir);
    Installation run({"hold " + fifo.Path(), R"(out started a service\n)", "exit 0"});

    run.Start();

    QTRY_VERIFY_WITH_TIMEOUT(fifo.Take(), kPatienceMs);
    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kSuccess), kPatienceMs);
    QVERIFY(fifo.HasReader());
    QCOMPARE(run.Log(), QStringLiteral("started a service\n\n"));
    QCOMPARE(Codes(run.ends), QList<int>{0});
}

void tst_MainWindowChild::neverEndingChildLeavesTheWindowAlive()
{
    Installation run({R"(out working\n)", "forever"});
    int ticks = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, this, [&ticks] { ++ticks; });
    timer.start(1);

    run.Start();

    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kInstallingWithLog), kPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(ticks >= 20, kPatienceMs);
    bool isListOpen = false;
    run.OpenList([&isListOpen](const InstalledListDialog& list) { isListOpen = list.isVisible(); });
    QVERIFY(isListOpen);
    QCOMPARE(run.State(), Text(kInstallingWithLog));
    QCOMPARE(run.ends.size(), 0);
    ExpectKilledChild();
    run.Close();
}

void tst_MainWindowChild::endOfTheWindowKillsTheChild()
{
    const TempDir dir;
    Fifo life(dir);
    Installation run({"keep " + life.Path(), R"(out working\n)", "forever"});
    run.Start();
    QTRY_COMPARE_WITH_TIMEOUT(run.State(), Text(kInstallingWithLog), kPatienceMs);
    QVERIFY(life.Take());
    QVERIFY(life.HasReader());

    ExpectKilledChild();
    run.Close();

    QVERIFY(!life.HasReader());
    QCoreApplication::processEvents();
    QCOMPARE(run.ends.size(), 0);
    QCOMPARE(run.CommandsAfterUnpacking(), QStringList());
}

QTEST_MAIN(tst_MainWindowChild)

#include "tst_mainwindow_child.moc"
