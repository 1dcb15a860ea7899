// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <QPlainTextDocumentLayout>

class QPlainTextEdit;

/// Lays out the lines of the log area, as Qt does it, but in a time that grows with their length.
///
/// Qt breaks a line between words, and a word that is wider than the area anywhere. To find out, it
/// looks at the rest of the word anew for each line: seconds for the endless word that a program's
/// pipe can hold, during which the panel is frozen. Here the rest is looked at once.
class LogLayout final : public QPlainTextDocumentLayout
{
    Q_OBJECT

public:
    /// Gives @p area a new, empty document with this layout. @p area owns both.
    static void Install(QPlainTextEdit& area);

    [[nodiscard]] QRectF blockBoundingRect(const QTextBlock& block) const override;

private:
    LogLayout(QTextDocument* document, const QPlainTextEdit& area);

    void LayOut(QTextBlock block);

    const QPlainTextEdit& m_area;
};
