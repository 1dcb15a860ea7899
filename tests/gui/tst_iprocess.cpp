// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The child-process runner, with real children.
#include "gui/FileLimit.h"
#include "gui/IProcess.h"
#include "gui/MetaObject.h"
#include "gui/VirtualTable.h"
#include "support/Fifo.h"
#include "support/TempDir.h"

#include <QTest>
#include <QTextCodec>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr int kProcessPatienceMs = 20000;

/// Keeps what the hooks get, one entry a call: "out <text>", "err <text>", "end <code>".
class Child final : public IProcess
{
public:
    explicit Child(QStringList& events) : IProcess(nullptr), m_events(events) {}

    /// Starts the fake updater with its instructions.
    bool Follow(const std::vector<std::string>& script)
    {
        std::vector<const char*> arguments;
        arguments.reserve(script.size());
        for (const std::string& line : script) {
            arguments.push_back(line.c_str());
        }
        return Start(KX_FAKE_UPDATER, static_cast<int>(arguments.size()), arguments.data());
    }

    void OnOutputStdOut(const char* text) override
    {
        m_events.append(QStringLiteral("out ") + QString::fromUtf8(text));
    }
    void OnOutputStdErr(const char* text) override
    {
        m_events.append(QStringLiteral("err ") + QString::fromUtf8(text));
    }
    void OnFnished(int exitCode) override
    {
        m_events.append(QStringLiteral("end %1").arg(exitCode));
    }

private:
    QStringList& m_events;
};

/// Keeps the bytes that stand where the text was handed over, as many as it is told.
class Bytes final : public IProcess
{
public:
    explicit Bytes(int length) : IProcess(nullptr), m_length(length) {}

    void OnOutputStdOut(const char* text) override { chunk = QByteArray(text, m_length); }
    void OnOutputStdErr(const char* text) override { chunk = QByteArray(text, m_length); }
    void OnFnished(int /*exitCode*/) override { hasEnded = true; }

    QByteArray chunk;
    bool hasEnded = false;

private:
    int m_length;
};

/// Gives access to the last virtual function of QObject.
struct LastOfQObject : QObject {
    static std::ptrdiff_t Place() { return PlaceInVirtualTable(&LastOfQObject::disconnectNotify); }
};

QStringList List(std::initializer_list<const char*> entries)
{
    QStringList list;
    for (const char* const entry : entries) {
        list.append(QString::fromUtf8(entry));
    }
    return list;
}

} // namespace

class tst_IProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void slotsStandInTheirOrder();
    void hooksStandInTheirOrderBehindThoseOfQObject();
    void hasNoErrorAtFirst();

    void argumentsAreReadAsLatin1();
    void nullProgramCannotBeStarted();
    void noArguments_data();
    void noArguments();

    void twoLinesOfOneWriteAreOneChunk();
    void partOfALineIsAChunk();
    void standardErrorHasItsOwnHook();
    void chunkIsTheExactBytesAndAZero();
    void outputOfAnySizeArrivesWhole();

    void exitCodeAndTheLineOnStandardOutput_data();
    void exitCodeAndTheLineOnStandardOutput();
    void crashTellsTheErrorAndThenTheEnd();
    void programThatCannotBeExecuted_data();
    void programThatCannotBeExecuted();
    void startFailsAtOnceWithoutPipes();
    void startWorksAgainAfterTheEnd();

    void endOfTheRunnerKillsTheChildAndCallsNoHook();
};

void tst_IProcess::initTestCase()
{
    // What Qt makes of an argument depends on the locale.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void tst_IProcess::slotsStandInTheirOrder()
{
    QCOMPARE(OwnMethods(IProcess::staticMetaObject),
             List({"slot imp_updateOutput()", "slot imp_updateError()",
                   "slot imp_proc_finished(int,QProcess::ExitStatus)",
                   "slot imp_proc_errorOccurred(QProcess::ProcessError)"}));
}

void tst_IProcess::hooksStandInTheirOrderBehindThoseOfQObject()
{
    const std::ptrdiff_t last = LastOfQObject::Place();

    QCOMPARE(PlaceInVirtualTable(&IProcess::OnOutputStdOut), last + 1);
    QCOMPARE(PlaceInVirtualTable(&IProcess::OnOutputStdErr), last + 2);
    QCOMPARE(PlaceInVirtualTable(&IProcess::OnFnished), last + 3);
}

void tst_IProcess::hasNoErrorAtFirst()
{
    QStringList events;
    Child child(events);

    QCOMPARE(child.LastError(), -1);
    QCOMPARE(child.parent(), nullptr);
    QCOMPARE(events, QStringList());
}

void tst_IProcess::argumentsAreReadAsLatin1()
{
    QStringList events;
    Child child(events);

    QVERIFY(child.Follow({"args", "exit 0", "a b", "\xE9\"$x", "\xC3\xA9", ""}));

    QTRY_VERIFY_WITH_TIMEOUT(events.contains(QStringLiteral("end 0")), kProcessPatienceMs);
    events.removeLast();
    for (QString& event : events) {
        event.remove(QStringLiteral("out "));
    }
    QCOMPARE(events.join(QString()), QStringLiteral("args\nexit 0\na b\né\"$x\nÃ©\n\n"));
}

void tst_IProcess::nullProgramCannotBeStarted()
{
    QStringList events;
    Child child(events);

    QVERIFY(!child.Start(nullptr, 0, nullptr));

    QCOMPARE(events, List({"end -1"}));
    QCOMPARE(child.LastError(), int{QProcess::FailedToStart});
}

void tst_IProcess::noArguments_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("none") << 0;
    QTest::newRow("fewer than none") << -1;
}

void tst_IProcess::noArguments()
{
    QFETCH(const int, count);
    QStringList events;
    Child child(events);
    const char* argument = "exit 9";

    QVERIFY(child.Start(KX_FAKE_UPDATER, count, &argument));

    QTRY_COMPARE_WITH_TIMEOUT(events, List({"end 0"}), kProcessPatienceMs);
}

void tst_IProcess::twoLinesOfOneWriteAreOneChunk()
{
    QStringList events;
    Child child(events);

    QVERIFY(child.Follow({R"(out one\ntwo\n)"}));

    QTRY_COMPARE_WITH_TIMEOUT(events, List({"out one\ntwo\n", "end 0"}), kProcessPatienceMs);
}

void tst_IProcess::partOfALineIsAChunk()
{
    const TempDir dir;
    Fifo fifo(dir);
    QStringList events;
    Child child(events);

    QVERIFY(child.Follow({"out half", "wait " + fifo.Path(), R"(out  a line\n)"}));

    QTRY_COMPARE_WITH_TIMEOUT(events, List({"out half"}), kProcessPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(fifo.Take(), kProcessPatienceMs);
    fifo.Release();
    QTRY_COMPARE_WITH_TIMEOUT(events, List({"out half", "out  a line\n", "end 0"}),
                              kProcessPatienceMs);
}

void tst_IProcess::standardErrorHasItsOwnHook()
{
    const TempDir dir;
    Fifo fifo(dir);
    QStringList events;
    Child child(events);

    QVERIFY(child.Follow({R"(err wrong\n)", "wait " + fifo.Path(), R"(out right\n)"}));

    QTRY_COMPARE_WITH_TIMEOUT(events, List({"err wrong\n"}), kProcessPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(fifo.Take(), kProcessPatienceMs);
    fifo.Release();
    QTRY_COMPARE_WITH_TIMEOUT(events, List({"err wrong\n", "out right\n", "end 0"}),
                              kProcessPatienceMs);
}

void tst_IProcess::chunkIsTheExactBytesAndAZero()
{
    const QByteArray expected("a\0b\xFF\0", 5);
    for (const char* const line : {R"(out a\x00b\xFF)", R"(err a\x00b\xFF)"}) {
        Bytes child(5);
        const std::vector<const char*> arguments = {line};

        QVERIFY(child.Start(KX_FAKE_UPDATER, 1, const_cast<const char**>(arguments.data())));

        QTRY_VERIFY_WITH_TIMEOUT(child.hasEnded, kProcessPatienceMs);
        QCOMPARE(child.chunk, expected);
    }
}

void tst_IProcess::outputOfAnySizeArrivesWhole()
{
    QStringList events;
    Child child(events);

    QVERIFY(child.Follow({"flood 3000000"}));

    QTRY_VERIFY_WITH_TIMEOUT(events.contains(QStringLiteral("end 0")), kProcessPatienceMs);
    QCOMPARE(events.takeLast(), QStringLiteral("end 0"));
    QVERIFY(events.size() > 1);
    QString output;
    for (const QString& event : events) {
        QVERIFY(event.startsWith(QStringLiteral("out ")));
        output += event.mid(4);
    }
    QCOMPARE(output, QString(3000000, QLatin1Char('x')));
}

void tst_IProcess::exitCodeAndTheLineOnStandardOutput_data()
{
    QTest::addColumn<int>("code");
    for (const int code : {0, 3, 255}) {
        QTest::addRow("%d", code) << code;
    }
}

void tst_IProcess::exitCodeAndTheLineOnStandardOutput()
{
    QFETCH(const int, code);
    QStringList events;
    Child child(events);

    ::testing::internal::CaptureStdout();
    const bool isStarted = child.Follow({"exit " + std::to_string(code)});
    const bool hasEnded =
        QTest::qWaitFor([&events] { return !events.isEmpty(); }, kProcessPatienceMs);
    std::fflush(stdout);
    const std::string output = ::testing::internal::GetCapturedStdout();

    QVERIFY(isStarted);
    QVERIFY(hasEnded);
    QCOMPARE(events, QStringList(QStringLiteral("end %1").arg(code)));
    QCOMPARE(output, "imp_proc_finished  exitCode = " + std::to_string(code) + ", ExitStatus=0\n");
    QCOMPARE(child.LastError(), -1);
}

void tst_IProcess::crashTellsTheErrorAndThenTheEnd()
{
    QStringList events;
    Child child(events);

    ::testing::internal::CaptureStdout();
    const bool isStarted = child.Follow({"kill 9"});
    const bool hasEnded =
        QTest::qWaitFor([&events] { return events.size() >= 2; }, kProcessPatienceMs);
    std::fflush(stdout);
    const std::string output = ::testing::internal::GetCapturedStdout();

    QVERIFY(isStarted);
    QVERIFY(hasEnded);
    QCOMPARE(events, List({"end -1", "end 9"}));
    QCOMPARE(output, std::string("imp_proc_finished  exitCode = 9, ExitStatus=1\n"));
    QCOMPARE(child.LastError(), int{QProcess::Crashed});
}

void tst_IProcess::programThatCannotBeExecuted_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("does not exist") << QStringLiteral("missing");
    QTest::newRow("may not be executed") << QStringLiteral("plain");
    QTest::newRow("is a folder") << QStringLiteral("folder");
    QTest::newRow("is no program") << QStringLiteral("empty");
    QTest::newRow("its name is read as Latin-1") << QStringLiteral("née");
}

void tst_IProcess::programThatCannotBeExecuted()
{
    QFETCH(const QString, name);
    const TempDir dir;
    dir.Write("plain", "#!/bin/sh\n", 0644);
    dir.MakeDir("folder");
    dir.Write("empty", "\x7F", 0755);
    std::filesystem::create_symlink(KX_FAKE_UPDATER, dir / "née");
    QStringList events;
    Child child(events);

    child.Start((dir / name.toStdString()).c_str(), 0, nullptr);

    QTRY_COMPARE_WITH_TIMEOUT(events, List({"end -1"}), kProcessPatienceMs);
    QCOMPARE(child.LastError(), int{QProcess::FailedToStart});
}

void tst_IProcess::startFailsAtOnceWithoutPipes()
{
    QStringList events;
    Child child(events);
    bool isStarted = true;

    {
        const FileLimit limit;
        isStarted = child.Follow({});
    }

    QVERIFY(!isStarted);
    QCOMPARE(events, List({"end -1"}));
    QCOMPARE(child.LastError(), int{QProcess::FailedToStart});
}

void tst_IProcess::startWorksAgainAfterTheEnd()
{
    QStringList events;
    Child child(events);

    QVERIFY(child.Follow({"exit 4"}));
    QTRY_COMPARE_WITH_TIMEOUT(events, List({"end 4"}), kProcessPatienceMs);
    QVERIFY(child.Follow({"exit 5"}));

    QTRY_COMPARE_WITH_TIMEOUT(events, List({"end 4", "end 5"}), kProcessPatienceMs);
}

void tst_IProcess::endOfTheRunnerKillsTheChildAndCallsNoHook()
{
    const TempDir dir;
    Fifo life(dir);
    QStringList events;
    auto child = std::make_unique<Child>(events);
    QVERIFY(child->Follow({"keep " + life.Path(), "out x", "forever"}));
    QTRY_COMPARE_WITH_TIMEOUT(events, List({"out x"}), kProcessPatienceMs);
    QVERIFY(life.Take());
    QVERIFY(life.HasReader());

    QTest::ignoreMessage(QtWarningMsg, "QProcess: Destroyed while process (\"" KX_FAKE_UPDATER
                                       "\") is still running.");
    child.reset();

    QVERIFY(!life.HasReader());
    QCoreApplication::processEvents();
    QCOMPARE(events, List({"out x"}));
}

QTEST_MAIN(tst_IProcess)

#include "tst_iprocess.moc"
