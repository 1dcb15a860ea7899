// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/AutoResize.h"

#include <QFont>
#include <QFontInfo>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QLabel>
#include <QScreen>
#include <QSize>
#include <QStyle>
#include <QStyleOptionTab>
#include <QTabBar>
#include <QWidget>

double AutoResize::ScreenScaleW = 1.0;
double AutoResize::ScreenScaleH = 1.0;

namespace
{

/// The font sizes of windows up to an area.
struct AreaRow {
    qint64 largestArea; ///< in square pixels
    AutoResize::PointSizes sizes;
};

constexpr AreaRow kAreas[] = {
    {480LL * 272, {12, 15}},
    {640LL * 480, {14, 18}},
    {800LL * 600, {16, 24}},
};
constexpr AutoResize::PointSizes kSizesAbove = {18, 26};

constexpr int kSmallestPixels = 9; ///< of a font that can still be read

/// Returns how many pixels a tab has for its caption.
int CaptionWidth(const QTabBar& bar, int index)
{
    QStyleOptionTab tab;
    tab.initFrom(&bar);
    tab.rect = bar.tabRect(index);
    tab.shape = bar.shape();
    return bar.style()->subElementRect(QStyle::SE_TabBarTabText, &tab, &bar).width();
}

/// Tells whether a tab bar shows its captions whole, but for the blanks around them.
bool ShowsCaptions(const QTabBar& bar)
{
    const QFontMetrics metrics(bar.font());
    for (int i = 0; i < bar.count(); ++i) {
        if (metrics.boundingRect(bar.tabText(i).trimmed()).width() > CaptionWidth(bar, i)) {
            return false;
        }
    }
    return true;
}

} // namespace

void AutoResize::TakeScreenScale(const QWidget& window)
{
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const QRect own = window.geometry();
    ScreenScaleW = static_cast<double>(screen.width()) / own.width();
    ScreenScaleH = static_cast<double>(screen.height()) / own.height();
}

void AutoResize::Scale(QWidget& widget)
{
    const QRect given = widget.geometry();
    widget.setGeometry(static_cast<int>(given.x() * ScreenScaleW),
                       static_cast<int>(given.y() * ScreenScaleH),
                       static_cast<int>(given.width() * ScreenScaleW),
                       static_cast<int>(given.height() * ScreenScaleH));
}

AutoResize::PointSizes AutoResize::PointSizesFor(const QSize& window)
{
    const qint64 area = qint64{window.width()} * window.height();
    for (const AreaRow& row : kAreas) {
        if (area <= row.largestArea) {
            return row.sizes;
        }
    }
    return kSizesAbove;
}

void AutoResize::SetPointSize(QWidget& widget, int points)
{
    QFont font = widget.font();
    font.setPointSize(points);
    widget.setFont(font);
}

void AutoResize::KeepTails(QLabel& label)
{
    const QFontMetrics metrics(label.font());
    // A line that is higher than the label loses as much above as below.
    const int baseline = (label.height() - metrics.height()) / 2 + metrics.ascent();
    const int free = baseline + metrics.tightBoundingRect(QStringLiteral("bdfhkl")).top();
    const int tails = metrics.tightBoundingRect(QStringLiteral("gjpqy")).bottom() + 1;
    const int up = qMax(0, qMin(free, baseline + tails - label.height()));
    // The text stands in the middle of what is left above the lower margin. The label's own margin
    // takes this room back for the drawing, on every side, and the indent gives it back on the
    // left.
    label.setContentsMargins(0, 0, 0, 2 * up);
    label.setMargin(-2 * up);
    label.setIndent(2 * up);
}

void AutoResize::FitCaptions(QTabBar& bar)
{
    bar.ensurePolished();
    for (int pixels = QFontInfo(bar.font()).pixelSize() - 1;
         pixels >= kSmallestPixels && !ShowsCaptions(bar); --pixels) {
        QFont font = bar.font();
        font.setPixelSize(pixels);
        bar.setFont(font);
    }
}
