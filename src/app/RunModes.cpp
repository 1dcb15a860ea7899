// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/RunModes.h"

#include "app/Globals.h"
#include "engine/ILogger.h"
#include "engine/Installation.h"
#include "engine/q_UpdaterEngine.h"
#include "gui/mainwindow.h"
#include "osa/OSA.h"

#include <QApplication>

#include <cstdarg>
#include <cstdio>
#include <string>

namespace
{

/// Writes a line as a text with a line break.
class TextLogger : public ILogger
{
public:
    [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) final
    {
        va_list args;
        va_start(args, format);
        const std::string line = OSA_Format(format, args) + "\n";
        va_end(args);
        OutMsg(line.c_str());
    }

protected:
    ~TextLogger() = default;
};

} // namespace

int CuiMode(QApplication* /*app*/)
{
    /// Writes to standard output, flushed after every write for the reader at the pipe's other end.
    class CuiLogger final : public TextLogger
    {
    public:
        void OutMsg(const char* text) override
        {
            static_cast<void>(std::printf("%s", text));
            static_cast<void>(OSA_stdfflash()); // a reader that is gone ends nothing
        }
    };

    CuiLogger logger;
    q_UpdaterEngine::InitSystem(&logger);

    return Installation::InstallUnpacked(G::TargetUP, G::Opts.unzipedDir);
}

int GuiMode(QApplication* /*app*/)
{
    /// Writes to the window's log.
    class WinLogger final : public TextLogger
    {
    public:
        void OutMsg(const char* text) override { Q_EMIT G::MainWin->SignOutLine(text); }
    };

    MainWindow window(nullptr);
    G::MainWin = &window;
    WinLogger logger;
    q_UpdaterEngine::InitSystem(&logger);
    window.setWindowFlags(Qt::WindowStaysOnTopHint);
    window.showFullScreen();
    return QApplication::exec();
}
