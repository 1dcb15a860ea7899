// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/NewContents.h"

#include "archive/Package.h"
#include "io/Error.h"
#include "io/Reach.h"
#include "io/Text.h"
#include "io/Utf8.h"
#include "manifest/Glob.h"
#include "unpack/TomlText.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include <sys/stat.h>

namespace kx::tool
{

namespace
{

bool EndsWith(const std::string& text, std::string_view end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Tells why a name does not come to a panel as it is; nothing where it does.
/// @param signs  what a name must not hold, besides what the panel's shell interprets
std::string WrongName(const std::string& name, const char* signs)
{
    if (!io::IsUtf8(name)) {
        return "its name is not UTF-8";
    }
    const std::size_t sign = name.find_first_of(signs);
    const std::string unsafe =
        sign == std::string::npos ? io::UnsafeCharacter(name) : name.substr(sign, 1);
    return unsafe.empty() ? "" : "its name contains " + unsafe;
}

/// Tells why something in the folder is not taken; nothing where it is.
/// @param info  of what a link leads to; nothing of one that leads nowhere
std::string WhyLeftOut(const std::string& name, const std::optional<struct stat>& info, bool isLink)
{
    if (name[0] == '.') {
        return "its name begins with a dot";
    }
    if (EndsWith(name, archive::kPackageExtension)) {
        return "it is a package";
    }
    if (!info.has_value()) {
        return "it is a link that leads nowhere";
    }
    if (isLink && S_ISDIR(info->st_mode)) {
        return "it is a link to a folder";
    }
    if (!S_ISREG(info->st_mode) && !S_ISDIR(info->st_mode)) {
        return "it is neither a file nor a folder";
    }
    return WrongName(name, S_ISDIR(info->st_mode) ? "*?" : "*?:");
}

std::optional<struct stat> Behind(const std::string& path)
{
    struct stat info {
    };
    if (stat(path.c_str(), &info) == 0) {
        return info;
    }
    if (!io::MeansMissing(errno)) {
        throw io::AccessError(path, "look at", errno);
    }
    return {};
}

bool IsStarted(const struct stat& info)
{
    return S_ISREG(info.st_mode) && (info.st_mode & S_IXUSR) != 0;
}

NewContents::Folder ReadFolder(const std::string& name, const std::string& path)
{
    NewContents::Folder folder;
    folder.name = name;
    // What build refuses in it, build tells.
    for (const FoundFile& file : ListTree(path, FilterWithout({}))) {
        folder.files += file.isFolder ? 0 : 1;
        const std::optional<struct stat> info = Behind(file.path);
        if (info.has_value() && IsStarted(*info) && WrongName(file.name, "*?").empty()) {
            folder.programs.push_back(file.name);
        }
    }
    return folder;
}

void AddFolder(const std::string& name, const std::string& path, NewContents& contents)
{
    NewContents::Folder folder = ReadFolder(name, path);
    if (folder.files == 0) {
        contents.remarks.push_back(name + " is left out: there is no file in it");
    } else {
        contents.folders.push_back(std::move(folder));
    }
}

void AddThing(const std::string& name, const std::string& path, bool isLink, NewContents& contents)
{
    const std::optional<struct stat> info = Behind(path);
    const std::string why = WhyLeftOut(name, info, isLink);
    if (!why.empty()) {
        contents.remarks.push_back(name + " is left out: " + why);
    } else if (S_ISDIR(info->st_mode)) {
        AddFolder(name, path, contents);
    } else {
        (IsStarted(*info) ? contents.programs : contents.files).push_back(name);
    }
}

std::string ArrayOf(const std::vector<std::string>& texts)
{
    std::string array = "[";
    for (const std::string& text : texts) {
        array += (&text == &texts.front() ? "" : ", ") + TomlText(text);
    }
    return array + "]";
}

std::string FilesStep(const std::vector<std::string>& names, const std::string& target,
                      const char* comment, const char* mode)
{
    if (names.empty()) {
        return {};
    }
    std::string step = "\n[[steps]]\nkind = \"copy-files\"\ncomment = \"" + std::string(comment) +
                       "\"\nfiles = [\n";
    for (const std::string& name : names) {
        step += "  { source = " + TomlText(name) + ", target = " + TomlText(target + "/") +
                ", mode = \"" + mode + "\" },\n";
    }
    return step + "]\n";
}

std::string FolderStep(const NewContents::Folder& folder, const std::string& target)
{
    std::string step = "\n[[steps]]\nkind = \"copy-folder\"\n\n[[steps.folders]]\nsource = " +
                       TomlText(folder.name) +
                       "\ntarget = " + TomlText(target + "/" + folder.name) + "\n";
    if (!folder.programs.empty()) {
        const bool areAll = folder.programs.size() == folder.files;
        step += "executable = " + (areAll ? std::string("[\"**\"]") : ArrayOf(folder.programs)) +
                " # all other files get mode 644\n";
    }
    return step;
}

} // namespace

NewContents ReadNewContents(const std::string& folder)
{
    NewContents contents;
    io::ForEachBelow(folder, [&contents](const std::string& name, const std::string& path,
                                         const struct stat& info) {
        AddThing(name, path, S_ISLNK(info.st_mode), contents);
        return false;
    });
    std::sort(contents.files.begin(), contents.files.end());
    std::sort(contents.programs.begin(), contents.programs.end());
    std::sort(contents.remarks.begin(), contents.remarks.end());
    std::sort(contents.folders.begin(), contents.folders.end(),
              [](const NewContents::Folder& one, const NewContents::Folder& other) {
                  return one.name < other.name;
              });
    return contents;
}

std::string StepsForContents(const NewContents& contents, const std::string& target)
{
    std::string steps = FilesStep(contents.programs, target, "the programs", "755") +
                        FilesStep(contents.files, target, "the files", "644");
    for (const NewContents::Folder& folder : contents.folders) {
        steps += FolderStep(folder, target);
    }
    return steps;
}

} // namespace kx::tool
