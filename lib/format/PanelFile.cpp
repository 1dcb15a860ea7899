// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/PanelFile.h"

#include "format/TomlTable.h"
#include "io/Nearest.h"
#include "io/Path.h"
#include "io/WholeFile.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <limits>

namespace kx::format
{

namespace
{

constexpr std::uint64_t kLargestPanelFile = std::uint64_t{4} << 20;

/// Returns the whole number that a text is; nothing when it is none.
std::optional<std::int64_t> NumberOf(const std::string& text)
{
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && last == end ? std::optional(number) : std::nullopt;
}

std::optional<std::vector<std::string>> OptionalTexts(const TomlTable& table, const char* key)
{
    return table.Has(key) ? std::optional(table.Texts(key)) : std::nullopt;
}

/// Returns a full path, plain.
std::string FullPath(const TomlTable& table, const char* key, const std::string& path)
{
    if (path.empty() || path[0] != '/') {
        throw table.Wrong(key, "contains '" + path + "', which is not a full path",
                          "begin it with '/'");
    }
    return io::PlainPath(path);
}

std::vector<std::string> FullPaths(const TomlTable& table, const char* key)
{
    std::vector<std::string> paths = table.Texts(key);
    for (std::string& path : paths) {
        path = FullPath(table, key, path);
    }
    return paths;
}

/// Returns one of some words; empty when the key is missing.
std::string WordOf(const TomlTable& table, const char* key, const std::vector<std::string>& known)
{
    std::string word = table.OptionalText(key).value_or("");
    if (table.Has(key) && std::find(known.begin(), known.end(), word) == known.end()) {
        throw table.Wrong(key, "is '" + word + "', which is not known",
                          io::NearestRemedy(word, known));
    }
    return word;
}

void RefuseOtherFormat(const TomlTable& table)
{
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    const std::int64_t number = table.OptionalNumber("format", 1, kMost).value_or(kPanelFormat);
    if (number != kPanelFormat) {
        throw table.Wrong("format",
                          "is " + std::to_string(number) + ", and this program knows " +
                              std::to_string(kPanelFormat) + " only",
                          "use a newer program");
    }
}

/// Reads what programs on the panel meet: the processor, and how numbers are handed over.
void ReadHardware(const TomlTable& table, PanelModel& model)
{
    if (const std::optional<std::string> word = table.OptionalText("processor")) {
        model.processor = FindProcessor(*word);
        model.floatAbi = FloatAbiOfWord(*word);
        if (model.processor == nullptr) {
            throw table.Wrong("processor", "is '" + *word + "', which is not known",
                              io::NearestRemedy(*word, ProcessorNames()));
        }
    }
    const std::string abi = WordOf(table, "float-abi", {"hard", "soft"});
    if (!abi.empty() &&
        (model.processor == nullptr || model.processor->name != std::string("arm"))) {
        throw table.Wrong("float-abi", "is for panels with the processor arm",
                          "remove it, or write processor = \"arm\"");
    }
    if (!abi.empty()) {
        model.floatAbi = abi == "hard" ? FloatAbi::kHard : FloatAbi::kSoft;
    }
}

std::string ReadVersion(const TomlTable& table, const char* key)
{
    std::string version = table.OptionalText(key).value_or("");
    const bool isVersion = version.find_first_not_of("0123456789.") == std::string::npos &&
                           !version.empty() && version.front() != '.' && version.back() != '.';
    if (table.Has(key) && !isVersion) {
        throw table.Wrong(key, "is '" + version + "', which is not a version",
                          "write it like \"2.31\"");
    }
    return version;
}

/// Returns the folder with the panel's files; a relative one lies beside the file.
std::string ReadRoot(const TomlTable& table)
{
    const std::optional<std::string> root = table.OptionalText("root");
    if (!root.has_value()) {
        return {};
    }
    const std::filesystem::path folder = std::filesystem::path(table.File()).parent_path() / *root;
    std::error_code error;
    if (root->empty() || !std::filesystem::is_directory(folder, error)) {
        throw table.Wrong("root", "is '" + *root + "', which is not a folder",
                          "name the folder with the copy of the panel's files");
    }
    return folder.string();
}

std::vector<PanelPlace> ReadPlaces(const TomlTable& root)
{
    constexpr std::int64_t kMost = std::int64_t{1} << 40;
    std::vector<PanelPlace> places;
    for (const TomlTable& table : root.Tables("places")) {
        table.RefuseOtherKeysThan({"path", "size-mib"});
        const std::string path = table.Text("path", "write the folder's full path");
        const std::optional<std::int64_t> size = table.OptionalNumber("size-mib", 0, kMost);
        if (!size.has_value()) {
            throw io::Error(io::ExitCode::kProblems, table.Where(),
                            "'" + table.Name() + ".size-mib' is missing",
                            "write how many MiB packages may fill there");
        }
        places.push_back({FullPath(table, "path", path), static_cast<std::uint64_t>(*size) << 20U});
    }
    return places;
}

/// Reads the bounds of a setting's numbers: two of them.
std::optional<PanelSetting::Range> ReadRange(const TomlTable& table)
{
    if (!table.Has("range")) {
        return {};
    }
    const std::vector<std::int64_t> numbers = table.Numbers("range");
    if (numbers.size() != 2 || numbers[0] > numbers[1]) {
        throw table.Wrong("range", "is not the least and the most number", "write it like [0, 15]");
    }
    return PanelSetting::Range{numbers[0], numbers[1]};
}

std::optional<std::vector<PanelSetting>> ReadSettings(const TomlTable& root)
{
    const toml::table* const named = root.Table("settings");
    if (named == nullptr) {
        return {};
    }
    const TomlTable table(*named, root.File(), "settings");
    std::vector<PanelSetting> settings;
    for (const std::string& name : table.Keys()) {
        const TomlTable one(*table.Table(name.c_str()), root.File(), "settings." + name);
        one.RefuseOtherKeysThan({"values", "range"});
        if (one.Has("values") && one.Has("range")) {
            throw one.Wrong("range", "is given together with 'values'", "keep one of them");
        }
        settings.push_back({name, one.Texts("values"), ReadRange(one)});
    }
    return settings;
}

} // namespace

bool PanelSetting::Takes(const std::string& value) const
{
    if (range.has_value()) {
        const std::optional<std::int64_t> number = NumberOf(value);
        return number.has_value() && *number >= range->least && *number <= range->most;
    }
    return values.empty() || std::find(values.begin(), values.end(), value) != values.end();
}

std::string PanelSetting::Taken() const
{
    if (range.has_value()) {
        return "a number from " + std::to_string(range->least) + " to " +
               std::to_string(range->most);
    }
    std::string taken;
    for (const std::string& value : values) {
        const bool isLast = &value == &values.back();
        taken += (taken.empty() ? "'" : isLast ? " or '" : ", '") + value + "'";
    }
    return taken;
}

const std::vector<std::string>& PanelShells()
{
    static const std::vector<std::string> kShells = {"bash", "busybox", "dash"};
    return kShells;
}

PanelModel ReadPanelFile(const std::string& path)
{
    const toml::table document = ParseToml(io::ReadWholeFile(path, kLargestPanelFile), path);
    const TomlTable table(document, path, "");
    RefuseOtherFormat(table);
    table.RefuseOtherKeysThan({"format", "models", "os-versions", "processor", "float-abi",
                               "c-library", "root", "libraries", "interpreters", "shell", "users",
                               "protected", "places", "settings"});
    PanelModel model;
    model.file = path;
    model.models = OptionalTexts(table, "models");
    model.osVersions = OptionalTexts(table, "os-versions");
    ReadHardware(table, model);
    model.cLibrary = ReadVersion(table, "c-library");
    model.root = ReadRoot(table);
    model.libraries = OptionalTexts(table, "libraries");
    if (table.Has("interpreters")) {
        model.interpreters = FullPaths(table, "interpreters");
    }
    model.shell = WordOf(table, "shell", PanelShells());
    model.users = OptionalTexts(table, "users");
    model.protectedPlaces = FullPaths(table, "protected");
    model.places = ReadPlaces(table);
    model.settings = ReadSettings(table);
    return model;
}

} // namespace kx::format
