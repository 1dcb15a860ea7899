// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/RunModes.h"

#include "app/Globals.h"
#include "engine/ILogger.h"
#include "engine/q_UpdaterEngine.h"
#include "osa/OSA.h"

#include <cstdarg>
#include <cstdio>
#include <string>

int CuiMode(QApplication* /*app*/)
{
    /// Writes to standard output, flushed after every write for the reader at the pipe's other end.
    class CuiLogger final : public ILogger
    {
    public:
        [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override
        {
            va_list args;
            va_start(args, format);
            const std::string line = OSA_Format(format, args) + "\n";
            va_end(args);
            OutMsg(line.c_str());
        }

        void OutMsg(const char* text) override
        {
            static_cast<void>(std::printf("%s", text));
            static_cast<void>(OSA_stdfflash()); // a reader that is gone ends nothing
        }
    };

    CuiLogger logger;
    q_UpdaterEngine::InitSystem(&logger);

    UserPackageInstaller& package = G::TargetUP;
    package.packageDir = G::Opts.unzipedDir;
    package.projectFile = package.packageDir + "/UserPackage.kx-project";
    package.removeUnpacked = true;

    if (const int result = package.ReadKxProjectFile(); result != 0) {
        return result;
    }
    // A device without write protection has no such tool.
    static_cast<void>(OSA_Shell("/usr/bin/kxsystem/wprotect_off"));
    if (const int result = package.ClearInstalledLog(); result != 0) {
        return result;
    }
    if (const int result = package.ExecuteInstallStep(); result != 0) {
        return result;
    }
    return package.RegistInstalledLog();
}

int GuiMode(QApplication* /*app*/)
{
    std::fputs("kx_Updater: this build has no window yet; install an unpacked package with "
               "-unzipedDir <folder>.\n",
               stderr);
    return 1;
}
