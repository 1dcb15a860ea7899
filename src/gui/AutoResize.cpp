// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/AutoResize.h"

#include <QFont>
#include <QGuiApplication>
#include <QScreen>
#include <QSize>
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
