// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "app/Options.h"
#include "engine/UserPackageInstaller.h"

class MainWindow;
class QApplication;

/// The process-wide objects of the program.
namespace G
{

extern QApplication* App;             ///< set in `main`, owned by it
extern Options Opts;                  ///< the command line
extern UserPackageInstaller TargetUP; ///< the one package of this process
extern MainWindow* MainWin;           ///< set in GUI mode, owned by it

} // namespace G
