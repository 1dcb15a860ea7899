// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "CutTexts.h"

#include <QAbstractButton>
#include <QFontMetrics>
#include <QHeaderView>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionTab>
#include <QTabBar>
#include <QTabWidget>
#include <QTableWidget>

namespace
{

/// A text and how it is drawn.
struct Drawn {
    QFont font;
    QRect place; ///< in the room that is seen; may reach beyond it
    int flags;   ///< of QPainter::drawText
    QString text;
};

/// Tells whether a text leaves marks outside of a room.
bool LeavesRoom(const Drawn& drawn, const QSize& room)
{
    constexpr int kAround = 64; // pixels; a longer way out begins with these
    QImage image(room + QSize(2 * kAround, 2 * kAround), QImage::Format_Grayscale8);
    image.fill(Qt::white);
    const QPoint corner(kAround, kAround);
    QPainter painter(&image);
    painter.setFont(drawn.font);
    painter.drawText(drawn.place.translated(corner), drawn.flags | Qt::TextDontClip, drawn.text);
    painter.fillRect(QRect(corner, room), Qt::white);
    painter.end();
    QImage clean(image.size(), image.format());
    clean.fill(Qt::white);
    return image != clean;
}

/// Tells whether a room does not show all of a text. The room for a line's highest and lowest
/// letters may lack where the text has none of them, so a text that seems to be too large is drawn.
bool IsCut(const Drawn& drawn, const QSize& room)
{
    const QRect needed =
        QFontMetrics(drawn.font).boundingRect(drawn.place, drawn.flags, drawn.text);
    return !QRect(QPoint(0, 0), room).contains(needed) && LeavesRoom(drawn, room);
}

/// Returns the place of a label's text, whose lines begin at its left.
QRect PlaceOf(const QLabel& label)
{
    const int margin = label.margin();
    const int indent = (label.alignment() & Qt::AlignLeft) != 0 ? qMax(0, label.indent()) : 0;
    return label.contentsRect().adjusted(margin + indent, margin, -margin, -margin);
}

bool IsCut(const QLabel& label)
{
    const int flags =
        static_cast<int>(label.alignment()) | (label.wordWrap() ? Qt::TextWordWrap : 0);
    return IsCut({label.font(), PlaceOf(label), flags, label.text()}, label.size());
}

bool IsCut(const QAbstractButton& button)
{
    return IsCut({button.font(), button.contentsRect(), Qt::AlignCenter, button.text()},
                 button.size());
}

/// Gives access to how a tab bar draws its tabs.
class DrawnTabs : public QTabBar
{
public:
    static QStyleOptionTab Option(const QTabBar& bar, int index)
    {
        QStyleOptionTab option;
        (bar.*(&DrawnTabs::initStyleOption))(&option, index);
        return option;
    }
};

/// Tells whether a tab does not show all of its caption but for the blanks around it.
bool IsTabCut(const QTabBar& bar, int index)
{
    const QStyleOptionTab option = DrawnTabs::Option(bar, index);
    const QRect room = bar.style()->subElementRect(QStyle::SE_TabBarTabText, &option, &bar);
    // What is too long may have been shortened already.
    return option.text != bar.tabText(index) ||
           IsCut({bar.font(), {{0, 0}, room.size()}, Qt::AlignCenter, option.text.trimmed()},
                 room.size());
}

QStringList CutTabs(const QTabBar& bar)
{
    QStringList cut;
    for (int i = 0; i < bar.count(); ++i) {
        if (IsTabCut(bar, i)) {
            cut.append(bar.tabText(i).trimmed());
        }
    }
    return cut;
}

/// Tells whether a table shows a text whole, in one line.
bool FitsColumn(const QTableWidget& table, int column, const QFont& font, const QString& text)
{
    const int margin =
        table.style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, &table) + 1;
    const int lineWidth = table.showGrid() ? 1 : 0;
    return QFontMetrics(font).boundingRect(text).width() <=
           table.columnWidth(column) - lineWidth - 2 * margin;
}

void AddCell(const QTableWidget& table, int column, const QTableWidgetItem* item, const QFont& font,
             QStringList& cut)
{
    if (item != nullptr && !FitsColumn(table, column, font, item->text())) {
        cut.append(item->text());
    }
}

QStringList CutCells(const QTableWidget& table)
{
    QStringList cut;
    for (int column = 0; column < table.columnCount(); ++column) {
        const QTableWidgetItem* const head = table.horizontalHeaderItem(column);
        AddCell(table, column, head, head != nullptr ? head->font() : table.font(), cut);
    }
    for (int row = 0; row < table.rowCount(); ++row) {
        for (int column = 0; column < table.columnCount(); ++column) {
            AddCell(table, column, table.item(row, column), table.font(), cut);
        }
    }
    return cut;
}

} // namespace

QStringList CutTexts(const QWidget& widget)
{
    if (const auto* const tabs = qobject_cast<const QTabWidget*>(&widget)) {
        return CutTabs(*tabs->tabBar());
    }
    if (const auto* const table = qobject_cast<const QTableWidget*>(&widget)) {
        return CutCells(*table);
    }
    QStringList cut;
    if (const auto* const label = qobject_cast<const QLabel*>(&widget)) {
        if (label->isVisible() && IsCut(*label)) {
            cut.append(label->text());
        }
    } else if (const auto* const button = qobject_cast<const QAbstractButton*>(&widget)) {
        if (button->isVisible() && IsCut(*button)) {
            cut.append(button->text());
        }
    }
    return cut;
}
