// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "manifest/ManifestSteps.h"

#include "format/Description.h"
#include "io/Nearest.h"
#include "io/Text.h"
#include "io/Utf8.h"
#include "io/WholeFile.h"
#include "manifest/Glob.h"
#include "osa/OSA.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace kx::tool
{

namespace
{

constexpr std::uint64_t kLargestScript = std::uint64_t{16} << 20;
constexpr const char* kDefaultMode = "644";

/// Finds the kind that a table names.
template <class Kind>
const Kind* ReadKind(const format::TomlTable& table, const std::vector<const Kind*>& kinds)
{
    const std::vector<std::string> names = format::NamesOf(kinds);
    const std::string name = table.Text("kind", "add it; " + io::NearestRemedy("", names));
    const Kind* const kind = format::FindKind(kinds, &Kind::name, name);
    if (kind == nullptr) {
        throw table.Wrong("kind", "is '" + name + "', which is not a known kind",
                          io::NearestRemedy(name, names));
    }
    return kind;
}

constexpr const char* kFullPath = "write the full path on the panel";

/// Refuses a path for the panel that does not mean there what it says here.
void RefuseBadTarget(const format::TomlTable& table, const char* key, const std::string& target)
{
    if (target.empty() || target[0] != '/') {
        throw table.Wrong(key, "does not begin with '/'", kFullPath);
    }
    if (const std::string sign = io::UnsafeCharacter(target); !sign.empty()) {
        throw table.Wrong(key, "contains " + sign + ", which the panel's shell interprets",
                          "use another name");
    }
}

std::string ReadTarget(const format::TomlTable& table)
{
    std::string target = table.Text("target", kFullPath);
    RefuseBadTarget(table, "target", target);
    return target;
}

std::string ReadSource(const format::TomlTable& table, const std::string& remedy)
{
    std::string source = table.Text("source", remedy);
    if (source.empty()) {
        throw table.Wrong("source", "is empty", remedy);
    }
    return source;
}

std::string ReadMode(const format::TomlTable& table)
{
    std::string mode = table.OptionalText("mode").value_or(kDefaultMode);
    const bool isOctal = mode.find_first_not_of("01234567") == std::string::npos;
    if (!isOctal || mode.size() < 3 || mode.size() > 4) {
        throw table.Wrong("mode", "is '" + mode + "', which is not a mode",
                          "write three or four octal digits, like \"755\"");
    }
    return mode;
}

/// Reads what the description is to say instead of the source; its last part names the file in the
/// package.
std::string ReadFileOrigin(const format::TomlTable& table, const std::string& source)
{
    std::string origin = table.OptionalText("origin").value_or("");
    if (origin.empty()) {
        return origin;
    }
    const std::string name = OSA_GetFilenameExt(origin.c_str());
    if (name.empty() || name == "." || name == ".." || !io::UnsafeCharacter(name).empty()) {
        throw table.Wrong("origin", "ends in no name that a file can have in the package",
                          "end it with another name");
    }
    if (HasWildcard(source)) {
        throw table.Wrong("origin", "is given together with a pattern", "name one file");
    }
    return origin;
}

ManifestFiles ReadFiles(const format::TomlTable& table)
{
    table.RefuseOtherKeysThan({"source", "target", "mode", "origin"});
    const std::string remedy = "name a file, or files by a pattern like \"bin/*\"";
    ManifestFiles files = {ReadSource(table, remedy),
                           ReadTarget(table),
                           ReadMode(table),
                           table.Where("source"),
                           table.Where("target"),
                           table.Where("mode"),
                           {}};
    files.origin = ReadFileOrigin(table, files.source);
    return files;
}

/// Makes the error of what a table says of a path.
io::Error WrongEntry(const format::TomlTable& table, const char* key, const std::string& path,
                     const std::string& value, const char* wanted, const std::string& remedy)
{
    return table.Wrong(key, "has '" + value + "' for '" + path + "', which is no " + wanted,
                       remedy);
}

/// Reads the modes of single files of a folder.
std::map<std::string, unsigned> ReadModes(const format::TomlTable& table)
{
    std::map<std::string, unsigned> modes;
    for (const auto& [path, mode] : table.TextsByKey("modes")) {
        if (mode.size() != 3 || mode.find_first_not_of("01234567") != std::string::npos) {
            throw WrongEntry(table, "modes", path, mode, "mode",
                             "write three octal digits, like \"600\"");
        }
        constexpr int kOctal = 8;
        modes[path] = static_cast<unsigned>(std::stoul(mode, nullptr, kOctal));
    }
    return modes;
}

/// Reads what files of a folder are called in the package where that is not their own name.
std::map<std::string, std::string> ReadNames(const format::TomlTable& table)
{
    std::map<std::string, std::string> names;
    for (auto& [path, name] : table.TextsByKey("names")) {
        // No archive holds other names.
        const std::string framed = "/" + name + "/";
        const bool isBad =
            framed.find("//") != std::string::npos || framed.find("/./") != std::string::npos ||
            framed.find("/../") != std::string::npos ||
            std::any_of(name.begin(), name.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
        if (isBad) {
            throw WrongEntry(table, "names", path, name, "path", "write the path below the folder");
        }
        names[path] = std::move(name);
    }
    return names;
}

/// Reads what folders have in common, whatever they are for.
void ReadTreeInto(const format::TomlTable& table, ManifestFolder& folder)
{
    folder.source = ReadSource(table, "name the folder");
    folder.exclude = table.Texts("exclude");
    folder.executable = table.Texts("executable");
    folder.where = table.Where("source");
    folder.excludeWhere = table.Where("exclude");
    folder.modes = ReadModes(table);
    folder.names = ReadNames(table);
}

/// Returns a folder of the panel without the '/' at its end: its record holds the name as it is
/// given, so one form is kept.
std::string TrimmedTarget(std::string target)
{
    while (target.size() > 1 && target.back() == '/') {
        target.pop_back();
    }
    return target;
}

/// Reads where on the panel the archive of a fast folder lies until it is unpacked.
void ReadArchiveInto(const format::TomlTable& table, ManifestFolder& folder)
{
    constexpr const char* kKey = "archive";
    const std::optional<std::string> archive = table.OptionalText(kKey);
    folder.archive = archive.value_or(format::DefaultFastArchive(folder.target));
    folder.archiveWhere = table.Where(archive.has_value() ? kKey : "target");
    if (!archive.has_value()) {
        return;
    }
    RefuseBadTarget(table, kKey, *archive);
    if (archive->back() == '/' || *archive == folder.target) {
        throw table.Wrong(kKey, "names a folder",
                          "write the path of a file that is there for a "
                          "moment, like \"/tmp/files.tar\"");
    }
}

ManifestFolder ReadFolder(const format::TomlTable& table, bool isFast)
{
    std::vector<std::string> keys = {"source", "target", "exclude", "executable",
                                     "modes",  "names",  "origin"};
    if (isFast) {
        keys.emplace_back("archive");
    }
    table.RefuseOtherKeysThan(keys);
    ManifestFolder folder;
    ReadTreeInto(table, folder);
    folder.target = TrimmedTarget(ReadTarget(table));
    folder.targetWhere = table.Where("target");
    folder.origin = table.OptionalText("origin").value_or("");
    if (isFast) {
        ReadArchiveInto(table, folder);
    }
    return folder;
}

/// Makes the error of a file that cannot be read one of the place that names it.
io::Error NamedBy(const std::string& where, const io::Error& error)
{
    return {error.Code(), where, error.Where() + ": " + error.what(), error.Remedy()};
}

/// Reads a script from the file that a key names.
std::string ReadScriptFile(const format::TomlTable& table, const char* key,
                           const std::string& named, const std::string& folder)
{
    std::string text;
    try {
        text = io::ReadWholeFile(PathFrom(folder, named), kLargestScript);
    } catch (const io::Error& error) {
        throw NamedBy(table.Where(key), error);
    }
    if (!io::IsUtf8(text) || text.find('\0') != std::string::npos) {
        throw table.Wrong(key, "names '" + named + "', which is not UTF-8 text",
                          "save the script as UTF-8");
    }
    return Replace_CRLF_to_LF(text);
}

/// Reads a script that is given as a text or as the name of a file.
std::optional<std::string> ReadScript(const format::TomlTable& table, const char* key,
                                      const std::string& folder)
{
    const std::string fileKey = std::string(key) + "-file";
    const std::optional<std::string> text = table.OptionalText(key);
    const std::optional<std::string> file = table.OptionalText(fileKey.c_str());
    if (text.has_value() && file.has_value()) {
        throw table.Wrong(fileKey.c_str(), "is given together with '" + std::string(key) + "'",
                          "keep one of them");
    }
    if (file.has_value()) {
        return ReadScriptFile(table, fileKey.c_str(), *file, folder);
    }
    return text.has_value() ? std::optional(Replace_CRLF_to_LF(*text)) : std::nullopt;
}

/// Where a script stands that is given as a text or as the name of a file.
std::string WhereOfScript(const format::TomlTable& table, const char* key)
{
    const std::string fileKey = std::string(key) + "-file";
    return table.Where(table.Has(key) ? key : fileKey.c_str());
}

void ReadScripts(const format::TomlTable& table, const std::string& folder, ManifestStep& step)
{
    step.installWhere = WhereOfScript(table, "install");
    step.uninstallWhere = WhereOfScript(table, "uninstall");
    std::optional<std::string> install = ReadScript(table, "install", folder);
    if (!install.has_value()) {
        throw io::Error(io::ExitCode::kProblems, table.Where(),
                        "'" + table.Name() + "' has no script",
                        "give its text as 'install', or its file as 'install-file'");
    }
    step.install = *std::move(install);
    step.uninstall = ReadScript(table, "uninstall", folder).value_or(kDefaultUninstall);
}

/// Reads one setting. The names and values keep the order in which they are written, because the
/// setting tool gets its words in that order.
ManifestSetting ReadSetting(const format::TomlTable& table, const std::string& folder)
{
    ManifestSetting setting;
    setting.kind = ReadKind(table, format::SettingKinds());
    std::vector<std::string> keys = {"kind", "used", "values"};
    const bool isAutoStart = setting.kind == &format::kAutoStartKind;
    if (isAutoStart) {
        keys.insert(keys.end(), {"script", "script-file"});
    }
    table.RefuseOtherKeysThan(keys);
    setting.where = table.Where("kind");
    setting.isUsed = table.Flag("used", true);
    if (const toml::table* const values = table.Table("values")) {
        const format::TomlTable named(*values, table.File(), table.Name() + ".values");
        for (const std::string& key : named.Keys()) {
            setting.values.emplace_back(key, named.Text(key.c_str(), ""));
            setting.valuesWhere.push_back(named.Where(key.c_str()));
        }
    }
    if (!isAutoStart) {
        return setting;
    }
    if (std::optional<std::string> script = ReadScript(table, "script", folder)) {
        const bool isGiven =
            std::any_of(setting.values.begin(), setting.values.end(),
                        [](const auto& value) { return value.first == format::kCustomScriptItem; });
        if (isGiven) {
            throw table.Wrong("values", "contains CustomScript besides the script",
                              "keep one of them");
        }
        setting.values.emplace_back(format::kCustomScriptItem, *std::move(script));
        setting.valuesWhere.push_back(WhereOfScript(table, "script"));
    }
    return setting;
}

/// Refuses a step without anything to do.
template <class Things>
Things NotEmpty(const format::TomlTable& table, const char* key, Things things)
{
    if (things.empty()) {
        throw io::Error(io::ExitCode::kProblems, table.Where(),
                        "'" + table.Name() + "' has no '" + key + "'",
                        std::string("add [[steps.") + key + "]] below it");
    }
    return things;
}

/// Reads the items of a step, all but those with a mistake.
template <class Item, class Read>
void ReadItems(const format::TomlTable& table, const char* key, std::vector<Item>& items,
               Mistakes& mistakes, Read read)
{
    for (const format::TomlTable& item : NotEmpty(table, key, table.Tables(key))) {
        mistakes.Try([&] { items.push_back(read(item)); });
    }
}

/// Returns the keys that a step of the kind may have.
std::vector<std::string> KeysOf(const format::StepKind& kind)
{
    std::vector<std::string> keys = {"kind", "comment", "skip"};
    if (&kind == &format::kCopyFilesKind) {
        keys.insert(keys.end(), {"record", "files"});
    } else if (&kind == &format::kCopyFolderKind) {
        keys.insert(keys.end(), {"record", "fast", "folders"});
    } else if (&kind == &format::kScriptKind) {
        keys.insert(keys.end(), {"install", "install-file", "uninstall", "uninstall-file"});
    } else {
        keys.emplace_back("settings");
    }
    return keys;
}

/// The kinds of steps that a manifest may have: the panel's, and the one that is taken as it is.
const std::vector<const format::StepKind*>& ManifestKinds()
{
    static const std::vector<const format::StepKind*> kKinds = [] {
        std::vector<const format::StepKind*> kinds = format::StepKinds();
        kinds.push_back(&kVerbatimKind);
        return kinds;
    }();
    return kKinds;
}

ManifestStep ReadVerbatimStep(const format::TomlTable& table, const std::string& folder)
{
    table.RefuseOtherKeysThan({"kind", "description-file", "payload"});
    ManifestStep step;
    step.kind = &kVerbatimKind;
    step.where = table.Where();
    step.verbatim = ReadVerbatimObject(table, folder);
    if (const toml::table* const payload = table.Table("payload")) {
        step.payload =
            ReadTree(format::TomlTable(*payload, table.File(), table.Name() + ".payload"));
    }
    return step;
}

} // namespace

const format::StepKind kVerbatimKind = {"verbatim", "", nullptr, "is taken as it is"};

ManifestFolder ReadTree(const format::TomlTable& table)
{
    table.RefuseOtherKeysThan({"source", "exclude", "executable", "modes", "names"});
    ManifestFolder folder;
    ReadTreeInto(table, folder);
    return folder;
}

ManifestObject ReadVerbatimObject(const format::TomlTable& table, const std::string& folder)
{
    constexpr const char* kKey = "description-file";
    ManifestObject object;
    object.path = PathFrom(folder, table.Text(kKey, "name the file with the JSON object"));
    std::string text;
    try {
        text = io::ReadWholeFile(object.path, format::kLargestDescription);
    } catch (const io::Error& error) {
        throw NamedBy(table.Where(kKey), error);
    }
    const auto refuse = [&object](const format::TextPosition& at, const std::string& what) {
        throw io::Error(io::ExitCode::kProblems,
                        object.path + ":" + std::to_string(at.line) + ":" +
                            std::to_string(at.column),
                        what, "write one JSON object, as it stands in a description");
    };
    try {
        std::size_t end = 0;
        object.node = std::make_shared<const format::JsonNode>(format::ParseJson(text, end));
        if (!object.node->IsObject() ||
            text.find_first_not_of(" \t\r\n", end) != std::string::npos) {
            refuse(object.node->position, "is more, or something else, than one object");
        }
    } catch (const format::JsonError& error) {
        refuse(error.position, error.what);
    }
    return object;
}

std::string PathFrom(const std::string& folder, const std::string& named)
{
    return !named.empty() && named[0] == '/' ? named : folder + "/" + named;
}

std::optional<ManifestStep> ReadStep(const format::TomlTable& table, const std::string& folder,
                                     Mistakes& mistakes)
{
    ManifestStep step;
    step.where = table.Where();
    if (!mistakes.Try([&] { step.kind = ReadKind(table, ManifestKinds()); })) {
        return {};
    }
    if (step.kind == &kVerbatimKind) {
        const bool isRead = mistakes.Try([&] { step = ReadVerbatimStep(table, folder); });
        return isRead ? std::optional(step) : std::nullopt;
    }
    mistakes.Try([&] { table.RefuseOtherKeysThan(KeysOf(*step.kind)); });
    mistakes.Try([&] { step.comment = table.OptionalText("comment").value_or(""); });
    mistakes.Try([&] { step.canSkip = table.Flag("skip", false); });
    mistakes.Try([&] { step.isRecorded = table.Flag("record", true); });
    mistakes.Try([&] { step.isFast = table.Flag("fast", false); });
    const bool isWhole = mistakes.Try([&] {
        if (step.kind == &format::kCopyFilesKind) {
            ReadItems(table, "files", step.files, mistakes, ReadFiles);
        } else if (step.kind == &format::kCopyFolderKind) {
            ReadItems(table, "folders", step.folders, mistakes,
                      [&](const format::TomlTable& item) { return ReadFolder(item, step.isFast); });
        } else if (step.kind == &format::kScriptKind) {
            ReadScripts(table, folder, step);
        } else {
            ReadItems(table, "settings", step.settings, mistakes,
                      [&](const format::TomlTable& item) { return ReadSetting(item, folder); });
        }
    });
    const bool isEmpty = step.files.empty() && step.folders.empty() && step.settings.empty();
    return !isWhole || (isEmpty && step.kind != &format::kScriptKind) ? std::nullopt
                                                                      : std::optional(step);
}

} // namespace kx::tool
