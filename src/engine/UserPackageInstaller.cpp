// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "engine/UserPackageInstaller.h"

#include "engine/ILogger.h"
#include "engine/IStepObserver.h"
#include "engine/Installation.h"
#include "engine/q_UpdaterEngine.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"
#include "model/UserPackageProjectReader.h"
#include "osa/OSA.h"
#include "osa/PanelNames.h"
#include "osa/PathList.h"
#include "osa/ResultCodes.h"
#include "steps/SS.h"

#include <memory>
#include <string>

namespace
{

/// Points q_UpdaterEngine::CurrentPackage at a package and puts the old value back at its end.
class CurrentPackageScope
{
public:
    explicit CurrentPackageScope(const std::string& packageDir)
        : saved(q_UpdaterEngine::CurrentPackage)
    {
        q_UpdaterEngine::CurrentPackage = &packageDir;
    }
    CurrentPackageScope(const CurrentPackageScope&) = delete;
    CurrentPackageScope& operator=(const CurrentPackageScope&) = delete;
    ~CurrentPackageScope() { q_UpdaterEngine::CurrentPackage = saved; }

private:
    const std::string* saved;
};

/// Reports that a step failed.
/// @return @p result
int FailStep(int index, int result)
{
    q_UpdaterEngine::SysLogger->OutLine("Installation failed in step %d.", index + 1);
    return result;
}

/// Executes one step of the list and reports when it fails; a step of unknown kind is reported as
/// such.
/// @return 0, kGeneralError for a step of unknown kind, kFieldError for an element that is no
///         step, or the step's own result
int ExecuteStep(const DB_StepSets& steps, int index)
{
    ILogger* const log = q_UpdaterEngine::SysLogger;
    IPicoJ* const element = steps.ElementAt(index);
    auto* const record = ObjectAs<DB_StepSet>(element);
    if (record == nullptr) {
        return FailStep(index, SS_ReportUnexpected(element, index));
    }
    std::unique_ptr<ISS_StepSet> step(q_UpdaterEngine::CreateSS_StepSetObject(record));
    if (step == nullptr) {
        log->OutLine("%s is not support functon.", record->SS_StepSetId.c_str());
        return kGeneralError;
    }
    log->OutLine("**** Installation step %d/%d", index + 1, steps.count);
    const int result = step->ExecuteInstallStep(index);
    step.reset(); // a step lives for one call, whatever its result
    return result == 0 ? 0 : FailStep(index, result);
}

/// Returns the text of the installation list: the recorded folders, then the recorded files.
std::string InstallationList()
{
    std::size_t size = 0;
    for (const PathList* list : {q_UpdaterEngine::CopyFolderList, q_UpdaterEngine::CopyFileList}) {
        for (const std::string& path : *list) {
            size += path.size() + 1;
        }
    }
    std::string text;
    text.reserve(size + sizeof " #dir\n #file\n"); // one piece, however long the list is
    text += " #dir\n";
    for (const std::string& folder : *q_UpdaterEngine::CopyFolderList) {
        text.append(folder).append("\n");
    }
    text += " #file\n";
    for (const std::string& file : *q_UpdaterEngine::CopyFileList) {
        text.append(file).append("\n");
    }
    return text;
}

} // namespace

UserPackageInstaller::~UserPackageInstaller()
{
    delete project;
}

int UserPackageInstaller::Unpack(const char* packageFile)
{
    // Nothing of an earlier attempt may survive; usually there is nothing to remove.
    static_cast<void>(OSA_rmdir(packageDir.c_str()));
    if (const int status = OSA_mkdir(packageDir.c_str()); status != 0) {
        q_UpdaterEngine::SysLogger->OutLine("Unable to create folder of temporary to %s.",
                                            packageDir.c_str());
        return status;
    }
    const int status = OSA_Unzip(packageFile, packageDir.c_str());
    if (status != 0) {
        q_UpdaterEngine::SysLogger->OutLine("Unable to unpack %s file to %s.", packageFile,
                                            packageDir.c_str());
    }
    return status;
}

int UserPackageInstaller::Read(int childlenMode)
{
    q_UpdaterEngine::ChildlenMode = childlenMode;
    // The reader hands out roots of this class only.
    project =
        static_cast<DB_KxUserProject*>(UserPackageProjectReader::Imp_Read(projectFile.c_str()));
    return project != nullptr ? 0 : kGeneralError;
}

int UserPackageInstaller::ReadKxProjectFile()
{
    return Read(q_UpdaterEngine::kReadAll);
}

int UserPackageInstaller::ReadRootOnlyKxProjectFile()
{
    return Read(q_UpdaterEngine::kReadRootOnly);
}

int UserPackageInstaller::ExecuteInstallStep(IStepObserver* observer)
{
    const CurrentPackageScope scope(packageDir);
    IPicoJ* const list = project != nullptr ? project->DB_StepSets : nullptr;
    if (list == nullptr) {
        return kGeneralError;
    }
    const auto* const steps = ObjectAs<DB_StepSets>(list);
    if (steps == nullptr) {
        return FailStep(0, SS_ReportUnexpected(list, 0));
    }
    for (int index = 0; index < steps->count; ++index) {
        if (observer != nullptr) {
            observer->OnStep(index, steps->count);
        }
        const int result = ExecuteStep(*steps, index);
        if (observer != nullptr) {
            observer->OnStepEnd(index, result);
        }
        if (result != 0) {
            return result;
        }
    }
    q_UpdaterEngine::SysLogger->OutLine("Installation succeeded.");
    return 0;
}

void UserPackageInstaller::Cleanup()
{
    if (removeUnpacked) {
        const std::string unpacked = packageDir;
        static_cast<void>(OSA_rmdir(unpacked.c_str()));
    }
}

int UserPackageInstaller::ClearInstalledLog()
{
    const std::string recordDir = Installation::RecordFolder(packageDir);
    if (OSA_IsDir(recordDir.c_str())) {
        static_cast<void>(OSA_rmdir(recordDir.c_str()));
    }
    return 0;
}

int UserPackageInstaller::RegistInstalledLog()
{
    const std::string recordDir = Installation::RecordFolder(packageDir);
    // A failure shows in the copy that follows.
    static_cast<void>(OSA_mkdir(recordDir.c_str()));
    q_UpdaterEngine::CopyFolderList->AppendOnce(recordDir);

    const std::string description = recordDir + "/" + PanelNames::kDescription;
    if (const int status = OSA_CopyFile(projectFile.c_str(), description.c_str(), true, nullptr);
        status != 0) {
        return status;
    }
    const std::string listFile = recordDir + "/" + PanelNames::kInstalledList;
    q_UpdaterEngine::CopyFileList->AppendOnce(listFile);
    std::string text = InstallationList();
    return OSA_WriteStringToFile(text, listFile.c_str());
}
