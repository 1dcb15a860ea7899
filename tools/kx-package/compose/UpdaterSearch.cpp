// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/UpdaterSearch.h"

#include "archive/Package.h"
#include "io/Error.h"
#include "io/Reach.h"
#include "io/WholeFile.h"
#include "manifest/Manifest.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include <sys/stat.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* kSourcesName = "kx-package.sources";

/// A processor for which scripts/cross builds.
struct CrossProcessor {
    const char* name;  ///< "arm"
    const char* built; ///< "armhf", as Debian and the build's folder call it
};

constexpr std::array<CrossProcessor, 2> kCrossProcessors = {{
    {"aarch64", "arm64"},
    {"arm", "armhf"},
}};

const CrossProcessor* FindCrossProcessor(std::string_view name)
{
    for (const CrossProcessor& processor : kCrossProcessors) {
        if (name == processor.name) {
            return &processor;
        }
    }
    return nullptr;
}

bool IsFile(const fs::path& path)
{
    return io::IsThere(path.string()) && fs::is_regular_file(path);
}

/// Tells how to get an updater.
std::string UpdaterRemedy(const CrossProcessor* cross)
{
    if (cross == nullptr) {
        return "put one there, or name one with --updater PATH";
    }
    const std::string built = cross->built;
    return "make one with 'scripts/cross " + built +
           "' in the sources, or take the one of the package kx-updater for " + built +
           ", and put it there or name it with --updater PATH";
}

} // namespace

std::string SourcesOf(const std::string& toolFolder)
{
    std::string folder;
    std::ifstream file(fs::path(toolFolder) / kSourcesName);
    std::getline(file, folder);
    return folder;
}

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
    const CrossProcessor* const cross = FindCrossProcessor(processor.name);
    if (cross != nullptr && !SourcesOf(machine.toolFolder).empty()) {
        const fs::path built = folder.parent_path() / cross->built / archive::kUpdaterName;
        if (IsFile(built)) {
            return built.string();
        }
    }
    throw io::Error(io::ExitCode::kNoAccess, installed.string(),
                    std::string("there is no updater for ") + processor.name, UpdaterRemedy(cross));
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
