// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// GUI mode: the window, the logger that leads to it, and the event loop.
#include "app/Globals.h"
#include "app/RunModes.h"
#include "engine/q_UpdaterEngine.h"
#include "gui/Stage.h"
#include "model/PicoJFactory.h"

#include <QPointer>
#include <QTest>
#include <QTimer>

namespace
{

/// A panel on which nothing has been started, and GUI mode on it.
class Panel
{
public:
    Panel() { q_UpdaterEngine::PicoJTbl = &table; }
    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;
    ~Panel() { q_UpdaterEngine::PicoJTbl = m_saved; }

    /// Runs GUI mode. Its event loop calls @p look and ends with @p exitCode.
    /// @return the result of GUI mode
    int Run(const std::function<void(MainWindow&)>& look, int exitCode = 0)
    {
        stage.Close();
        QTimer::singleShot(0, qApp, [&look, exitCode] {
            look(*G::MainWin);
            QCoreApplication::exit(exitCode);
        });
        return GuiMode(qobject_cast<QApplication*>(QCoreApplication::instance()));
    }

    Stage stage;
    PicoJFactory table;

private:
    PicoJFactory* m_saved = q_UpdaterEngine::PicoJTbl;
};

QString LogOf(const MainWindow& window)
{
    return window.findChild<QPlainTextEdit*>(QStringLiteral("logArea"))->toPlainText();
}

} // namespace

class tst_GuiMode : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void showsTheWindowFullScreenAndOnTop();
    void returnsTheResultOfTheEventLoopAndEndsTheWindow();
    void startsTheEngine();
    void loggerWritesToTheLogOfTheWindow();
    void loggerIsThereBeforeTheFirstShow();
};

void tst_GuiMode::showsTheWindowFullScreenAndOnTop()
{
    Panel panel;
    QMainWindow expected;
    expected.setWindowFlags(Qt::WindowStaysOnTopHint);
    expected.showFullScreen();

    panel.Run([&expected](const MainWindow& window) {
        QCOMPARE(window.windowFlags(), expected.windowFlags());
        QVERIFY(window.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        QVERIFY(window.isFullScreen());
        QVERIFY(window.isVisible());
        QCOMPARE(window.parent(), nullptr);
    });
}

void tst_GuiMode::returnsTheResultOfTheEventLoopAndEndsTheWindow()
{
    Panel panel;
    QPointer<MainWindow> window;

    const int result = panel.Run([&window](MainWindow& shown) { window = &shown; }, 7);

    QCOMPARE(result, 7);
    QVERIFY(window.isNull());
    // The unpacked folder and the drive are the window's business, not that of its end.
    QCOMPARE(panel.stage.Commands(), List({"/usr/bin/kxsystem/usb_umount"}));
}

void tst_GuiMode::startsTheEngine()
{
    Panel panel;
    QCOMPARE(panel.table.Prototypes().count, 0);

    panel.Run([&panel](const MainWindow&) { QCOMPARE(panel.table.Prototypes().count, 13); });
}

void tst_GuiMode::loggerWritesToTheLogOfTheWindow()
{
    Panel panel;
    const std::string text = std::string(5000, 'x') + "ü%s";
    QString log;

    panel.Run([&text, &log](const MainWindow& window) {
        ILogger& logger = *q_UpdaterEngine::SysLogger;
        logger.OutMsg("message %d");
        logger.OutLine("line %d of %s", 1, "two");
        logger.OutLine("%s", text.c_str());
        log = LogOf(window);
    });

    QCOMPARE(log, Text("message %d\nline 1 of two\n\n" + text + "\n\n"));
}

void tst_GuiMode::loggerIsThereBeforeTheFirstShow()
{
    Panel panel;
    const std::string stem = panel.stage.PutPackage();
    panel.stage.shell.AnswerNth(2, 256);
    QString log;

    panel.Run([&log](const MainWindow& window) { log = LogOf(window); });

    QCOMPARE(log, Text("Unable to create folder of temporary to " + stem + ".temp.\n\n"));
}

QTEST_MAIN(tst_GuiMode)

#include "tst_guimode.moc"
