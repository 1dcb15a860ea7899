// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

class QLabel;
class QSize;
class QTabBar;
class QWidget;

/// Fits what the forms draw for an 800 x 480 screen to the panel's own.
namespace AutoResize
{

/// The screen's size over the main window's, both 1.0 until the window's first show. The dialogs
/// that the window opens use them too.
extern double ScreenScaleW;
extern double ScreenScaleH;

/// Font sizes in points.
struct PointSizes {
    int small;
    int large;
};

/// Sets the two factors from the default screen and the geometry that @p window has now.
void TakeScreenScale(const QWidget& window);

/// Multiplies position and size of @p widget by the factors, each product truncated toward zero.
void Scale(QWidget& widget);

/// Returns the font sizes for a window of the size @p window.
[[nodiscard]] PointSizes PointSizesFor(const QSize& window);

/// Changes the size of the widget's font and nothing else of it.
void SetPointSize(QWidget& widget, int points);

/// Moves the text of a label that is too low for a whole line up, by as much as the tails of its
/// letters need and the room above its letters has. The label stays where it is.
void KeepTails(QLabel& label);

/// Makes the font of a tab bar smaller until every caption fits into its tab, down to a size that
/// can still be read. A font with which they fit stays as it is.
void FitCaptions(QTabBar& bar);

} // namespace AutoResize
