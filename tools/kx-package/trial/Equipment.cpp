// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/Equipment.h"

#include "archive/Package.h"
#include "compose/UpdaterSearch.h"
#include "io/Error.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* kRunName = "run";

bool IsProgram(const fs::path& path)
{
    std::error_code error;
    return fs::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

void RefuseOtherProgram(const std::string& path, const format::Processor* native)
{
    const std::optional<format::ProgramHead> program = ReadUpdaterHead(path);
    if (!program.has_value() || !IsProgram(path)) {
        throw io::Error(io::ExitCode::kNoAccess, path, "is not a program that can be started",
                        "name an updater with --updater PATH");
    }
    if (native != nullptr && !program->IsFor(*native)) {
        throw io::Error(io::ExitCode::kNoAccess, path,
                        "is a program for " + program->ProcessorName() + ", and this machine is " +
                            native->name,
                        "name an updater for this machine with --updater PATH");
    }
}

} // namespace

std::string FindDevice(const std::string& named, const std::string& toolFolder)
{
    const char* const variable = std::getenv("KX_DEVICE");
    std::string folder = named;
    if (folder.empty() && variable != nullptr) {
        folder = variable;
    }
    if (folder.empty()) {
        folder = (fs::path(toolFolder).parent_path() / "lib" / archive::kUpdaterName / "device")
                     .string();
        const std::string sources = SourcesOf(toolFolder);
        if (!IsProgram(fs::path(folder) / kRunName) && !sources.empty()) {
            folder = (fs::path(sources) / "device").string();
        }
    }
    if (!IsProgram(fs::path(folder) / kRunName)) {
        throw io::Error(
            io::ExitCode::kNoAccess, (fs::path(folder) / kRunName).string(),
            "there is no sandboxed device",
            "name the folder that holds its program 'run' with --device DIR or KX_DEVICE");
    }
    return fs::absolute(folder).string();
}

std::string FindTrialUpdater(const std::string& named, const std::string& toolFolder)
{
    const Machine machine{toolFolder, format::NativeProcessor()};
    std::string path = named;
    const fs::path release = fs::path(toolFolder).parent_path() / "release" / archive::kUpdaterName;
    if (path.empty() && machine.native == nullptr) {
        throw io::Error(io::ExitCode::kNoAccess, "", "this machine's processor is not known",
                        "name an updater for it with --updater PATH");
    }
    if (path.empty()) {
        try {
            path = FindUpdater(*machine.native, machine);
        } catch (const io::Error&) {
            if (SourcesOf(toolFolder).empty() || !IsProgram(release)) {
                throw;
            }
            path = release.string();
        }
    }
    RefuseOtherProgram(path, machine.native);
    return path;
}

} // namespace kx::tool
