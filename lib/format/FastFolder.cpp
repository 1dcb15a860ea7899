// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/FastFolder.h"

#include "io/Text.h"
#include "io/Utf8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <functional>
#include <set>
#include <string_view>

namespace kx::format
{

namespace
{

constexpr const char* kInstallHead = R"(#!/bin/sh
# Made by kx-package of a folder with fast = true, and known again by its text: do not change it.
# Unpacks the archive that the step before has copied, and removes it.
)";

constexpr const char* kInstallWork = R"(
fail() {
    echo "kx-fast: $1"
    exit 1
}
trap 'rm -f "$archive"' EXIT
trap 'exit 1' HUP INT TERM

[ -f "$archive" ] || fail "$archive is not there: the step before could not copy it"
has=$(wc -c <"$archive")
[ "$has" -eq "$size" ] || fail "$archive has $has of $size bytes: is there room for it?"
command -v tar >/dev/null || fail "this panel has no tar to unpack $archive"
mkdir -p "$target" || fail "cannot make the folder $target"
free=$(df -Pk "$target" | { read -r _; read -r _ _ _ free _; echo "$free"; })
case $free in
    '' | *[!0-9]*) free=$kib ;; # not known: tar will find out
esac
if [ "$free" -lt "$kib" ]; then
    # What is there already may be replaced.
    there=$(du -sk "$target")
    there=${there%%[!0-9]*}
    [ $((free + ${there:-0})) -ge "$kib" ] ||
        fail "no room in $target: $files files need $kib KiB beside their archive, $free are free"
fi
# Modes are less the umask, as those of copied files. Few systems need the option.
plain=
[ $(($(umask) & modes)) -eq 0 ] || plain=--no-same-permissions
tar -x -m -o ${plain:+"$plain"} -f "$archive" -C "$target" ||
    fail "tar could not unpack all of the $files files of $archive to $target"
)";

constexpr const char* kInstallFolders = R"(while IFS= read -r folder; do
    mkdir -p "$target/$folder" || fail "cannot make the folder $target/$folder"
done <<'kx-end'
)";

constexpr const char* kInstallEnd = R"(rm -f "$archive" || fail "cannot remove $archive"
)";

constexpr const char* kUninstallHead = R"(#!/bin/sh
# Made by kx-package of a folder with fast = true, and known again by its text: do not change it.
# Removes the files that the folder brought, and the folders in it that are empty then.
)";

constexpr const char* kUninstallFiles = R"(
cd "$target" 2>/dev/null || exit 0
failed=0
set --
while IFS= read -r name; do
    set -- "$@" "$name"
    [ $# -lt 64 ] || { rm -f "$@" || failed=1; set --; }
done <<'kx-end'
)";

constexpr const char* kUninstallFolders = R"([ $# -eq 0 ] || rm -f "$@" || failed=1
while IFS= read -r name; do
    rmdir "$name" 2>/dev/null
done <<'kx-end'
)";

constexpr const char* kUninstallEnd = "exit $failed\n";

constexpr std::string_view kListEnd = "kx-end\n";

std::string Octal(unsigned modes)
{
    std::array<char, 16> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "0%o", modes));
    return text.data();
}

/// A here-document's lines. With "./" before them no name is an option, or the mark at the end.
template <class Names>
std::string ListOf(const Names& names)
{
    std::string list;
    for (const std::string& name : names) {
        list += "./" + name + "\n";
    }
    return list.append(kListEnd);
}

/// Takes what the scripts above consist of off a text's beginning.
class ScriptReader
{
public:
    explicit ScriptReader(std::string_view text) : m_rest(text) {}

    bool Take(std::string_view expected)
    {
        const bool isThere = m_rest.substr(0, expected.size()) == expected;
        m_rest.remove_prefix(isThere ? expected.size() : 0);
        return isThere;
    }

    /// Takes 'name="text"' and its line end.
    std::optional<std::string> TakeText(const std::string& name)
    {
        const std::optional<std::string_view> value = TakeLine(name + "=\"");
        if (!value.has_value() || value->empty() || value->back() != '"') {
            return std::nullopt;
        }
        return std::string(value->substr(0, value->size() - 1));
    }

    /// Takes 'name=number' and its line end.
    std::optional<std::uint64_t> TakeNumber(const std::string& name, int base = 10)
    {
        const std::optional<std::string_view> value = TakeLine(name + "=");
        std::uint64_t number = 0;
        if (!value.has_value()) {
            return std::nullopt;
        }
        const char* const end = value->data() + value->size();
        const auto [last, error] = std::from_chars(value->data(), end, number, base);
        return error == std::errc() && last == end ? std::optional(number) : std::nullopt;
    }

    /// Takes the lines of a list, and its end.
    std::optional<std::vector<std::string>> TakeList()
    {
        std::vector<std::string> names;
        while (!Take(kListEnd)) {
            const std::optional<std::string_view> name = TakeLine("./");
            if (!name.has_value()) {
                return std::nullopt;
            }
            names.emplace_back(*name);
        }
        return names;
    }

private:
    /// Takes a line that begins like that, and returns what follows in it.
    std::optional<std::string_view> TakeLine(std::string_view begin)
    {
        const std::size_t end = m_rest.find('\n');
        if (end == std::string_view::npos || !Take(begin)) {
            return std::nullopt;
        }
        const std::size_t size = end - begin.size();
        const std::string_view value = m_rest.substr(0, size);
        m_rest.remove_prefix(size + 1);
        return value;
    }

    std::string_view m_rest;
};

/// Reads what the install script says. That it says nothing else is found out by writing it again.
std::optional<FastFolder> ReadInstall(const std::string& text)
{
    ScriptReader script(text);
    FastFolder folder;
    if (!script.Take(kInstallHead)) {
        return std::nullopt;
    }
    const auto target = script.TakeText("target");
    const auto archive = script.TakeText("archive");
    const auto size = script.TakeNumber("size");
    const auto files = script.TakeNumber("files");
    const auto kib = script.TakeNumber("kib");
    constexpr int kOctal = 8;
    const auto modes = script.TakeNumber("modes", kOctal);
    const bool isWhole = target.has_value() && archive.has_value() && size.has_value() &&
                         files.has_value() && kib.has_value() && modes.has_value() &&
                         script.Take(kInstallWork);
    if (!isWhole) {
        return std::nullopt;
    }
    folder.target = *target;
    folder.archive = *archive;
    folder.size = *size;
    folder.fileCount = *files;
    folder.kib = *kib;
    folder.modes = static_cast<unsigned>(*modes);
    if (script.Take(kInstallFolders)) {
        folder.emptyFolders = script.TakeList().value_or(std::vector<std::string>());
    }
    return folder;
}

/// Reads the names of the files off the uninstall script.
void ReadUninstall(const std::string& text, FastFolder& folder)
{
    folder.isRecorded = text != kNoUninstall;
    ScriptReader script(text);
    if (script.Take(kUninstallHead) && script.TakeText("target").has_value() &&
        script.Take(kUninstallFiles)) {
        folder.files = script.TakeList().value_or(std::vector<std::string>());
    }
}

/// Tells whether a path of the panel is one that build gives.
bool IsPanelPath(const std::string& path)
{
    return path.substr(0, 1) == "/" && io::UnsafeCharacter(path).empty() && io::IsUtf8(path);
}

/// Tells whether names are paths below a folder, each of them once and sorted, as build gives them.
bool AreNames(const std::vector<std::string>& names)
{
    const auto isBad = [](const std::string& name) {
        const std::string framed = "/" + name + "/";
        return framed.find("//") != std::string::npos || framed.find("/./") != std::string::npos ||
               framed.find("/../") != std::string::npos || !io::UnsafeCharacter(name).empty() ||
               !io::IsUtf8(name);
    };
    return std::none_of(names.begin(), names.end(), isBad) &&
           std::adjacent_find(names.begin(), names.end(), std::greater_equal<>()) == names.end();
}

std::string TextLine(const char* name, const std::string& text)
{
    return std::string(name) + "=\"" + text + "\"\n";
}

std::string NumberLine(const char* name, std::uint64_t number)
{
    return std::string(name) + "=" + std::to_string(number) + "\n";
}

} // namespace

std::uint64_t KibOf(std::uint64_t size)
{
    constexpr std::uint64_t kKib = 1024;
    return size / kKib + (size % kKib == 0 ? 0 : 1);
}

std::string DefaultFastArchive(const std::string& target)
{
    return target + (target == "/" ? "kx-fast.tar" : ".kx-fast.tar");
}

std::string FastInstallScript(const FastFolder& folder)
{
    std::string script = kInstallHead + TextLine("target", folder.target) +
                         TextLine("archive", folder.archive) + NumberLine("size", folder.size) +
                         NumberLine("files", folder.fileCount) + NumberLine("kib", folder.kib) +
                         "modes=" + Octal(folder.modes) + "\n" + kInstallWork;
    if (!folder.emptyFolders.empty()) {
        script += kInstallFolders + ListOf(folder.emptyFolders);
    }
    return script + kInstallEnd;
}

std::string FastUninstallScript(const FastFolder& folder)
{
    if (!folder.isRecorded) {
        return kNoUninstall;
    }
    std::vector<std::string> folders = FoldersOf(folder);
    std::reverse(folders.begin(), folders.end()); // what is in a folder comes before it
    return kUninstallHead + TextLine("target", folder.target) + kUninstallFiles +
           ListOf(folder.files) + kUninstallFolders + ListOf(folders) + kUninstallEnd;
}

std::optional<FastFolder> ReadFastScripts(const std::string& install, const std::string& uninstall)
{
    std::optional<FastFolder> folder = ReadInstall(install);
    if (!folder.has_value()) {
        return std::nullopt;
    }
    ReadUninstall(uninstall, *folder);
    const bool isBuilt = IsPanelPath(folder->target) && IsPanelPath(folder->archive) &&
                         (folder->target == "/" || folder->target.back() != '/') &&
                         folder->archive.back() != '/' && folder->archive != folder->target &&
                         AreNames(folder->emptyFolders) && AreNames(folder->files);
    const bool isSame = isBuilt && FastInstallScript(*folder) == install &&
                        FastUninstallScript(*folder) == uninstall &&
                        (!folder->isRecorded || folder->fileCount == folder->files.size());
    return isSame ? folder : std::nullopt;
}

std::vector<std::string> FoldersOf(const FastFolder& folder)
{
    std::set<std::string> folders;
    const auto add = [&folders](const std::string& name) {
        // What holds a folder that is known is known itself.
        for (std::size_t end = name.rfind('/'); end != std::string::npos && end != 0;
             end = name.rfind('/', end - 1)) {
            if (!folders.insert(name.substr(0, end)).second) {
                return;
            }
        }
    };
    for (const std::string& file : folder.files) {
        add(file);
    }
    for (const std::string& name : folder.emptyFolders) {
        add(name + "/");
    }
    return {folders.begin(), folders.end()};
}

} // namespace kx::format
