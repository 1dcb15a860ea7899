// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

class QApplication;

/// Destroys an application object made by MakeConsoleApplication, in the same surroundings.
struct ConsoleApplicationDeleter {
    void operator()(QApplication* app) const;
};
using ConsoleApplication = std::unique_ptr<QApplication, ConsoleApplicationDeleter>;

/// Creates the application object without a look at the display, the touch panel, the fonts, the
/// desktop's theme or its input method, whatever the environment names for them: those belong to
/// the window that started this process.
///
/// Qt's offscreen platform is used; where it is missing the minimal one, then the one that
/// `QT_QPA_PLATFORM` names (PlatformChoice.h). What Qt and its libraries remark meanwhile is
/// dropped, except that no platform could be used, which ends the process. No file or folder is
/// created. Environment and standard error are as before when the call returns.
/// @param argc, argv  must outlive the application object
[[nodiscard]] ConsoleApplication MakeConsoleApplication(int& argc, char** argv);
