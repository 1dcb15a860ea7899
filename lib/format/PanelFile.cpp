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

/// Returns the whole number that a text is; nothing when it is none.
std::optional<std::int64_t> NumberOf(const std::string& text)
{
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && last == end ? std::optional(number) : std::nullopt;
}

/// Returns a list of names: different ones, none of them empty.
std::optional<std::vector<std::string>> OptionalNames(const TomlTable& table, const char* key)
{
    return table.Has(key) ? std::optional(table.DistinctTexts(key, true)) : std::nullopt;
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
    std::vector<std::string> paths = table.DistinctTexts(key);
    for (std::string& path : paths) {
        path = FullPath(table, key, path);
    }
    return paths;
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
    const std::string abi = table.Word("float-abi", {"hard", "soft"});
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

io::Error WrongRoot(const TomlTable& table, const std::string& root)
{
    return table.Wrong("root", "is '" + root + "', which is not a folder",
                       "name the folder with the copy of the panel's files");
}

/// Returns the folder with the panel's files, as it is written.
std::optional<std::string> RootAsWritten(const TomlTable& table)
{
    std::optional<std::string> root = table.OptionalText("root");
    if (root.has_value() && root->empty()) {
        throw WrongRoot(table, *root);
    }
    return root;
}

/// Returns the folder with the panel's files; a relative one lies beside the file.
std::string ReadRoot(const TomlTable& table)
{
    const std::optional<std::string> root = RootAsWritten(table);
    if (!root.has_value()) {
        return {};
    }
    const std::filesystem::path folder = std::filesystem::path(table.File()).parent_path() / *root;
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        throw WrongRoot(table, *root);
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
        PanelPlace place{FullPath(table, "path", path), static_cast<std::uint64_t>(*size) << 20U};
        if (std::any_of(places.begin(), places.end(),
                        [&place](const PanelPlace& other) { return other.path == place.path; })) {
            throw table.Wrong("path", "is '" + place.path + "', as that of another place",
                              "remove one of them");
        }
        places.push_back(std::move(place));
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
        settings.push_back({name, one.DistinctTexts("values"), ReadRange(one)});
    }
    return settings;
}

/// Refuses a list that a panel's own file must have, and that is missing or empty.
/// @param names  as they were read; nothing when they are damaged, too
void RefuseNoNames(const TomlTable& table, const char* key,
                   const std::optional<std::vector<std::string>>& names, const char* remedy)
{
    if (!table.Has(key)) {
        throw io::Error(io::ExitCode::kProblems, table.File(),
                        std::string("'") + key + "' is missing", remedy);
    }
    if (names.has_value() && names->empty()) {
        throw table.Wrong(key, "is empty", remedy);
    }
}

/// Refuses a panel's own file that does not say what the panel is.
void RefuseNoIdentity(const TomlTable& table, const PanelModel& model, io::Mistakes& mistakes)
{
    mistakes.Try([&] {
        RefuseNoNames(table, "models", model.models,
                      "write this panel's model, like models = [\"TP-0700\"]");
    });
    mistakes.Try([&] {
        RefuseNoNames(table, "os-versions", model.osVersions,
                      "write the version of its system, like os-versions = [\"2.1.0\"]");
    });
    mistakes.Try([&] {
        RefuseNoNames(table, "processor", {},
                      "write this panel's processor, like processor = \"arm\"");
    });
}

/// Reads all but the folder with the panel's files.
PanelModel ReadModel(const TomlTable& table, io::Mistakes& mistakes)
{
    PanelModel model;
    model.file = table.File();
    mistakes.Try([&] {
        table.RefuseOtherKeysThan({"format", "models", "os-versions", "processor", "float-abi",
                                   "c-library", "root", "libraries", "interpreters", "shell",
                                   "users", "protected", "places", "settings", "signatures",
                                   "downgrade", "state", "updater", "limits"});
    });
    mistakes.Try([&] { model.models = OptionalNames(table, "models"); });
    mistakes.Try([&] { model.osVersions = OptionalNames(table, "os-versions"); });
    mistakes.Try([&] { ReadHardware(table, model); });
    mistakes.Try([&] { model.cLibrary = ReadVersion(table, "c-library"); });
    mistakes.Try([&] { model.libraries = OptionalNames(table, "libraries"); });
    mistakes.Try([&] {
        if (table.Has("interpreters")) {
            model.interpreters = FullPaths(table, "interpreters");
        }
    });
    mistakes.Try([&] { model.shell = table.Word("shell", PanelShells()); });
    mistakes.Try([&] { model.users = OptionalNames(table, "users"); });
    mistakes.Try([&] { model.protectedPlaces = FullPaths(table, "protected"); });
    mistakes.Try([&] { model.places = ReadPlaces(table); });
    mistakes.Try([&] { model.settings = ReadSettings(table); });
    ReadPanelRules(table, model.rules, mistakes);
    return model;
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
    io::Mistakes mistakes;
    PanelModel model = ReadModel(table, mistakes);
    mistakes.Try([&] { model.root = ReadRoot(table); });
    mistakes.ThrowAny();
    return model;
}

PanelModel ParseOwnPanelFile(const std::string& text, const std::string& path)
{
    const toml::table document = ParseToml(text, path);
    const TomlTable table(document, path, "");
    RefuseOtherFormat(table);
    io::Mistakes mistakes;
    PanelModel model = ReadModel(table, mistakes);
    mistakes.Try([&] { static_cast<void>(RootAsWritten(table)); });
    RefuseNoIdentity(table, model, mistakes);
    mistakes.ThrowAny();
    return model;
}

} // namespace kx::format
