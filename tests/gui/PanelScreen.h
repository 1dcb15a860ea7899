// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <QRect>

/// Gives the panel a screen of another size than the test platform's, while it lives.
class PanelScreen
{
public:
    PanelScreen(int width, int height);
    PanelScreen(const PanelScreen&) = delete;
    PanelScreen& operator=(const PanelScreen&) = delete;
    ~PanelScreen();
};
