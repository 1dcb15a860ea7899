// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/InstallProcss.h"

#include "engine/ILogger.h"
#include "engine/q_UpdaterEngine.h"
#include "gui/mainwindow.h"

void InstallProcss::OnOutputStdOut(const char* text)
{
    q_UpdaterEngine::SysLogger->OutMsg(text);
}

void InstallProcss::OnOutputStdErr(const char* text)
{
    q_UpdaterEngine::SysLogger->OutMsg(text);
}

void InstallProcss::OnFnished(int exitCode)
{
    Q_EMIT owner->SignInstallFinished(exitCode);
}
