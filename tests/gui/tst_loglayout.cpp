// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/LogLayout.h"

#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <QTextLayout>

#include <random>

namespace
{

/// A log area of the panel's size, with our layout or with Qt's own.
class Area : public QPlainTextEdit
{
public:
    explicit Area(bool isOurs)
    {
        QFont font = this->font();
        font.setPointSize(16);
        setFont(font);
        if (isOurs) {
            LogLayout::Install(*this);
        }
        setReadOnly(true);
        resize(761, 351);
        show();
    }

    /// Where each line starts in the text, and how far one can scroll.
    [[nodiscard]] QList<int> Lines() const
    {
        QList<int> starts;
        for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
            document()->documentLayout()->blockBoundingRect(block);
            for (int line = 0; line < block.layout()->lineCount(); ++line) {
                starts.append(block.position() + block.layout()->lineAt(line).textStart());
            }
        }
        starts.append(verticalScrollBar()->maximum());
        return starts;
    }
};

/// Makes texts out of pieces that are hard to break.
class Texts
{
public:
    QString Next()
    {
        QString text;
        for (int pieces = Below(5) + 1; pieces > 0; --pieces) {
            text += Piece() + End();
        }
        return text;
    }

private:
    int Below(int limit) { return static_cast<int>(m_random() % static_cast<unsigned>(limit)); }

    QString Piece()
    {
        const int length = Below(3000);
        const int kind = Below(6);
        QString piece;
        while (piece.size() < length) {
            piece += Character(kind);
        }
        return piece;
    }

    QString Character(int kind)
    {
        const QChar letter = QLatin1Char(static_cast<char>('a' + Below(26)));
        switch (kind) {
        case 0: // one endless word
            return letter;
        case 1: // words
            return Below(8) != 0 ? letter : QChar(QChar::Space);
        case 2: // Japanese, which breaks nearly anywhere
            return QChar(0x3042 + Below(60));
        case 3: // an endless word with few places to break
            return Below(900) != 0 ? letter : QChar(QLatin1Char('-'));
        case 4: // spaces that do not break
            return Below(2) != 0 ? letter : QChar(QChar::Nbsp);
        default: // characters of several code units
            return QString::fromUtf8(Below(2) != 0 ? "\xf0\x9f\x98\x80" : "e\xcc\x81");
        }
    }

    QString End()
    {
        static const QString kEnds[] = {QString(), QStringLiteral(" "), QStringLiteral("\t"),
                                        QStringLiteral("\n")};
        return kEnds[Below(4)];
    }

    std::mt19937 m_random{1}; // NOLINT: the same texts every time
};

} // namespace

class tst_LogLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void BreaksLinesWhereQtDoes_data();
    void BreaksLinesWhereQtDoes();
    void BreaksRandomTextsWhereQtDoes();
    void BreaksAnewWhenTheAreaBecomesNarrow();
    void FollowsTheFont();
    void AnEmptyAreaHasOneLine();
};

void tst_LogLayout::BreaksLinesWhereQtDoes_data()
{
    QTest::addColumn<QString>("text");
    const QString endless(5000, QLatin1Char('x'));
    const QString word = QStringLiteral("word ");
    QTest::newRow("words") << word.repeated(1000);
    QTest::newRow("an endless word") << endless;
    QTest::newRow("an endless word after words") << word.repeated(3) + endless;
    QTest::newRow("words after an endless word") << endless + QLatin1Char(' ') + word.repeated(300);
    QTest::newRow("two endless words") << endless + QLatin1Char(' ') + endless;
    QTest::newRow("an endless word of narrow letters") << QString(5000, QLatin1Char('i'));
    QTest::newRow("an endless word of wide letters") << QString(5000, QLatin1Char('W'));
    QTest::newRow("nothing but blanks") << QString(5000, QLatin1Char(' '));
    QTest::newRow("nothing but tabs") << QString(2000, QLatin1Char('\t'));
    QTest::newRow("bytes that are no text") << QString(5000, QChar(QChar::ReplacementCharacter));
    QTest::newRow("a line separator inside") << endless + QChar(QChar::LineSeparator) + endless;
    QTest::newRow("just short enough for Qt alone") << QString(999, QLatin1Char('x'));
    QTest::newRow("just long enough for ours") << QString(1001, QLatin1Char('x'));
}

void tst_LogLayout::BreaksLinesWhereQtDoes()
{
    QFETCH(QString, text);
    Area qt(false);
    Area ours(true);
    for (Area* const area : {&qt, &ours}) {
        area->setPlainText(text + QLatin1Char('\n'));
    }
    QCOMPARE(ours.Lines(), qt.Lines());
    QCOMPARE(ours.toPlainText(), qt.toPlainText());
}

void tst_LogLayout::BreaksRandomTextsWhereQtDoes()
{
    Texts texts;
    for (int i = 0; i < 40; ++i) {
        Area qt(false);
        Area ours(true);
        const QString text = texts.Next() + QLatin1Char('\n');
        for (Area* const area : {&qt, &ours}) {
            area->setPlainText(text);
        }
        QVERIFY2(ours.Lines() == qt.Lines(), qPrintable(text));
    }
}

void tst_LogLayout::BreaksAnewWhenTheAreaBecomesNarrow()
{
    Area qt(false);
    Area ours(true);
    for (Area* const area : {&qt, &ours}) {
        area->setPlainText(QString(5000, QLatin1Char('x')) + QLatin1Char('\n'));
    }
    const QList<int> wide = ours.Lines();
    for (Area* const area : {&qt, &ours}) {
        area->resize(400, 351);
    }
    QVERIFY(ours.Lines() != wide);
    QCOMPARE(ours.Lines(), qt.Lines());
}

void tst_LogLayout::FollowsTheFont()
{
    Area qt(false);
    Area ours(true);
    for (Area* const area : {&qt, &ours}) {
        area->setPlainText(QString(5000, QLatin1Char('x')) + QLatin1Char('\n'));
        QFont font = area->font();
        font.setPointSize(26);
        area->setFont(font);
    }
    QCOMPARE(ours.Lines(), qt.Lines());
}

void tst_LogLayout::AnEmptyAreaHasOneLine()
{
    Area ours(true);
    QCOMPARE(ours.blockCount(), 1);
    QCOMPARE(ours.toPlainText(), QString());
    QCOMPARE(ours.Lines(), Area(false).Lines());
}

QTEST_MAIN(tst_LogLayout)
#include "tst_loglayout.moc"
