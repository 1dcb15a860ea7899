// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "engine/Installation.h"

#include "engine/UserPackageInstaller.h"
#include "osa/OSA.h"
#include "osa/PanelNames.h"

#include <string_view>

namespace
{

/// Points a package at its unpacked folder, which is the installer's to remove.
void PointAt(UserPackageInstaller& package, const std::string& folder)
{
    package.packageDir = folder;
    package.projectFile = folder + "/" + PanelNames::kDescription;
    package.removeUnpacked = true;
}

} // namespace

void Installation::SyncDisks()
{
    static_cast<void>(OSA_Shell("%s", PanelNames::kSync));
}

bool Installation::IsPackageName(const char* name)
{
    return std::string_view(OSA_GetExt(name)) == PanelNames::kPackageExtension;
}

Installation::Search Installation::FindPackage(const std::string& folder, std::string& file)
{
    if (folder.empty()) {
        return Search::kNoFolderGiven;
    }
    if (!OSA_IsFileExist(folder.c_str())) {
        return Search::kNoFolder;
    }
    OSA_FindFile listing;
    for (const char* name = listing.FindFirst(folder.c_str()); name != nullptr;
         name = listing.Next()) {
        if (!IsPackageName(name)) {
            continue;
        }
        if (!file.empty()) {
            return Search::kSeveralPackages;
        }
        file = folder + "/" + name;
    }
    return file.empty() ? Search::kNoPackage : Search::kFound;
}

std::string Installation::UnpackedFolder(const std::string& archive)
{
    return OSA_TrimExt(archive.c_str()) + PanelNames::kUnpackedSuffix;
}

std::string Installation::RecordFolder(const std::string& folder)
{
    constexpr std::string_view kSuffix = PanelNames::kUnpackedSuffix;
    std::string record =
        std::string(PanelNames::kRegistry) + "/" + OSA_GetFilenameExt(folder.c_str());
    // Wherever the suffix stands, it is the last characters, as many as it has, that go.
    if (record.find(kSuffix) != std::string::npos) {
        record.resize(record.size() - kSuffix.size());
    }
    return record;
}

int Installation::OpenPackage(UserPackageInstaller& package, const std::string& archive)
{
    PointAt(package, UnpackedFolder(archive));
    if (const int status = package.Unpack(archive.c_str()); status != 0) {
        return status;
    }
    return package.ReadRootOnlyKxProjectFile();
}

std::string Installation::PackagedUpdater(const std::string& folder)
{
    return folder + "/" + PanelNames::kUpdater;
}

int Installation::InstallUnpacked(UserPackageInstaller& package, const std::string& folder,
                                  IStepObserver* observer)
{
    PointAt(package, folder);
    if (const int result = package.ReadKxProjectFile(); result != 0) {
        return result;
    }
    // A device without write protection has no such tool.
    static_cast<void>(OSA_Shell("%s", PanelNames::kWriteProtectOff));
    if (const int result = package.ClearInstalledLog(); result != 0) {
        return result;
    }
    if (const int result = package.ExecuteInstallStep(observer); result != 0) {
        return result;
    }
    return package.RegistInstalledLog();
}

void Installation::LeaveDrive(UserPackageInstaller& package)
{
    package.Cleanup();
    // A drive that cannot be unmounted is pulled out all the same.
    static_cast<void>(OSA_Shell("%s", PanelNames::kUnmountDrive));
}

bool Installation::IsDrivePluggedIn()
{
    return OSA_IsFileExist(PanelNames::kDrive);
}

void Installation::Reboot()
{
    // Without the tool the user switches the panel off and on.
    static_cast<void>(OSA_Shell("%s", PanelNames::kReboot));
}
