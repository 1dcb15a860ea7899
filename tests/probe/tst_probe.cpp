// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What the observer in a program's process tells of its windows, and when.
#include "probe/Listener.h"
#include "support/Deadline.h"

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QFontMetrics>
#include <QGenericPlugin>
#include <QHeaderView>
#include <QJsonArray>
#include <QLabel>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QPluginLoader>
#include <QPushButton>
#include <QScrollBar>
#include <QStyle>
#include <QTabBar>
#include <QTabWidget>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QWindow>

#include <algorithm>
#include <csignal>
#include <functional>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace
{

constexpr int kPatienceMs = 20000; // far more than a busy machine needs

/// Makes what the plugin makes with KX_PROBE as @p path; without the variable when it is empty.
std::unique_ptr<QObject> MakeProbe(const QByteArray& path)
{
    qunsetenv("KX_PROBE");
    if (!path.isEmpty()) {
        qputenv("KX_PROBE", path);
    }
    QPluginLoader loader(QStringLiteral(KX_PROBE_PLUGIN));
    auto* const plugin = qobject_cast<QGenericPlugin*>(loader.instance());
    if (plugin == nullptr) {
        qFatal("%s", qPrintable(loader.errorString()));
    }
    return std::unique_ptr<QObject>(plugin->create(QStringLiteral("kxprobe"), QString()));
}

/// A program that is observed, and its observer.
class Observed
{
public:
    Observed() : probe(MakeProbe(QByteArray::fromStdString(listener.Path())))
    {
        if (probe == nullptr) {
            qFatal("the plugin makes no probe");
        }
        listener.Accept();
    }

    /// Lets the program answer a request, and so tell all that is shown.
    void Sync()
    {
        listener.Ask("sync\n");
        const int answer = listener.Answers() + 1;
        QTRY_COMPARE_WITH_TIMEOUT(listener.Answers(), answer, kPatienceMs);
    }

    /// @return what was told last of a widget
    [[nodiscard]] QJsonObject Told(const QString& name) const
    {
        return Widgets().value(name).toObject();
    }

    [[nodiscard]] QJsonObject Widgets() const
    {
        return listener.State()[QStringLiteral("widgets")].toObject();
    }

    [[nodiscard]] QString Front() const
    {
        return listener.State()[QStringLiteral("front")].toString();
    }

    /// Lets everything happen that is to happen by now.
    void Settle()
    {
        Sync();
        QCoreApplication::processEvents();
    }

    /// Lets everything happen until nothing but the answer is told: a window that is shown may be
    /// exposed a moment later.
    void SettleForGood()
    {
        int before = 0;
        do {
            before = listener.Lines().size();
            Settle();
        } while (listener.Lines().size() != before + 1);
    }

    Deadline deadline;
    Listener listener;
    std::unique_ptr<QObject> probe;
};

/// A window with a name.
template <typename Window>
class Named : public Window
{
public:
    explicit Named(const char* name, QWidget* parent = nullptr) : Window(parent)
    {
        Window::setObjectName(QString::fromLatin1(name));
        Window::setGeometry(40, 30, 400, 300);
    }
};

template <typename Widget>
Widget* Add(QWidget& parent, const char* name, const QRect& place)
{
    auto* const widget = new Widget(&parent);
    widget->setObjectName(QString::fromLatin1(name));
    widget->setGeometry(place);
    return widget;
}

QJsonArray Numbers(int x, int y, int width, int height)
{
    return {x, y, width, height};
}

QJsonArray Texts(const QStringList& texts)
{
    return QJsonArray::fromStringList(texts);
}

/// The descriptors of this process, without the one that looks for them.
QStringList Descriptors()
{
    QStringList open = QDir(QStringLiteral("/proc/self/fd"))
                           .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System);
    const auto isClosed = [](const QString& name) { return fcntl(name.toInt(), F_GETFD) < 0; };
    open.erase(std::remove_if(open.begin(), open.end(), isClosed), open.end());
    return open;
}

const QString kAt = QStringLiteral("at");
const QString kShown = QStringLiteral("shown");
const QString kHidden = QStringLiteral("hidden");
const QString kCut = QStringLiteral("cut");
const QString kText = QStringLiteral("text");
const QString kPoints = QStringLiteral("points");
const QString kStyle = QStringLiteral("style");

std::function<void()> duringSync; // what happens while the screen catches up

} // namespace

/// Stands before Qt's own, which has nothing to wait for without a display.
void QGuiApplication::sync()
{
    if (duringSync) {
        duringSync();
    }
}

class tst_Probe : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isFoundByItsName();
    void isThereOnlyForAListener();
    void pathsOfSockets_data();
    void pathsOfSockets();
    void handsItsLinkToNoOtherProgram();
    void speaksOverAPortAsWell();
    void tellsWindowsAndTheirNamedParts();
    void tellsNothingOfWhatHasNoNameOrIsPartOfAnother();
    void tellsTheWindowInFront();
    void tellsPlacesFontsAndStyles();
    void tellsWhatIsHiddenAndWhatIsCovered();
    void tellsAWindowThatIsNotOnTheScreenYet();
    void tellsTexts();
    void tellsTextsThatAreCut_data();
    void tellsTextsThatAreCut();
    void tellsNoCutOfWhatIsNotShown();
    void tellsTabs();
    void tellsTabsThatAreCut();
    void tellsTheLog();
    void tellsOfALongLogTheEnd();
    void tellsRows();
    void tellsCellsAndHeadsThatAreCut();
    void tellsEachChange_data();
    void tellsEachChange();
    void tellsNothingTwice();
    void tellsManyChangesAtOnce();
    void tellsAChangeBeforeTheNextOne();
    void answersWhenAllIsTold();
    void answersWhenTheScreenShowsAll();
    void tellsAllToAListenerThatTakesItsTime();
    void readsRequestsLineByLine();
    void leavesTheEventLoopWhenAsked();
    void letsTheProgramLiveWhenNobodyListens();
    void letsGoAtItsEnd();
};

void tst_Probe::isFoundByItsName()
{
    const QJsonObject told = QPluginLoader(QStringLiteral(KX_PROBE_PLUGIN)).metaData();

    QCOMPARE(told[QStringLiteral("IID")].toString(),
             QStringLiteral(QGenericPluginFactoryInterface_iid));
    QCOMPARE(told[QStringLiteral("MetaData")].toObject()[QStringLiteral("Keys")].toArray(),
             Texts({QStringLiteral("kxprobe")}));
}

void tst_Probe::isThereOnlyForAListener()
{
    const QStringList before = Descriptors();

    QVERIFY(MakeProbe("") == nullptr);
    QVERIFY(MakeProbe("/no/such/socket") == nullptr);

    QCOMPARE(Descriptors(), before);
}

void tst_Probe::pathsOfSockets_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<bool>("isThere");

    QTest::newRow("any") << 0 << true;
    QTest::newRow("the longest with its end") << 107 << true;
    QTest::newRow("no room for its end") << 108 << false;
}

void tst_Probe::pathsOfSockets()
{
    QFETCH(int, length);
    QFETCH(bool, isThere);
    const Listener listener(static_cast<std::size_t>(length));

    QCOMPARE(MakeProbe(QByteArray::fromStdString(listener.Path())) != nullptr, isThere);
}

void tst_Probe::handsItsLinkToNoOtherProgram()
{
    const Listener listener;
    const QStringList before = Descriptors();

    const auto probe = MakeProbe(QByteArray::fromStdString(listener.Path()));

    int fresh = 0;
    const QStringList now = Descriptors();
    for (const QString& name : now) {
        if (!before.contains(name)) {
            ++fresh;
            QVERIFY((fcntl(name.toInt(), F_GETFD) & FD_CLOEXEC) != 0);
        }
    }
    QCOMPARE(fresh, 1);
}

void tst_Probe::speaksOverAPortAsWell()
{
    const Deadline deadline;
    const int port = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    QVERIFY(port >= 0 && grantpt(port) == 0 && unlockpt(port) == 0);
    termios settings = {};
    QCOMPARE(tcgetattr(port, &settings), 0);
    cfmakeraw(&settings);
    QCOMPARE(tcsetattr(port, TCSANOW, &settings), 0);
    const std::unique_ptr<QObject> probe = MakeProbe(ptsname(port));
    QVERIFY(probe != nullptr);
    QCOMPARE(write(port, "sync\n", 5), ssize_t{5});

    QByteArray said;
    const auto hear = [&said, port] {
        QByteArray bytes(4096, '\0');
        const ssize_t count = read(port, bytes.data(), static_cast<std::size_t>(bytes.size()));
        said += bytes.left(static_cast<int>(std::max<ssize_t>(count, 0)));
        return said.endsWith("{\"sync\":1}\n");
    };
    QTRY_VERIFY_WITH_TIMEOUT(hear(), kPatienceMs);

    QCOMPARE(said, QByteArray("{\"front\":\"\",\"widgets\":{}}\n{\"sync\":1}\n"));
    close(port);
}

void tst_Probe::tellsWindowsAndTheirNamedParts()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const outer = Add<QWidget>(window, "outer", QRect(0, 0, 100, 100));
    Add<QLabel>(*outer, "inner", QRect(0, 0, 50, 50));
    Named<QDialog> other("Other");
    window.show();
    other.show();

    QTRY_COMPARE_WITH_TIMEOUT(program.Widgets().keys(),
                              QStringList({QStringLiteral("Main"), QStringLiteral("Other"),
                                           QStringLiteral("inner"), QStringLiteral("outer")}),
                              kPatienceMs);
}

void tst_Probe::tellsNothingOfWhatHasNoNameOrIsPartOfAnother()
{
    Observed program;
    Named<QMainWindow> window("Main");
    Add<QLabel>(window, "", QRect(0, 0, 10, 10));
    Add<QLabel>(window, "qt_part", QRect(0, 0, 10, 10));
    Add<QLabel>(window, "part_qt_", QRect(0, 0, 10, 10));
    Named<QWidget> nameless("");
    Add<QLabel>(nameless, "lost", QRect(0, 0, 10, 10));
    Named<QWidget> hidden("Hidden");
    Add<QLabel>(hidden, "hiddenPart", QRect(0, 0, 10, 10));
    window.show();
    nameless.show();

    QTRY_COMPARE_WITH_TIMEOUT(program.Widgets().keys(),
                              QStringList({QStringLiteral("Main"), QStringLiteral("part_qt_")}),
                              kPatienceMs);
}

void tst_Probe::tellsTheWindowInFront()
{
    Observed program;
    // Whichever is made first.
    Named<QDialog> earlier("Earlier");
    Named<QMainWindow> window("Main");
    Named<QDialog> later("Later");
    program.Sync();
    QCOMPARE(program.Front(), QString());

    window.show();
    QTRY_COMPARE_WITH_TIMEOUT(program.Front(), QStringLiteral("Main"), kPatienceMs);

    for (QDialog* const dialog : {static_cast<QDialog*>(&earlier), static_cast<QDialog*>(&later)}) {
        dialog->setModal(true);
        dialog->show();
        QTRY_COMPARE_WITH_TIMEOUT(program.Front(), dialog->objectName(), kPatienceMs);
        dialog->hide();
        QTRY_COMPARE_WITH_TIMEOUT(program.Front(), QStringLiteral("Main"), kPatienceMs);
    }
}

void tst_Probe::tellsPlacesFontsAndStyles()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const outer = Add<QWidget>(window, "outer", QRect(10, 20, 100, 90));
    auto* const inner = Add<QLabel>(*outer, "inner", QRect(1, 2, 33, 44));
    QFont font = inner->font();
    font.setPointSize(17);
    inner->setFont(font);
    inner->setStyleSheet(QStringLiteral("* {color : red}"));
    window.show();

    QTRY_COMPARE_WITH_TIMEOUT(program.Told(QStringLiteral("Main"))[kAt].toArray(),
                              Numbers(40, 30, 400, 300), kPatienceMs);
    QCOMPARE(program.Told(QStringLiteral("outer"))[kAt].toArray(), Numbers(50, 50, 100, 90));
    const QJsonObject told = program.Told(QStringLiteral("inner"));
    QCOMPARE(told[kAt].toArray(), Numbers(51, 52, 33, 44));
    QCOMPARE(told[kPoints].toInt(), 17);
    QCOMPARE(told[kStyle].toString(), QStringLiteral("* {color : red}"));
    QVERIFY(!program.Told(QStringLiteral("outer")).contains(kStyle));
}

void tst_Probe::tellsWhatIsHiddenAndWhatIsCovered()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const page = Add<QWidget>(window, "page", QRect(0, 0, 100, 100));
    Add<QPushButton>(*page, "button", QRect(0, 0, 50, 50));
    const auto expect = [&program](const char* name, bool shown, bool hidden) {
        const QJsonObject told = program.Told(QString::fromLatin1(name));
        QCOMPARE(told[kShown], QJsonValue(shown));
        QCOMPARE(told[kHidden], QJsonValue(hidden));
    };

    window.show();
    QTRY_VERIFY_WITH_TIMEOUT(program.Told(QStringLiteral("Main"))[kShown].toBool(), kPatienceMs);
    expect("Main", true, false);
    expect("button", true, false);

    page->hide();
    program.Settle();
    expect("Main", true, false);
    expect("page", false, true);
    expect("button", false, false);
}

void tst_Probe::tellsAWindowThatIsNotOnTheScreenYet()
{
    Observed program;
    Named<QMainWindow> window("Main");
    Add<QPushButton>(window, "button", QRect(0, 0, 50, 50));
    window.show();
    QTRY_VERIFY_WITH_TIMEOUT(program.Told(QStringLiteral("button"))[kShown].toBool(), kPatienceMs);

    // As while the window manager has not placed it.
    window.windowHandle()->setVisible(false);
    window.setAttribute(Qt::WA_WState_Visible, true);
    program.Settle();

    QVERIFY(window.isVisible());
    QCOMPARE(program.Told(QStringLiteral("button"))[kShown], QJsonValue(false));
    QCOMPARE(program.Told(QStringLiteral("button"))[kHidden], QJsonValue(false));
}

void tst_Probe::tellsTexts()
{
    Observed program;
    Named<QMainWindow> window("Main");
    Add<QLabel>(window, "label", QRect(0, 0, 300, 60))->setText(QStringLiteral("Ä\nb"));
    Add<QPushButton>(window, "button", QRect(0, 100, 300, 60))->setText(QStringLiteral("Press"));
    window.show();

    QTRY_COMPARE_WITH_TIMEOUT(program.Told(QStringLiteral("label"))[kText].toString(),
                              QStringLiteral("Ä\nb"), kPatienceMs);
    QCOMPARE(program.Told(QStringLiteral("button"))[kText].toString(), QStringLiteral("Press"));
    QVERIFY(!program.Told(QStringLiteral("Main")).contains(kText));
    QVERIFY(!program.Told(QStringLiteral("label")).contains(kCut));
    QVERIFY(!program.Told(QStringLiteral("button")).contains(kCut));
}

void tst_Probe::tellsTextsThatAreCut_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");  // beyond the text's own
    QTest::addColumn<int>("height"); // beyond the line's own
    QTest::addColumn<int>("alignment");
    QTest::addColumn<bool>("wraps");
    QTest::addColumn<bool>("isCut");

    const int middle = Qt::AlignCenter;
    const int left = Qt::AlignLeft | Qt::AlignTop;
    const QString text = QStringLiteral("HHHH HHHH");
    QTest::newRow("room enough") << text << 4 << 4 << middle << false << false;
    QTest::newRow("too narrow") << text << -20 << 4 << middle << false << true;
    QTest::newRow("too narrow, from the left") << text << -20 << 4 << left << false << true;
    QTest::newRow("too narrow, but it wraps") << text << -20 << 100 << left << true << false;
    QTest::newRow("it wraps, and is too low") << text << -20 << 2 << left << true << true;
    QTest::newRow("too low") << text << 4 << -12 << middle << false << true;
    QTest::newRow("too low, from the top") << text << 4 << -12 << left << false << true;
    QTest::newRow("a line too low, marks that fit")
        << QStringLiteral("----") << 4 << -6 << middle << false << false;
    QTest::newRow("blanks need no room")
        << QStringLiteral("H        ") << -12 << 4 << left << false << false;
}

void tst_Probe::tellsTextsThatAreCut()
{
    QFETCH(QString, text);
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, alignment);
    QFETCH(bool, wraps);
    QFETCH(bool, isCut);
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const label = Add<QLabel>(window, "label", QRect());
    label->setText(text);
    label->setAlignment(Qt::Alignment(alignment));
    label->setWordWrap(wraps);
    QFont font = label->font();
    font.setPointSize(16);
    label->setFont(font);
    const QFontMetrics metrics(font);
    label->setGeometry(0, 0, metrics.boundingRect(text).width() + width, metrics.height() + height);

    window.show();

    QTRY_VERIFY_WITH_TIMEOUT(program.Told(QStringLiteral("label"))[kShown].toBool(), kPatienceMs);
    QCOMPARE(program.Told(QStringLiteral("label"))[kCut].toArray(),
             isCut ? Texts({text}) : QJsonArray());
}

void tst_Probe::tellsNoCutOfWhatIsNotShown()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const button = Add<QPushButton>(window, "button", QRect(0, 0, 10, 10));
    button->setText(QStringLiteral("Too long by far"));
    auto* const framed = Add<QLabel>(window, "framed", QRect(0, 100, 0, 40));
    framed->setText(QStringLiteral("HHHH"));
    framed->resize(QFontMetrics(framed->font()).boundingRect(framed->text()).width() + 4, 40);
    button->hide();
    // Marks in the middle of a line that is too high.
    auto* const low = Add<QPushButton>(window, "low", QRect(0, 200, 100, 10));
    low->setText(QStringLiteral("----"));
    window.show();
    QTRY_VERIFY_WITH_TIMEOUT(program.Told(QStringLiteral("framed"))[kShown].toBool(), kPatienceMs);
    QVERIFY(!program.Told(QStringLiteral("button")).contains(kCut));
    QVERIFY(!program.Told(QStringLiteral("framed")).contains(kCut));
    QVERIFY(!program.Told(QStringLiteral("low")).contains(kCut));

    button->show();
    framed->setContentsMargins(10, 0, 10, 0); // leave less room
    program.Settle();

    QCOMPARE(program.Told(QStringLiteral("button"))[kCut].toArray(), Texts({button->text()}));
    QCOMPARE(program.Told(QStringLiteral("framed"))[kCut].toArray(), Texts({framed->text()}));
}

void tst_Probe::tellsTabs()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const tabs = Add<QTabWidget>(window, "tabs", QRect(5, 6, 300, 200));
    tabs->addTab(new QWidget, QStringLiteral("  First  "));
    tabs->addTab(new QWidget, QStringLiteral(" Second"));
    window.show();

    QTRY_COMPARE_WITH_TIMEOUT(
        program.Told(QStringLiteral("tabs"))[QStringLiteral("current")].toString(),
        QStringLiteral("First"), kPatienceMs);
    const QTabBar& bar = *tabs->tabBar();
    const auto place = [&bar](int index) {
        const QRect rect = bar.tabRect(index);
        const QPoint corner = bar.mapToGlobal(rect.topLeft());
        return Numbers(corner.x(), corner.y(), rect.width(), rect.height());
    };
    const QJsonObject told = program.Told(QStringLiteral("tabs"));
    QCOMPARE(
        told[QStringLiteral("tabs")].toObject(),
        QJsonObject({{QStringLiteral("First"), place(0)}, {QStringLiteral("Second"), place(1)}}));
    QVERIFY(!told.contains(kCut));

    tabs->setCurrentIndex(1);
    QTRY_COMPARE_WITH_TIMEOUT(
        program.Told(QStringLiteral("tabs"))[QStringLiteral("current")].toString(),
        QStringLiteral("Second"), kPatienceMs);
}

void tst_Probe::tellsTabsThatAreCut()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const tabs = Add<QTabWidget>(window, "tabs", QRect(5, 6, 300, 200));
    const QString text = QStringLiteral("HHHHHH");
    tabs->addTab(new QWidget, QStringLiteral("      ") + text + QStringLiteral("      "));
    tabs->addTab(new QWidget, QStringLiteral("H"));
    tabs->setUsesScrollButtons(false);
    tabs->setElideMode(Qt::ElideNone);
    window.show();
    const int needed = QFontMetrics(tabs->tabBar()->font()).boundingRect(text).width();
    const auto cutAt = [&](int width, const char* margins) {
        tabs->setStyleSheet(QStringLiteral("QTabBar::tab {width: %1px; %2}")
                                .arg(width)
                                .arg(QLatin1String(margins)));
        program.Settle();
        if (tabs->tabBar()->tabRect(0).width() != width) {
            qFatal("the tab is %d wide", tabs->tabBar()->tabRect(0).width());
        }
        return program.Told(QStringLiteral("tabs"))[kCut].toArray();
    };
    constexpr const char* kNone = "padding: 0px; margin: 0px; border: 0px";
    constexpr int kBlank = 10; // more than letters leave of the room that is measured for them

    QCOMPARE(cutAt(needed, kNone), QJsonArray());
    QCOMPARE(cutAt(needed - kBlank, kNone), Texts({text}));
    // A style leaves room beside the caption.
    QCOMPARE(cutAt(needed, ""), Texts({text}));
    // The blanks around it need room, too, when captions are shortened.
    tabs->setElideMode(Qt::ElideRight);
    QCOMPARE(cutAt(needed, kNone), Texts({text}));
}

void tst_Probe::tellsTheLog()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const log = Add<QPlainTextEdit>(window, "log", QRect(0, 0, 300, 100));
    const auto told = [&program](const char* field) {
        return program.Told(QStringLiteral("log")).value(QString::fromLatin1(field));
    };
    log->setPlainText(QStringLiteral("one\ntwo"));
    window.show();
    QTRY_COMPARE_WITH_TIMEOUT(told("text").toString(), QStringLiteral("one\ntwo"), kPatienceMs);
    QCOMPARE(told("length"), QJsonValue(7));
    QCOMPARE(told("atEnd"), QJsonValue(true));

    for (int i = 0; i < 100; ++i) {
        log->appendPlainText(QStringLiteral("more"));
    }
    log->verticalScrollBar()->setValue(0);
    program.Settle();
    QCOMPARE(told("atEnd"), QJsonValue(false));

    log->verticalScrollBar()->setValue(log->verticalScrollBar()->maximum());
    program.Settle();
    QCOMPARE(told("atEnd"), QJsonValue(true));
    QCOMPARE(told("length"), QJsonValue(7 + 100 * 5));
}

void tst_Probe::tellsOfALongLogTheEnd()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const log = Add<QPlainTextEdit>(window, "log", QRect(0, 0, 300, 100));
    const QString whole = (QString(63, QLatin1Char('x')) + QLatin1Char('\n')).repeated(1024);
    const auto told = [&program] { return program.Told(QStringLiteral("log")); };
    window.show();

    log->setPlainText(whole);
    QTRY_COMPARE_WITH_TIMEOUT(told()[QStringLiteral("length")].toInt(), 65536, kPatienceMs);
    QVERIFY(told()[kText].toString() == whole);

    log->setPlainText(QStringLiteral("ab") + whole.mid(2) + QStringLiteral("y"));
    QTRY_COMPARE_WITH_TIMEOUT(told()[QStringLiteral("length")].toInt(), 65537, kPatienceMs);
    QVERIFY(told()[kText].toString() == QStringLiteral("b") + whole.mid(2) + QStringLiteral("y"));
}

void tst_Probe::tellsRows()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const table = Add<QTableWidget>(window, "table", QRect(0, 0, 390, 200));
    table->setRowCount(2);
    table->setColumnCount(3);
    table->setItem(0, 0, new QTableWidgetItem(QStringLiteral("a")));
    table->setItem(0, 2, new QTableWidgetItem(QStringLiteral("c\ne")));
    table->setItem(1, 1, new QTableWidgetItem(QStringLiteral("e")));
    window.show();

    const QJsonArray first = Texts({QStringLiteral("a"), QString(), QStringLiteral("c\ne")});
    const QJsonArray second = Texts({QString(), QStringLiteral("e"), QString()});
    QTRY_COMPARE_WITH_TIMEOUT(
        program.Told(QStringLiteral("table"))[QStringLiteral("rows")].toArray(),
        QJsonArray({QJsonValue(first), QJsonValue(second)}), kPatienceMs);
    QVERIFY(!program.Told(QStringLiteral("table")).contains(kCut));
}

void tst_Probe::tellsCellsAndHeadsThatAreCut()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const table = Add<QTableWidget>(window, "table", QRect(0, 0, 390, 200));
    const QString cell = QStringLiteral("HHHHHHHHHHHH");
    const QString head = QStringLiteral("HHHHHHHHHHHHM");
    table->setRowCount(1);
    table->setColumnCount(3);
    table->horizontalHeader()->setMinimumSectionSize(1);
    table->setItem(0, 1, new QTableWidgetItem(cell));
    auto* const heading = new QTableWidgetItem(head);
    QFont font = table->font();
    font.setPointSize(font.pointSize() + 4);
    heading->setFont(font);
    table->setHorizontalHeaderItem(2, heading);
    window.show();
    const int margin =
        table->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, table) + 1;
    const int wide = QFontMetrics(table->font()).boundingRect(cell).width() + 2 * margin;
    const int wideHead = QFontMetrics(font).boundingRect(head).width() + 2 * margin;
    const auto cutAt = [&](int first, int second) {
        table->setColumnWidth(1, first);
        table->setColumnWidth(2, second);
        program.Settle();
        return program.Told(QStringLiteral("table"))[kCut].toArray();
    };

    // A column has a line of the grid beside it.
    QCOMPARE(cutAt(wide + 1, wideHead + 1), QJsonArray());
    QCOMPARE(cutAt(wide, wideHead + 1), Texts({cell}));
    QCOMPARE(cutAt(wide + 1, wideHead), Texts({head}));
    QCOMPARE(cutAt(wide, wideHead), Texts({head, cell}));
    table->setShowGrid(false);
    QCOMPARE(cutAt(wide, wideHead), QJsonArray());
    QCOMPARE(cutAt(wide - 1, wideHead - 1), Texts({head, cell}));
}

void tst_Probe::tellsEachChange_data()
{
    QTest::addColumn<int>("kind");

    QTest::newRow("move") << int(QEvent::Move);
    QTest::newRow("size") << int(QEvent::Resize);
    QTest::newRow("paint") << int(QEvent::Paint);
    QTest::newRow("hide") << int(QEvent::Hide);
    QTest::newRow("show") << int(QEvent::Show);
    QTest::newRow("exposed") << int(QEvent::Expose);
    QTest::newRow("in front") << int(QEvent::WindowActivate);
}

void tst_Probe::tellsEachChange()
{
    QFETCH(int, kind);
    Observed program;
    Named<QMainWindow> window("Main");
    window.show();
    program.SettleForGood();
    const int before = program.listener.Lines().size();

    // The change itself is one that nothing else tells.
    window.setToolTip(QStringLiteral("x"));
    QFont font = window.font();
    font.setPointSize(23);
    {
        const QSignalBlocker quiet(&window);
        window.setAttribute(Qt::WA_WState_Visible, true);
    }
    window.setUpdatesEnabled(false);
    window.setFont(font);
    QCoreApplication::processEvents();
    QCOMPARE(program.listener.Lines().size(), before);
    QObject other;
    QEvent event(static_cast<QEvent::Type>(kind));
    QCoreApplication::sendEvent(&other, &event);

    QTRY_COMPARE_WITH_TIMEOUT(program.Told(QStringLiteral("Main"))[kPoints].toInt(), 23,
                              kPatienceMs);
}

void tst_Probe::tellsNothingTwice()
{
    Observed program;
    Named<QMainWindow> window("Main");
    window.show();
    program.SettleForGood();
    const int before = program.listener.Lines().size();

    window.repaint();
    program.Settle();

    QCOMPARE(program.listener.Lines().size(), before + 1); // the answer
}

void tst_Probe::tellsManyChangesAtOnce()
{
    Observed program;
    Named<QMainWindow> window("Main");
    window.show();
    program.SettleForGood();
    const int before = program.listener.Lines().size();

    for (int i = 1; i <= 50; ++i) {
        window.setGeometry(i, i, 400, 300);
    }
    QTRY_COMPARE_WITH_TIMEOUT(program.Told(QStringLiteral("Main"))[kAt].toArray(),
                              Numbers(50, 50, 400, 300), kPatienceMs);

    QVERIFY(program.listener.Lines().size() <= before + 5);
}

void tst_Probe::tellsAChangeBeforeTheNextOne()
{
    Observed program;
    Named<QMainWindow> window("Main");
    window.show();
    program.Settle();

    window.setGeometry(10, 10, 100, 100);
    QTimer::singleShot(100, &window, [&window] { window.setGeometry(20, 20, 100, 100); });
    QTRY_COMPARE_WITH_TIMEOUT(program.Told(QStringLiteral("Main"))[kAt].toArray(),
                              Numbers(20, 20, 100, 100), kPatienceMs);

    QByteArray all;
    const QList<QByteArray> lines = program.listener.Lines();
    for (const QByteArray& line : lines) {
        all += line;
    }
    QVERIFY(all.contains("[10,10,100,100]"));
}

void tst_Probe::answersWhenAllIsTold()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const label = Add<QLabel>(window, "label", QRect(0, 0, 300, 60));
    window.show();
    program.Settle();

    for (int i = 2; i < 5; ++i) {
        label->setText(QString::number(i));
        program.listener.Ask("sync\n");
        QTRY_COMPARE_WITH_TIMEOUT(program.listener.Answers(), i, kPatienceMs);
        const QList<QByteArray> lines = program.listener.Lines();
        const int answer = lines.indexOf("{\"sync\":" + QByteArray::number(i) + "}");
        QVERIFY(answer > 0);
        QVERIFY(lines[answer - 1].contains("\"text\":\"" + QByteArray::number(i) + "\""));
    }
}

void tst_Probe::answersWhenTheScreenShowsAll()
{
    Observed program;
    Named<QMainWindow> window("Main");
    auto* const label = Add<QLabel>(window, "label", QRect(0, 0, 300, 60));
    window.show();
    program.Settle();
    int answersBefore = -1;
    duringSync = [&] {
        answersBefore = program.listener.Answers();
        label->setText(QStringLiteral("drawn"));
    };

    program.Sync();
    duringSync = nullptr;

    QCOMPARE(answersBefore, 1);
    const QList<QByteArray> lines = program.listener.Lines();
    const int answer = lines.indexOf("{\"sync\":2}");
    QVERIFY(answer > 0);
    QVERIFY(lines[answer - 1].contains("\"text\":\"drawn\""));
}

void tst_Probe::tellsAllToAListenerThatTakesItsTime()
{
    const Deadline deadline;
    Listener listener;
    const auto probe = MakeProbe(QByteArray::fromStdString(listener.Path()));
    Named<QMainWindow> window("Main");
    const QString line = QString(63, QLatin1Char('x')) + QLatin1Char('\n');
    for (const char* const name : {"one", "two", "three", "four", "five", "six"}) {
        Add<QPlainTextEdit>(window, name, QRect(0, 0, 50, 50))->setPlainText(line.repeated(1024));
    }
    struct sigaction interrupting = {};
    struct sigaction earlier = {};
    interrupting.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupting, &earlier);
    // It is more than the line takes, and signals come in between.
    std::thread slow([&listener, program = pthread_self()] {
        for (int i = 0; i < 15; ++i) {
            usleep(10000);
            pthread_kill(program, SIGUSR1);
        }
        listener.Accept();
    });
    window.show();
    QCoreApplication::processEvents();
    slow.join();
    sigaction(SIGUSR1, &earlier, nullptr);

    QTRY_VERIFY_WITH_TIMEOUT(!listener.State().isEmpty(), kPatienceMs);
    const QJsonObject told = listener.State().value(QStringLiteral("widgets")).toObject();
    QVERIFY(told.value(QStringLiteral("six")).toObject().value(kText).toString() ==
            line.repeated(1024));
}

void tst_Probe::readsRequestsLineByLine()
{
    Observed program;
    program.listener.Ask("sy");
    QTest::qWait(20);
    QCOMPARE(program.listener.Answers(), 0);
    program.listener.Ask("nc\nsync");
    QTRY_COMPARE_WITH_TIMEOUT(program.listener.Answers(), 1, kPatienceMs);
    program.listener.Ask("\nsync\nnonsense\n\nsync\n");
    QTRY_COMPARE_WITH_TIMEOUT(program.listener.Answers(), 4, kPatienceMs);

    // More than one reading takes.
    program.listener.Ask(QByteArray("sync\n").repeated(100));
    QTRY_COMPARE_WITH_TIMEOUT(program.listener.Answers(), 104, kPatienceMs);
    program.listener.Ask(QByteArray(1000, 'x') + "\nsync\n");
    QTRY_COMPARE_WITH_TIMEOUT(program.listener.Answers(), 105, kPatienceMs);
}

void tst_Probe::leavesTheEventLoopWhenAsked()
{
    Observed program;
    QTimer::singleShot(0, qApp, [&program] { program.listener.Ask("quit\n"); });

    QCOMPARE(QCoreApplication::exec(), 0);
}

void tst_Probe::letsTheProgramLiveWhenNobodyListens()
{
    Observed program;
    Named<QMainWindow> window("Main");
    window.show();
    program.Settle();

    program.listener.Leave();
    window.move(1, 2);
    QTest::qWait(20);

    // What is gone does not keep the program busy.
    auto* const dispatcher = QAbstractEventDispatcher::instance();
    const auto isIdle = [dispatcher] {
        return !dispatcher->processEvents(QEventLoop::AllEvents) &&
               !dispatcher->processEvents(QEventLoop::AllEvents);
    };
    QTRY_VERIFY_WITH_TIMEOUT(isIdle(), kPatienceMs);
}

void tst_Probe::letsGoAtItsEnd()
{
    Observed program;
    const int before = Descriptors().size();

    program.probe.reset();

    QCOMPARE(Descriptors().size(), before - 1);
    QTRY_VERIFY_WITH_TIMEOUT(program.listener.IsOver(), kPatienceMs);
}

QTEST_MAIN(tst_Probe)
#include "tst_probe.moc"
