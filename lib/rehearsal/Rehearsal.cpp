// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/Rehearsal.h"

#include "engine/ILogger.h"
#include "engine/UserPackageInstaller.h"
#include "engine/q_UpdaterEngine.h"
#include "format/Description.h"
#include "io/Error.h"
#include "osa/OSA.h"
#include "osa/PathList.h"
#include "rehearsal/Stage.h"
#include "rehearsal/VirtualPanel.h"

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace kx::rehearsal
{

namespace
{

using Process = PlannedCommand::Process;

/// Keeps the lines, and tells the stage which step begins.
class PlanLogger final : public ILogger
{
public:
    PlanLogger(Stage& stage, Plan& plan) : m_stage(stage), m_plan(plan) {}

    [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override
    {
        va_list args;
        va_start(args, format);
        const std::string line = OSA_Format(format, args);
        va_end(args);
        constexpr const char* kStep = "**** Installation step ";
        if (line.compare(0, std::char_traits<char>::length(kStep), kStep) == 0) {
            m_stage.SetStep(std::atoi(line.c_str() + std::char_traits<char>::length(kStep)));
        }
        m_plan.log.push_back(line);
    }

    void OutMsg(const char* text) override { m_plan.log.emplace_back(text); }

private:
    Stage& m_stage;
    Plan& m_plan;
};

/// What the window does up to its question.
/// @return whether it asks
bool PlayWindow(UserPackageInstaller& package, const Plan& plan)
{
    OSA_Shell("sync");
    if (!plan.isFound) {
        return false;
    }
    package.packageDir = OSA_TrimExt(plan.packageFile.c_str()) + ".temp";
    package.projectFile = package.packageDir + "/" + archive::kDescriptionName;
    package.removeUnpacked = true;
    return package.Unpack(plan.packageFile.c_str()) == 0 &&
           package.ReadRootOnlyKxProjectFile() == 0;
}

/// What the installer does.
/// @return its result
int PlayInstaller(const UserPackageInstaller& window, Stage& stage)
{
    OSA_Shell("sync");
    UserPackageInstaller package;
    package.packageDir = window.packageDir;
    package.projectFile = window.projectFile;
    int result = package.ReadKxProjectFile();
    if (result == 0) {
        OSA_Shell("/usr/bin/kxsystem/wprotect_off");
        result = package.ClearInstalledLog();
    }
    if (result == 0) {
        result = package.ExecuteInstallStep();
    }
    stage.SetStep(0);
    if (result == 0) {
        result = package.RegistInstalledLog();
    }
    OSA_Shell("sync");
    return result;
}

/// Returns the name that the package's file has on the drive.
std::string FileNameOf(const archive::Package& package)
{
    namespace fs = std::filesystem;
    constexpr std::string_view kUnpacked = ".temp";
    fs::path path(package.Path());
    if (!package.IsArchive()) {
        // Also of "." and "..".
        std::error_code error;
        path = fs::canonical(path, error);
        if (error) {
            throw io::AccessError(package.Path(), "find the name of the folder", error.value());
        }
    }
    std::string name = path.filename().string();
    if (package.IsArchive()) {
        return name;
    }
    if (name.size() > kUnpacked.size() &&
        name.compare(name.size() - kUnpacked.size(), kUnpacked.size(), kUnpacked) == 0) {
        name.resize(name.size() - kUnpacked.size());
    }
    return name + archive::kPackageExtension;
}

} // namespace

Plan Rehearse(const archive::Package& package, const std::string& drive, const std::string& root)
{
    Plan plan;
    const std::string name = FileNameOf(package);
    plan.packageFile = drive + "/" + name;
    plan.isFound = std::string_view(OSA_GetExt(name.c_str())) == archive::kPackageExtension;
    plan.record = "/var/lib/KxUserPackages/" + format::RecordName(plan.packageFile);

    VirtualPanel panel(root);
    panel.MakeFolder(drive);
    panel.MakeFile(plan.packageFile);
    Stage stage(panel, package, plan);
    PlanLogger logger(stage, plan);
    q_UpdaterEngine::InitSystem(&logger);

    UserPackageInstaller window;
    try {
        plan.isShown = PlayWindow(window, plan);
    } catch (const io::Error&) {
        throw;
    } catch (const std::runtime_error&) {
        plan.isAborted = true;
        return plan;
    }
    plan.isStarted = plan.isShown && stage.HasUpdater();
    if (plan.isStarted) {
        stage.SetProcess(Process::kInstaller);
        plan.result = PlayInstaller(window, stage);
        plan.isInstalled = plan.result == 0;
        stage.SetProcess(Process::kWindow);
    }
    window.Cleanup();
    OSA_Shell("/usr/bin/kxsystem/usb_umount");
    OSA_Shell("/sbin/reboot");
    plan.folders.assign(q_UpdaterEngine::CopyFolderList->begin(),
                        q_UpdaterEngine::CopyFolderList->end());
    plan.files.assign(q_UpdaterEngine::CopyFileList->begin(), q_UpdaterEngine::CopyFileList->end());
    return plan;
}

} // namespace kx::rehearsal
