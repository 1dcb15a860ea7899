// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/UpdaterSearch.h"

#include "archive/Package.h"
#include "io/Error.h"
#include "io/Reach.h"
#include "io/WholeFile.h"
#include "manifest/Manifest.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

bool IsFile(const fs::path& path)
{
    return io::IsThere(path.string()) && fs::is_regular_file(path);
}

} // namespace

Machine ThisMachine()
{
    std::error_code error;
    return {fs::read_symlink("/proc/self/exe", error).parent_path().string(),
            format::NativeProcessor()};
}

std::string FindUpdater(const format::Processor& processor, const Machine& machine)
{
    const fs::path folder(machine.toolFolder);
    const fs::path installed =
        (folder.parent_path() / "lib" / archive::kUpdaterName / processor.name) /
        archive::kUpdaterName;
    if (IsFile(installed)) {
        return installed.string();
    }
    const fs::path own = folder / archive::kUpdaterName;
    if (machine.native == &processor && IsFile(own)) {
        return own.string();
    }
    throw io::Error(io::ExitCode::kNoAccess, installed.string(),
                    std::string("there is no updater for ") + processor.name,
                    "put one there, or name one with --updater PATH");
}

std::optional<format::ProgramHead> ReadUpdaterHead(const std::string& path)
{
    struct stat info {
    };
    if (stat(path.c_str(), &info) != 0) {
        throw io::ReadError(path, "open the updater", errno);
    }
    if (!S_ISREG(info.st_mode)) {
        return std::nullopt;
    }
    return format::ReadProgramHead(
        io::ReadFileHead(path, format::kProgramHeadSize, "open the updater"));
}

std::string UpdaterFor(const Manifest& manifest, const std::string& wanted)
{
    std::string path = !wanted.empty() ? wanted
                       : !manifest.updater.empty()
                           ? manifest.updater
                           : FindUpdater(*manifest.processor, ThisMachine());
    // A manifest that names no processor has an updater of its own, for whatever it is for.
    if (manifest.processor != nullptr) {
        RefuseOtherUpdater(path, *manifest.processor);
    }
    return path;
}

std::string UpdaterIfAny(const Manifest& manifest)
{
    try {
        return UpdaterFor(manifest, "");
    } catch (const io::Error& error) {
        if (error.Code() != io::ExitCode::kNoAccess || !manifest.updater.empty()) {
            throw;
        }
        return {};
    }
}

void RefuseOtherUpdater(const std::string& path, const format::Processor& processor)
{
    const std::optional<format::ProgramHead> program = ReadUpdaterHead(path);
    if (!program.has_value()) {
        throw io::Error(io::ExitCode::kProblems, path, "is not a program that a panel could start",
                        "name an updater with --updater PATH");
    }
    if (!program->IsFor(processor)) {
        throw io::Error(io::ExitCode::kProblems, path,
                        "is a program for " + program->ProcessorName() + ", not for " +
                            processor.name,
                        "name another one with --updater PATH, or correct 'package.processor'");
    }
}

} // namespace kx::tool
