// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/PanelScreen.h"

#include <QScreen>

// QScreen::geometry() as the updater's code sees it: the linker's names for a wrapped function.
QRect RealGeometry(const QScreen* screen) __asm__("__real__ZNK7QScreen8geometryEv");
QRect WrappedGeometry(const QScreen* screen) __asm__("__wrap__ZNK7QScreen8geometryEv");

namespace
{

QRect panelGeometry; // null: the platform's own

} // namespace

QRect WrappedGeometry(const QScreen* screen)
{
    return panelGeometry.isNull() ? RealGeometry(screen) : panelGeometry;
}

PanelScreen::PanelScreen(int width, int height)
{
    panelGeometry = QRect(0, 0, width, height);
}

PanelScreen::~PanelScreen()
{
    panelGeometry = QRect();
}
