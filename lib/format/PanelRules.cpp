// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/PanelRules.h"

#include "format/TomlTable.h"
#include "io/Path.h"

#include <algorithm>

namespace kx::format
{

namespace
{

/// Returns the folder of a file.
std::string FolderOf(const std::string& path)
{
    return path.substr(0, path.rfind('/'));
}

bool IsSafeInCommands(const std::string& path)
{
    return path.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                                  "._/-") == std::string::npos;
}

/// Reads a path that comes into commands.
/// @param path  has what holds without the key
void ReadSafePath(const TomlTable& table, const char* key, std::string& path)
{
    const std::string remedy = "write it like \"" + path + "\"";
    const std::string text = table.OptionalText(key).value_or(path);
    if (text == "/" || text != io::PlainPath(text)) {
        throw table.Wrong(key, "is '" + text + "', which is not a plain full path", remedy);
    }
    if (!IsSafeInCommands(text)) {
        throw table.Wrong(
            key, "is '" + text + "', which has characters that are not safe in a shell's command",
            "use letters, digits, '.', '_' and '-'");
    }
    if (text.size() > kLongestPanelPath) {
        throw table.Wrong(key, "has " + std::to_string(text.size()) + " characters",
                          "use no more than " + std::to_string(kLongestPanelPath));
    }
    const std::vector<std::string>& unkept = UnkeptFolders();
    const auto above =
        std::find_if(unkept.begin(), unkept.end(),
                     [&text](const std::string& folder) { return io::IsIn(text, folder); });
    if (above != unkept.end()) {
        throw table.Wrong(key, "is '" + text + "', and what is in " + *above + " does not stay",
                          "use a folder of the panel's own storage");
    }
    path = text;
}

/// Refuses a folder of what is remembered that is one with others of the panel's.
void RefuseSharedState(const TomlTable& table, const PanelRules& rules)
{
    for (const std::string& other :
         {rules.updater, std::string(panel::kRegistry), FolderOf(panel::kPanelDescription)}) {
        if (io::IsIn(rules.state, other) || io::IsIn(other, rules.state)) {
            throw table.Wrong(table.Has("state") ? "state" : "updater",
                              "puts " + other + " and " + rules.state + " into each other",
                              "give the state a folder of its own");
        }
    }
}

/// Returns whether a key says the second of two words; the first one holds without the key.
bool IsSecondWord(const TomlTable& table, const char* key, const char* first, const char* second)
{
    return table.Word(key, {first, second}) == second;
}

void ReadLimits(const TomlTable& root, PanelLimits& limits, io::Mistakes& mistakes)
{
    const toml::table* named = nullptr;
    mistakes.Try([&] { named = root.Table("limits"); });
    if (named == nullptr) {
        return;
    }
    const TomlTable table(*named, root.File(), "limits");
    std::vector<std::string> keys;
    for (const PanelLimit& limit : PanelLimitKeys()) {
        keys.emplace_back(limit.key);
        mistakes.Try([&] {
            const auto least = static_cast<std::int64_t>(limit.least);
            const auto most = static_cast<std::int64_t>(limit.most);
            if (const auto number = table.OptionalNumber(limit.key, least, most)) {
                limits.*limit.value = static_cast<std::uint64_t>(*number);
            }
        });
    }
    mistakes.Try([&] { table.RefuseOtherKeysThan(keys); });
}

} // namespace

const std::vector<PanelLimit>& PanelLimitKeys()
{
    constexpr std::uint64_t kKiB = std::uint64_t{1} << 10;
    constexpr std::uint64_t kMiB = kKiB << 10;
    constexpr std::uint64_t kTiB = kMiB << 20;
    static const std::vector<PanelLimit> kLimits = {
        {"package-bytes", &PanelLimits::packageBytes, 1, kTiB, "The largest package's file."},
        {"unpacked-bytes", &PanelLimits::unpackedBytes, 1, kTiB,
         "All that a package holds, unpacked."},
        {"entries", &PanelLimits::entries, 1, 1000000, "Files and folders in a package."},
        {"description-bytes", &PanelLimits::descriptionBytes, kKiB, 64 * kMiB,
         "A package's description."},
        {"reader-memory-bytes", &PanelLimits::readerMemory, 16 * kMiB, 4096 * kMiB,
         "Memory of the process that reads packages."},
        {"reader-seconds", &PanelLimits::readerSeconds, 1, 86400,
         "Seconds that it may take for one package."},
        {"history-entries", &PanelLimits::historyEntries, 1, 10000,
         "Installations that are remembered."},
        {"history-bytes", &PanelLimits::historyBytes, 16 * kKiB, 1024 * kMiB,
         "What all of these may take together."}};
    return kLimits;
}

const std::vector<std::string>& UnkeptFolders()
{
    static const std::vector<std::string> kFolders = {
        "/dev", "/media", "/proc",    panel::kDriveFolder, "/run",
        "/sys", "/tmp",   "/var/run", "/var/tmp"};
    return kFolders;
}

void ReadPanelRules(const TomlTable& table, PanelRules& rules, io::Mistakes& mistakes)
{
    mistakes.Try([&] {
        rules.signatures = IsSecondWord(table, "signatures", "required", "optional")
                               ? SignatureRule::kOptional
                               : SignatureRule::kRequired;
    });
    mistakes.Try([&] {
        rules.downgrade = IsSecondWord(table, "downgrade", "refuse", "allow")
                              ? DowngradeRule::kAllow
                              : DowngradeRule::kRefuse;
    });
    const bool isStateSafe = mistakes.Try([&] { ReadSafePath(table, "state", rules.state); });
    const bool isUpdaterSafe = mistakes.Try([&] { ReadSafePath(table, "updater", rules.updater); });
    if (isStateSafe && isUpdaterSafe) {
        mistakes.Try([&] { RefuseSharedState(table, rules); });
    }
    ReadLimits(table, rules.limits, mistakes);
}

} // namespace kx::format
