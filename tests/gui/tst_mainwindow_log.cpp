// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The log: after each chunk it is what an area that gets the whole text anew would be.
#include "gui/Stage.h"

#include <QImage>
#include <QScrollBar>
#include <QTest>
#include <QTextCursor>
#include <QTextDocument>

namespace
{

/// What the user sees of @p area.
QImage PictureOf(QPlainTextEdit& area)
{
    return area.grab().toImage().convertToFormat(QImage::Format_RGB32);
}

/// A window and, over its log, an area of the same place, font and settings, which gets the whole
/// log text after each chunk.
class Twins
{
public:
    explicit Twins(bool hasLogInFront = true)
    {
        stage.PutPackage();
        stage.Show();
        log = stage.Get<QPlainTextEdit>("logArea");
        tabs = stage.Get<QTabWidget>("tabsCenter");
        reference = new QPlainTextEdit(log->parentWidget());
        reference->setReadOnly(true);
        reference->setTextInteractionFlags(Qt::TextSelectableByMouse);
        FollowPlaceAndFont();
        reference->show();
        tabs->setCurrentIndex(hasLogInFront ? 1 : 0);
        QCoreApplication::processEvents();
    }

    /// Gives a chunk of output to both.
    void Line(const QByteArray& text)
    {
        Refer(QString::fromUtf8(text.constData()) + QLatin1Char('\n'));
        Q_EMIT stage.window->SignOutLine(text.constData());
    }

    /// Gives a text without a further line break to both.
    void Message(const QByteArray& text)
    {
        Refer(QString::fromUtf8(text.constData()));
        Q_EMIT stage.window->SignOutMsg(text.constData());
    }

    /// Does the same with both areas.
    template <typename Action>
    void Both(Action action) const
    {
        action(*log);
        action(*reference);
    }

    void FollowPlaceAndFont() const
    {
        reference->setGeometry(log->geometry());
        reference->setFont(log->font());
    }

    /// What is different, or an empty text.
    [[nodiscard]] QString Difference() const
    {
        QCoreApplication::processEvents();
        const auto row = [](const char* name, const QString& is, const QString& expected) {
            return is == expected ? QString()
                                  : QStringLiteral("%1: '%2', not '%3'; ")
                                        .arg(QLatin1String(name), is, expected);
        };
        const auto number = [&row](const char* name, int is, int expected) {
            return row(name, QString::number(is), QString::number(expected));
        };
        const QScrollBar& bar = *log->verticalScrollBar();
        const QScrollBar& expected = *reference->verticalScrollBar();
        return row("text", log->toPlainText(), reference->toPlainText()) +
               number("lines", log->blockCount(), reference->blockCount()) +
               number("cursor", log->textCursor().position(), reference->textCursor().position()) +
               number("anchor", log->textCursor().anchor(), reference->textCursor().anchor()) +
               number("scroll position", bar.value(), expected.value()) +
               number("scroll range", bar.maximum(), expected.maximum()) +
               number("tab", tabs->currentIndex(), 1) +
               (PictureOf(*log) == PictureOf(*reference) ? QString()
                                                         : QStringLiteral("the picture"));
    }

    Stage stage;
    QPlainTextEdit* log = nullptr;
    QPlainTextEdit* reference = nullptr;
    QTabWidget* tabs = nullptr;

private:
    void Refer(const QString& text)
    {
        m_whole += text;
        reference->setPlainText(m_whole);
        QTextCursor cursor = reference->textCursor();
        cursor.movePosition(QTextCursor::End);
        reference->setTextCursor(cursor);
    }

    QString m_whole;
};

/// Lines that are numbered from @p first, more than the area can show at once when they are many.
QByteArray Lines(int first, int count)
{
    QByteArray text;
    for (int i = 0; i < count; ++i) {
        text += "line " + QByteArray::number(first + i) + "\n";
    }
    return text;
}

} // namespace

class tst_MainWindowLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyChunkIsFollowedByALineBreak();
    void messagesGetNoLineBreak();
    void utf8SequenceThatIsSplitIsNotPutTogether();
    void outputBringsTheLogAndAMessageTheMainTabToTheFront();

    void chunks_data();
    void chunks();
    void lineBreakThatIsSplitBetweenMessages_data();
    void lineBreakThatIsSplitBetweenMessages();
    void hundredsOfChunks();

    void selectionOfTheUserIsLost();
    void scrollPositionOfTheUserIsLost_data();
    void scrollPositionOfTheUserIsLost();
    void chunkWhileTheMainTabIsInFront();
    void chunkBeforeTheLogWasEverInFront();
    void chunkAfterAnotherSizeOfTheWindow();
    void chunkWhileTheWindowIsHidden();
    void logKeepsNoHistory();
};

void tst_MainWindowLog::everyChunkIsFollowedByALineBreak()
{
    Twins twins;

    twins.Line("**** Installation step 1/2\n");
    QCOMPARE(twins.stage.Log(), QStringLiteral("**** Installation step 1/2\n\n"));
    twins.Line("half a li");
    twins.Line("ne\n");
    twins.Line("");

    QCOMPARE(twins.stage.Log(),
             QStringLiteral("**** Installation step 1/2\n\nhalf a li\nne\n\n\n"));
    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::messagesGetNoLineBreak()
{
    Twins twins;

    twins.Message("half a li");
    twins.Message("ne\n");
    twins.Message("");
    twins.Line("end");

    QCOMPARE(twins.stage.Log(), QStringLiteral("half a line\nend\n"));
    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::utf8SequenceThatIsSplitIsNotPutTogether()
{
    Twins twins;

    twins.Message("\xE6\x96");
    twins.Message("\xB0");
    twins.Message("\xE6\x96\xB0");

    QVERIFY(twins.stage.Log().contains(QChar(QChar::ReplacementCharacter)));
    QCOMPARE(twins.stage.Log().count(QChar(0x65B0)), 1);
    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::outputBringsTheLogAndAMessageTheMainTabToTheFront()
{
    Twins twins(false);

    QCOMPARE(twins.tabs->currentIndex(), 0);
    twins.Line("output");
    QCOMPARE(twins.tabs->currentIndex(), 1);
    Q_EMIT twins.stage.window->SignInstallFinished(0);
    QCOMPARE(twins.tabs->currentIndex(), 0);
    twins.Message("more");
    QCOMPARE(twins.tabs->currentIndex(), 1);
    Q_EMIT twins.stage.window->SignInstallFinished(1);
    QCOMPARE(twins.tabs->currentIndex(), 0);
}

void tst_MainWindowLog::chunks_data()
{
    using Chunks = QList<QByteArray>;
    QTest::addColumn<Chunks>("chunks");

    QTest::newRow("nothing") << Chunks{""};
    QTest::newRow("one line") << Chunks{"one\n"};
    QTest::newRow("several lines in one") << Chunks{"one\ntwo\nthree\n", "four"};
    QTest::newRow("line breaks only") << Chunks{"\n\n", "\n", "\n\n\n"};
    QTest::newRow("more lines than fit") << Chunks{Lines(1, 40), Lines(41, 3), Lines(44, 40)};
    QTest::newRow("lines that wrap")
        << Chunks{QByteArray("many words ").repeated(30), QByteArray("more words ").repeated(200)};
    QTest::newRow("a word that is wider than the area") << Chunks{QByteArray(500, 'w'), "end\n"};
    QTest::newRow("carriage returns") << Chunks{"10%\r20%\r30%\r", "40%\r", "\r"};
    QTest::newRow("both line breaks") << Chunks{"one\r\ntwo\r\n", "three\r", "\nfour", "\r\n"};
    QTest::newRow("line and paragraph separators") << Chunks{"a\u2028b\u2029c", "\u2029", "\u2028"};
    QTest::newRow("marks of frames") << Chunks{"a\uFDD0b\uFDD1c"};
    QTest::newRow("no-break spaces") << Chunks{"a\u00A0b", QByteArray("\u00A0").repeated(200)};
    QTest::newRow("tabs") << Chunks{"a\tb\tc", "\t\t\n\tx"};
    QTest::newRow("end at a zero byte") << Chunks{QByteArray("seen\0hidden", 11), "next"};
    QTest::newRow("control characters") << Chunks{"a\x01\x08\x0B\x0C\x1B[1mb\x7F"};
    QTest::newRow("bytes that are no UTF-8") << Chunks{"\xFF\xFE", "\xC0\x80", "a\x80"};
    QTest::newRow("split UTF-8 sequence") << Chunks{"\xE6\x96", "\xB0", "\xF0\x9F", "\x98\x80"};
    QTest::newRow("byte order mark") << Chunks{"\xEF\xBB\xBFone", "\xEF\xBB\xBFtwo"};
    QTest::newRow("other scripts") << Chunks{"更新しています\n", "Füße\n", "שלום\n", "e\u0301\n"};
    QTest::newRow("beyond the first plane") << Chunks{"\U0001F600\n", "\U00020000"};
}

void tst_MainWindowLog::chunks()
{
    QFETCH(const QList<QByteArray>, chunks);
    Twins twins;

    for (const QByteArray& chunk : chunks) {
        twins.Line(chunk);
        QCOMPARE(twins.Difference(), QString());
    }
}

void tst_MainWindowLog::lineBreakThatIsSplitBetweenMessages_data()
{
    using Chunks = QList<QByteArray>;
    QTest::addColumn<Chunks>("chunks");
    QTest::addColumn<QString>("text");
    QTest::newRow("between two") << Chunks{"one\r", "\ntwo"} << QStringLiteral("one\ntwo");
    QTest::newRow("the line feed alone")
        << Chunks{"one\r", "\n", "two"} << QStringLiteral("one\ntwo");
    QTest::newRow("two line feeds")
        << Chunks{"one\r", "\n\n", "two"} << QStringLiteral("one\n\ntwo");
    QTest::newRow("two carriage returns")
        << Chunks{"one\r", "\r", "\ntwo"} << QStringLiteral("one\n\ntwo");
    QTest::newRow("an empty one between")
        << Chunks{"one\r", "", "\ntwo"} << QStringLiteral("one\ntwo");
    QTest::newRow("at the start") << Chunks{"\n", "\r", "\n"} << QStringLiteral("\n\n");
}

void tst_MainWindowLog::lineBreakThatIsSplitBetweenMessages()
{
    QFETCH(const QList<QByteArray>, chunks);
    QFETCH(const QString, text);
    Twins twins;

    for (const QByteArray& chunk : chunks) {
        twins.Message(chunk);
        QCOMPARE(twins.Difference(), QString());
    }

    QCOMPARE(twins.stage.Log(), text);
}

void tst_MainWindowLog::hundredsOfChunks()
{
    Twins twins;
    QString expected;

    for (int i = 0; i < 300; ++i) {
        twins.Line(Lines(i, 1));
        expected += QStringLiteral("line %1\n\n").arg(i);
        if (i % 50 == 0) {
            QCOMPARE(twins.Difference(), QString());
        }
    }

    QCOMPARE(twins.stage.Log(), expected);
    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::selectionOfTheUserIsLost()
{
    Twins twins;
    twins.Line(Lines(1, 60));
    twins.Both([](QPlainTextEdit& area) {
        QTextCursor cursor = area.textCursor();
        cursor.setPosition(3);
        cursor.setPosition(40, QTextCursor::KeepAnchor);
        area.setTextCursor(cursor);
    });
    QVERIFY(twins.log->textCursor().hasSelection());

    twins.Line("more");

    QVERIFY(!twins.log->textCursor().hasSelection());
    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::scrollPositionOfTheUserIsLost_data()
{
    QTest::addColumn<int>("position");
    QTest::newRow("top") << 0;
    QTest::newRow("middle") << 20;
    QTest::newRow("near the end") << 45;
}

void tst_MainWindowLog::scrollPositionOfTheUserIsLost()
{
    QFETCH(const int, position);
    Twins twins;
    twins.Line(Lines(1, 60));
    twins.Both([position](QPlainTextEdit& area) { area.verticalScrollBar()->setValue(position); });
    QCOMPARE(twins.log->verticalScrollBar()->value(), position);

    twins.Line("more");

    QVERIFY(twins.log->verticalScrollBar()->value() > position);
    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::chunkWhileTheMainTabIsInFront()
{
    Twins twins;
    twins.Line(Lines(1, 60));
    twins.Both([](QPlainTextEdit& area) { area.verticalScrollBar()->setValue(10); });
    twins.tabs->setCurrentIndex(0);
    QCoreApplication::processEvents();

    twins.Line(Lines(61, 5));

    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::chunkBeforeTheLogWasEverInFront()
{
    Twins twins(false);

    twins.Line(Lines(1, 60));

    QCOMPARE(twins.Difference(), QString());
    twins.Line(QByteArray("many words ").repeated(100));
    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::chunkAfterAnotherSizeOfTheWindow()
{
    Twins twins;
    twins.Line(Lines(1, 60) + QByteArray("many words ").repeated(100));

    twins.stage.window->resize(480, 272);
    QCOMPARE(twins.log->font().pointSize(), 12);
    twins.FollowPlaceAndFont();
    twins.Line("more");

    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::chunkWhileTheWindowIsHidden()
{
    Twins twins;
    twins.Line(Lines(1, 60));
    twins.stage.window->hide();

    twins.Line(Lines(61, 60));
    twins.stage.window->show();

    QCOMPARE(twins.Difference(), QString());
}

void tst_MainWindowLog::logKeepsNoHistory()
{
    Twins twins;

    twins.Line("one");
    twins.Line("two");

    QCOMPARE(twins.log->document()->availableUndoSteps(), 0);
    QCOMPARE(twins.log->document()->availableRedoSteps(), 0);
    twins.log->undo();
    QCOMPARE(twins.stage.Log(), QStringLiteral("one\ntwo\n"));
}

QTEST_MAIN(tst_MainWindowLog)

#include "tst_mainwindow_log.moc"
