// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/Globals.h"

QApplication* G::App = nullptr;
Options G::Opts;
UserPackageInstaller G::TargetUP;
MainWindow* G::MainWin = nullptr;
