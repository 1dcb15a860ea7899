// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <QPlainTextDocumentLayout>

class QPlainTextEdit;

/// Lays out the lines of the log area.
///
/// Qt breaks lines between words, and a word that is wider than the area anywhere, but takes a time
/// for it that grows with the square of the word's length: seconds for what a program's pipe holds,
/// during which the panel is frozen. A line with such a word is broken anywhere from its start.
class LogLayout final : public QPlainTextDocumentLayout
{
    Q_OBJECT

public:
    /// Gives @p area a new, empty document with this layout. @p area owns both.
    static void Install(QPlainTextEdit& area);

    [[nodiscard]] QRectF blockBoundingRect(const QTextBlock& block) const override;

private:
    LogLayout(QTextDocument* document, const QPlainTextEdit& area);

    void BreakAnywhere(const QTextBlock& block);

    const QPlainTextEdit& m_area;
};
