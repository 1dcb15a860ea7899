// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "manifest/Manifest.h"

#include "common/Epoch.h"
#include "io/Nearest.h"
#include "io/Text.h"
#include "io/WholeFile.h"
#include "manifest/ManifestSteps.h"
#include "manifest/TomlTable.h"
#include "osa/OSA.h"
#include "panel/Names.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

constexpr std::uint64_t kLargestManifest = std::uint64_t{16} << 20;

/// Finds the manifest that a path means.
std::string FindManifest(const std::string& path)
{
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        return path;
    }
    std::string manifest = path + (path.back() == '/' ? "" : "/") + kManifestName;
    if (!fs::exists(manifest, error)) {
        throw io::Error(io::ExitCode::kNoAccess, path,
                        std::string("there is no ") + kManifestName + " in the folder",
                        "make one with kx-package new");
    }
    return manifest;
}

toml::table Parse(const std::string& text, const std::string& path)
{
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        throw io::Error(io::ExitCode::kProblems, WhereOf(path, error.source().begin),
                        "is not valid TOML: " + std::string(error.description()));
    }
}

/// Returns the date of the package: the manifest's own, or that of SOURCE_DATE_EPOCH. The day on
/// which a package is built is none: the same sources would not give the same package.
std::string ReadDate(const TomlTable& table)
{
    if (std::optional<std::string> date = table.OptionalDate("date")) {
        return *std::move(date);
    }
    if (const std::optional<std::time_t> epoch = SourceDateEpoch()) {
        return DateText(*epoch);
    }
    throw io::Error(io::ExitCode::kProblems, table.Where(), "'package.date' is missing",
                    "add it, like 2026-11-21, or set SOURCE_DATE_EPOCH");
}

const format::Processor* ReadProcessor(const TomlTable& table)
{
    if (table.Has("updater") && !table.Has("processor")) {
        return nullptr; // it may be for one that is not known here
    }
    const std::vector<std::string> names = format::ProcessorNames();
    const std::string word =
        table.Text("processor", "name the panel's; " + io::NearestRemedy("", names));
    const format::Processor* const processor = format::FindProcessor(word);
    if (processor == nullptr) {
        throw table.Wrong("processor", "is '" + word + "', which is not known",
                          io::NearestRemedy(word, names));
    }
    return processor;
}

std::string ReadName(const TomlTable& table, const std::string& folder)
{
    if (const std::optional<std::string> name = table.OptionalText("name")) {
        RefuseBadPackageName(*name, io::ExitCode::kProblems, table.Where("name"),
                             "choose another 'package.name'");
        return *name;
    }
    std::error_code error;
    std::string path = fs::canonical(folder, error).filename().string();
    RefuseBadPackageName(path, io::ExitCode::kProblems, table.Where(), "give 'package.name'");
    return path;
}

/// Reads the moment that everything in the package is dated by.
std::optional<std::time_t> ReadTimestamp(const TomlTable& table)
{
    const std::optional<std::time_t> moment = table.OptionalMoment("timestamp");
    if (moment.has_value() && (*moment < 0 || *moment >= kFirstOf2108)) {
        throw table.Wrong("timestamp", "is not a time from 1970 to 2107",
                          "an archive can hold no other");
    }
    return moment;
}

/// Reads title and so on.
void ReadTexts(const TomlTable& table, Manifest& manifest)
{
    manifest.title = table.Text("title", "add it; the panel shows it");
    manifest.version = table.Text("version", "add it; the panel shows it");
    manifest.comment = table.OptionalText("comment").value_or("");
    manifest.model = table.Text("model", "name the panel's model");
    manifest.osVersion = table.Text("os-version", "name the version of the panel's system");
    manifest.date = ReadDate(table);
}

void ReadIdentity(const TomlTable& table, Manifest& manifest)
{
    std::vector<std::string> keys = {"name", "processor", "updater", "timestamp", "extra"};
    const bool isVerbatim = table.Has("description-file");
    if (isVerbatim) {
        keys.emplace_back("description-file");
        table.RefuseOtherKeysThan(keys);
        manifest.texts = ReadVerbatimObject(table, manifest.folder);
    } else {
        keys.insert(keys.begin(), {"title", "version", "comment", "model", "os-version", "date"});
        table.RefuseOtherKeysThan(keys);
        ReadTexts(table, manifest);
    }
    manifest.processor = ReadProcessor(table);
    manifest.name = ReadName(table, manifest.folder);
    manifest.timestamp = ReadTimestamp(table);
    if (const std::optional<std::string> updater = table.OptionalText("updater")) {
        manifest.updater = PathFrom(manifest.folder, *updater);
    }
    if (const toml::table* const extra = table.Table("extra")) {
        manifest.extra = ReadTree(TomlTable(*extra, manifest.path, "package.extra"));
    }
}

} // namespace

std::string AcceptedPackageName(std::string name)
{
    std::replace_if(
        name.begin(), name.end(),
        [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) == 0 &&
                   std::string_view("-_.").find(c) == std::string_view::npos;
        },
        '-');
    name = ReplaceStringAll(name, panel::kUnpackedSuffix, "-temp");
    name.erase(0, std::min(name.find_first_not_of("-."), name.size()));
    return name.empty() ? "package" : name;
}

void RefuseBadPackageName(const std::string& name, io::ExitCode code, const std::string& where,
                          const std::string& remedy)
{
    const auto refuse = [&](const std::string& why) {
        throw io::Error(code, where, "the package's name '" + name + "' " + why, remedy);
    };
    if (name.empty()) {
        refuse("is empty");
    }
    if (name[0] == '.' || name[0] == '-') {
        refuse("begins with '" + name.substr(0, 1) + "'");
    }
    if (name.find(panel::kUnpackedSuffix) != std::string::npos) {
        refuse("contains '.temp', which the panel cuts off");
    }
    for (const char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 &&
            std::string_view("-_.").find(c) == std::string_view::npos) {
            refuse("contains characters other than letters, digits, '-', '_' and '.'");
        }
    }
}

Manifest ReadManifest(const std::string& path)
{
    Manifest manifest;
    manifest.path = FindManifest(path);
    const fs::path folder = fs::path(manifest.path).parent_path();
    manifest.folder = folder.empty() ? "." : folder.string();
    const toml::table document =
        Parse(io::ReadWholeFile(manifest.path, kLargestManifest), manifest.path);

    const TomlTable root(document, manifest.path, "");
    root.RefuseOtherKeysThan({"package", "steps"});
    const toml::table* const identity = root.Table("package");
    if (identity == nullptr) {
        throw io::Error(io::ExitCode::kProblems, manifest.path, "there is no [package]",
                        "begin with [package] and its title");
    }
    ReadIdentity(TomlTable(*identity, manifest.path, "package"), manifest);
    for (const TomlTable& step : root.Tables("steps")) {
        manifest.steps.push_back(ReadStep(step, manifest.folder));
    }
    return manifest;
}

} // namespace kx::tool
