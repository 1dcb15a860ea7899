// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/LogLayout.h"

#include <QPlainTextEdit>
#include <QTextBlock>
#include <QTextBoundaryFinder>
#include <QTextDocument>
#include <QTextLayout>
#include <QTextOption>
#include <QtMath>

#include <utility>

namespace
{

/// More characters than fit into a line of any panel; to try this many for a line takes some
/// microseconds.
constexpr int kLongestWord = 1000;

/// Tells how far a word goes on.
class Words
{
public:
    explicit Words(QString text)
        : m_text(std::move(text)), m_ends(QTextBoundaryFinder::Line, m_text)
    {
    }

    /// Tells whether no place to break the line comes soon after @p position.
    bool IsEndless(int position)
    {
        if (m_end <= position) {
            m_ends.setPosition(position);
            const int next = m_ends.toNextBoundary();
            m_end = next < 0 ? m_text.size() : next;
        }
        return m_end - position > kLongestWord;
    }

private:
    QString m_text;
    QTextBoundaryFinder m_ends;
    int m_end = 0; ///< of the word at the position asked for last
};

} // namespace

LogLayout::LogLayout(QTextDocument* document, const QPlainTextEdit& area)
    : QPlainTextDocumentLayout(document), m_area(area)
{
}

void LogLayout::Install(QPlainTextEdit& area)
{
    auto* const document = new QTextDocument(&area);
    auto* const layout = new LogLayout(document, area);
    layout->setPaintDevice(area.viewport()); // for the resolution that the widths of tabs follow
    document->setDefaultFont(area.font());
    document->setDocumentLayout(layout);
    area.setDocument(document);
}

QRectF LogLayout::blockBoundingRect(const QTextBlock& block) const
{
    if (block.isValid() && block.length() > kLongestWord && block.layout()->lineCount() == 0) {
        // A layout is made when it is first asked for, which Qt's own does behind a const, too.
        const_cast<LogLayout*>(this)->LayOut(block);
    }
    return QPlainTextDocumentLayout::blockBoundingRect(block);
}

void LogLayout::LayOut(QTextBlock block)
{
    const QTextOption between = document()->defaultTextOption();
    QTextOption anywhere = between;
    anywhere.setWrapMode(QTextOption::WrapAnywhere);
    const qreal margin = document()->documentMargin();
    const qreal width = m_area.viewport()->width() - 2 * margin;
    Words words(block.text());

    QTextLayout& layout = *block.layout();
    qreal height = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        layout.setTextOption(words.IsEndless(line.textStart()) ? anywhere : between);
        line.setLeadingIncluded(true);
        line.setLineWidth(width);
        line.setPosition(QPointF(margin, height));
        height += line.height() + (line.leading() < 0 ? qCeil(line.leading()) : 0);
    }
    layout.endLayout();

    block.setLineCount(block.isVisible() ? layout.lineCount() : 0);
    Q_EMIT documentSizeChanged(documentSize());
}
