// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "manifest/Manifest.h"

#include "common/Epoch.h"
#include "format/TomlTable.h"
#include "io/Nearest.h"
#include "io/Text.h"
#include "io/WholeFile.h"
#include "manifest/ManifestSteps.h"
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
    // What may not be looked at, or leads to nothing, is told when it is read.
    if (fs::symlink_status(manifest, error).type() == fs::file_type::not_found) {
        throw io::Error(io::ExitCode::kProblems, path,
                        std::string("there is no ") + kManifestName + " in the folder",
                        "make one with kx-package new");
    }
    return manifest;
}

/// Returns the date of the package: the manifest's own, or that of SOURCE_DATE_EPOCH. The day on
/// which a package is built is none: the same sources would not give the same package.
std::string ReadDate(const format::TomlTable& table)
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

const format::Processor* ReadProcessor(const format::TomlTable& table)
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

std::string ReadName(const format::TomlTable& table, const std::string& folder)
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

/// The file that describes the panel; empty when none is named.
std::string ReadPanelPath(const format::TomlTable& table, const std::string& folder)
{
    const std::optional<std::string> panel = table.OptionalText("panel");
    if (panel.has_value() && panel->empty()) {
        throw table.Wrong("panel", "is empty", "name the file that describes the panel");
    }
    return panel.has_value() ? PathFrom(folder, *panel) : std::string();
}

/// Reads the moment that everything in the package is dated by.
std::optional<std::time_t> ReadTimestamp(const format::TomlTable& table)
{
    const std::optional<std::time_t> moment = table.OptionalMoment("timestamp");
    if (moment.has_value() && (*moment < 0 || *moment >= kFirstOf2108)) {
        throw table.Wrong("timestamp", "is not a time from 1970 to 2107",
                          "an archive can hold no other");
    }
    return moment;
}

/// Reads title and so on.
void ReadTexts(const format::TomlTable& table, Manifest& manifest, Mistakes& mistakes)
{
    const auto read = [&](std::string& text, const char* key, const char* remedy) {
        mistakes.Try([&] { text = table.Text(key, remedy); });
    };
    read(manifest.title, "title", "add it; the panel shows it");
    read(manifest.version, "version", "add it; the panel shows it");
    mistakes.Try([&] { manifest.comment = table.OptionalText("comment").value_or(""); });
    read(manifest.model, "model", "name the panel's model");
    read(manifest.osVersion, "os-version", "name the version of the panel's system");
    mistakes.Try([&] { manifest.date = ReadDate(table); });
}

/// Reads what is put in besides the steps' files.
void ReadAdditions(const format::TomlTable& table, Manifest& manifest, Mistakes& mistakes)
{
    mistakes.Try([&] { manifest.timestamp = ReadTimestamp(table); });
    mistakes.Try([&] {
        if (const std::optional<std::string> updater = table.OptionalText("updater")) {
            manifest.updater = PathFrom(manifest.folder, *updater);
        }
    });
    mistakes.Try([&] {
        if (const toml::table* const extra = table.Table("extra")) {
            manifest.extra = ReadTree(format::TomlTable(*extra, manifest.path, "package.extra"));
        }
    });
}

void ReadIdentity(const format::TomlTable& table, Manifest& manifest, Mistakes& mistakes)
{
    const std::vector<std::string> texts = {"title", "version",    "comment",
                                            "model", "os-version", "date"};
    std::vector<std::string> keys = {"name", "processor", "panel", "updater", "timestamp", "extra"};
    for (const std::vector<std::string>& all : {texts, keys}) {
        for (const std::string& key : all) {
            manifest.where[key] = table.Where(key.c_str());
        }
    }
    const bool isVerbatim = table.Has("description-file");
    if (isVerbatim) {
        keys.emplace_back("description-file");
    } else {
        keys.insert(keys.begin(), texts.begin(), texts.end());
    }
    mistakes.Try([&] { table.RefuseOtherKeysThan(keys); });
    if (isVerbatim) {
        mistakes.Try([&] { manifest.texts = ReadVerbatimObject(table, manifest.folder); });
    } else {
        ReadTexts(table, manifest, mistakes);
    }
    mistakes.Try([&] {
        manifest.processor = ReadProcessor(table);
        manifest.floatAbi = format::FloatAbiOfWord(table.OptionalText("processor").value_or(""));
    });
    mistakes.Try([&] { manifest.panel = ReadPanelPath(table, manifest.folder); });
    mistakes.Try([&] { manifest.name = ReadName(table, manifest.folder); });
    ReadAdditions(table, manifest, mistakes);
}

void ReadDocument(const format::TomlTable& root, Manifest& manifest, Mistakes& mistakes)
{
    mistakes.Try([&] { root.RefuseOtherKeysThan({"package", "steps"}); });
    mistakes.Try([&] {
        const toml::table* const identity = root.Table("package");
        if (identity == nullptr) {
            throw io::Error(io::ExitCode::kProblems, manifest.path, "there is no [package]",
                            "begin with [package] and its title");
        }
        ReadIdentity(format::TomlTable(*identity, manifest.path, "package"), manifest, mistakes);
    });
    mistakes.Try([&] {
        for (const format::TomlTable& step : root.Tables("steps")) {
            if (std::optional<ManifestStep> read = ReadStep(step, manifest.folder, mistakes)) {
                manifest.steps.push_back(*std::move(read));
            }
        }
    });
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

Manifest ReadManifest(const std::string& path, Mistakes& mistakes)
{
    Manifest manifest;
    manifest.path = FindManifest(path);
    const fs::path folder = fs::path(manifest.path).parent_path();
    manifest.folder = folder.empty() ? "." : folder.string();
    const std::string text = io::ReadWholeFile(manifest.path, kLargestManifest);
    mistakes.Try([&] {
        const toml::table document = format::ParseToml(text, manifest.path);
        ReadDocument(format::TomlTable(document, manifest.path, ""), manifest, mistakes);
    });
    return manifest;
}

Manifest ReadManifest(const std::string& path)
{
    Mistakes mistakes;
    Manifest manifest = ReadManifest(path, mistakes);
    mistakes.ThrowAny();
    return manifest;
}

} // namespace kx::tool
