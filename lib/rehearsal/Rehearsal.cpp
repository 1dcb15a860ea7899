// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/Rehearsal.h"

#include "engine/ILogger.h"
#include "engine/IStepObserver.h"
#include "engine/Installation.h"
#include "engine/UserPackageInstaller.h"
#include "engine/q_UpdaterEngine.h"
#include "format/Description.h"
#include "io/Error.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"
#include "model/PicoJFactory.h"
#include "osa/OSA.h"
#include "osa/PathList.h"
#include "rehearsal/Stage.h"
#include "rehearsal/VirtualPanel.h"

#include <cstdarg>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace kx::rehearsal
{

namespace
{

using Process = PlannedCommand::Process;

/// Keeps what the updater says, and follows its steps.
class Listener final : public ILogger, public IStepObserver
{
public:
    Listener(Stage& stage, Plan& plan) : m_stage(stage), m_plan(plan) {}

    [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override
    {
        va_list args;
        va_start(args, format);
        m_plan.log.push_back(OSA_Format(format, args));
        va_end(args);
    }

    void OutMsg(const char* text) override { m_plan.log.emplace_back(text); }

    void OnStep(int index, int /*count*/) override
    {
        m_plan.lastStep = index + 1;
        m_stage.SetStep(index + 1);
    }

    void OnStepEnd(int index, int result) override
    {
        m_stage.SetStep(0);
        m_plan.failedStep = result == 0 ? 0 : index + 1;
    }

private:
    Stage& m_stage;
    Plan& m_plan;
};

/// The updater's tables for as long as one rehearsal takes: its records of an earlier one are gone,
/// and its messages come here.
class EngineScope
{
public:
    explicit EngineScope(ILogger& logger)
    {
        if (q_UpdaterEngine::PicoJTbl->Prototypes().count == 0) {
            q_UpdaterEngine::InitSystem(&logger);
        }
        q_UpdaterEngine::SysLogger = &logger;
        Clear();
    }
    EngineScope(const EngineScope&) = delete;
    EngineScope& operator=(const EngineScope&) = delete;
    ~EngineScope()
    {
        Clear();
        q_UpdaterEngine::SysLogger = nullptr;
    }

private:
    static void Clear()
    {
        q_UpdaterEngine::CopyFolderList->clear();
        q_UpdaterEngine::CopyFileList->clear();
    }
};

/// What the window does up to its question.
/// @return kNotStarted when it asks, else why it does not
Outcome PlayWindow(UserPackageInstaller& package, const std::string& drive, const Stage& stage)
{
    Installation::SyncDisks();
    std::string file;
    const Installation::Search found = Installation::FindPackage(drive, file);
    if (found != Installation::Search::kFound) {
        return found == Installation::Search::kSeveralPackages ? Outcome::kNotAlone
                                                               : Outcome::kNotFound;
    }
    try {
        if (Installation::OpenPackage(package, file) == 0) {
            return Outcome::kNotStarted;
        }
    } catch (const io::Error&) {
        throw;
    } catch (const std::runtime_error&) {
        return Outcome::kAborted;
    }
    return stage.IsUnpacked() ? Outcome::kNotShown : Outcome::kNotUnpacked;
}

/// What the installer does.
Outcome PlayInstaller(const std::string& folder, Listener& listener, Plan& plan)
{
    UserPackageInstaller package;
    const int result = Installation::BetweenSyncs(
        [&] { return Installation::InstallUnpacked(package, folder, &listener); });
    const DB_KxUserProject* const project = package.Project();
    const auto* const steps =
        project != nullptr ? ObjectAs<DB_StepSets>(project->DB_StepSets) : nullptr;
    if (steps == nullptr) {
        return Outcome::kNotRead;
    }
    plan.steps = steps->count;
    if (result == 0) {
        return Outcome::kInstalled;
    }
    return plan.failedStep != 0 ? Outcome::kStepFailed : Outcome::kNotRecorded;
}

/// Returns the name that the package's file has on the drive.
std::string FileNameOf(const archive::Package& package)
{
    namespace fs = std::filesystem;
    constexpr std::string_view kUnpacked = panel::kUnpackedSuffix;
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
    return name + panel::kPackageExtension;
}

/// Plays both processes; the road is the updater's own.
void Play(const Circumstances& where, Stage& stage, Listener& listener, Plan& plan)
{
    UserPackageInstaller window;
    plan.outcome = PlayWindow(window, where.drive, stage);
    if (plan.outcome == Outcome::kAborted) {
        return;
    }
    if (plan.outcome == Outcome::kNotStarted && stage.CanStartUpdater(where.hasOtherUpdater)) {
        stage.SetProcess(Process::kInstaller);
        plan.outcome = PlayInstaller(window.packageDir, listener, plan);
        stage.SetProcess(Process::kWindow);
    }
    Installation::LeaveDrive(window);
    Installation::Reboot();
}

} // namespace

Plan Rehearse(const archive::Package& package, const Circumstances& where)
{
    Plan plan;
    plan.packageFile = where.drive + "/" + FileNameOf(package);
    plan.record = std::string(panel::kRegistry) + "/" + format::RecordName(plan.packageFile);

    const archive::PackageEntry* const description = package.Find(panel::kDescription);
    if (description != nullptr && description->kind == archive::PackageEntry::Kind::kLink) {
        plan.descriptionLink = package.LinkTarget(description->name);
    }

    VirtualPanel panel(where.root);
    panel.MakeFolder(where.drive);
    panel.MakeFile(plan.packageFile);
    Stage stage(panel, package, plan);
    Listener listener(stage, plan);
    const EngineScope engine(listener);
    Play(where, stage, listener, plan);
    if (plan.IsInstalled()) {
        plan.folders.assign(q_UpdaterEngine::CopyFolderList->begin(),
                            q_UpdaterEngine::CopyFolderList->end());
        plan.files.assign(q_UpdaterEngine::CopyFileList->begin(),
                          q_UpdaterEngine::CopyFileList->end());
    }
    return plan;
}

} // namespace kx::rehearsal
