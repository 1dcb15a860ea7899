// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/LogLayout.h"

#include <QPlainTextEdit>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextLayout>
#include <QTextOption>

namespace
{

bool EndsWord(QChar c)
{
    return c.isSpace() && c != QChar(QChar::Nbsp);
}

/// Tells whether @p block holds a word that would take long to break.
bool HasEndlessWord(const QTextBlock& block)
{
    constexpr int kLongestWord = 2000; // some dozen lines; takes a millisecond
    if (block.length() <= kLongestWord) {
        return false;
    }
    int length = 0;
    const QString text = block.text();
    for (const QChar c : text) {
        length = EndsWord(c) ? 0 : length + 1;
        if (length > kLongestWord) {
            return true;
        }
    }
    return false;
}

} // namespace

LogLayout::LogLayout(QTextDocument* document, const QPlainTextEdit& area)
    : QPlainTextDocumentLayout(document), m_area(area)
{
}

void LogLayout::Install(QPlainTextEdit& area)
{
    auto* const document = new QTextDocument(&area);
    document->setDefaultFont(area.font());
    document->setDocumentLayout(new LogLayout(document, area));
    area.setDocument(document);
}

QRectF LogLayout::blockBoundingRect(const QTextBlock& block) const
{
    if (block.isValid() && block.layout()->lineCount() == 0 && HasEndlessWord(block)) {
        // A layout is made when it is first asked for, which Qt's own does behind a const, too.
        const_cast<LogLayout*>(this)->BreakAnywhere(block);
    }
    return QPlainTextDocumentLayout::blockBoundingRect(block);
}

void LogLayout::BreakAnywhere(const QTextBlock& block)
{
    const qreal margin = document()->documentMargin();
    const qreal width = m_area.viewport()->width() - 2 * margin;
    QTextLayout& layout = *block.layout();
    QTextOption option = document()->defaultTextOption();
    option.setWrapMode(QTextOption::WrapAnywhere);
    layout.setTextOption(option);

    qreal height = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLeadingIncluded(true);
        line.setLineWidth(width);
        line.setPosition(QPointF(margin, height));
        height += line.height();
    }
    layout.endLayout();

    QTextBlock(block).setLineCount(layout.lineCount());
    Q_EMIT documentSizeChanged(documentSize());
}
