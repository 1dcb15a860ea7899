// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Installs the input as a package description. No command runs and no file is written: the shell's
// answers come from the input's last byte, and files opened for writing lead nowhere.
#include "Input.h"
#include "engine/UserPackageInstaller.h"
#include "engine/q_UpdaterEngine.h"
#include "osa/OSA_System.h"
#include "osa/PathList.h"

#include <stdexcept>
#include <string_view>

namespace
{

unsigned answers = 0;

} // namespace

int OSA_SystemRun(const char* command)
{
    constexpr int kExitStatusOne = 256;
    answers = (answers >> 1U) | ((answers & 1U) << 7U);
    return std::string_view(command).empty() || (answers & 1U) != 0 ? kExitStatusOne : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static SilentLogger logger;
    if (q_UpdaterEngine::SysLogger == nullptr) {
        q_UpdaterEngine::InitSystem(&logger);
    }
    if (size == 0 || !IsShallow(data, size)) {
        return 0;
    }
    answers = data[size - 1];
    q_UpdaterEngine::CopyFileList->clear();
    q_UpdaterEngine::CopyFolderList->clear();

    const MemoryFile file(data, size - 1);
    UserPackageInstaller package;
    package.packageDir = "/nonexistent/fuzz.temp";
    package.projectFile = file.Path();
    try {
        if (package.ReadKxProjectFile() == 0 && package.ExecuteInstallStep() == 0) {
            static_cast<void>(package.RegistInstalledLog());
        }
    } catch (const std::runtime_error&) {
        // A root value that is no object ends the updater by this exception.
        return 0;
    }
    return 0;
}
