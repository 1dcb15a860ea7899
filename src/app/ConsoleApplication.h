// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

class QApplication;

/// Creates the application object without a look at the display, the touch panel, the desktop's
/// theme or its input method, whatever the environment names for them: those belong to the window
/// that started this process.
///
/// Qt's offscreen platform is used; where it is missing the minimal one, then the one that
/// `QT_QPA_PLATFORM` names. The environment is as before when the call returns.
/// @param argc, argv  must outlive the application object
[[nodiscard]] std::unique_ptr<QApplication> MakeConsoleApplication(int& argc, char** argv);
