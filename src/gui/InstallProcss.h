// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "gui/IProcess.h"

class MainWindow;

/// Runs the console installer for the main window: what it writes goes to the current logger,
/// standard error like standard output, and its end to the window.
class InstallProcss final : public IProcess
{
public:
    using IProcess::IProcess;

    MainWindow* owner = nullptr; ///< the window that is told; set before Start

    void OnOutputStdOut(const char* text) override;
    void OnOutputStdErr(const char* text) override;
    void OnFnished(int exitCode) override;
};
