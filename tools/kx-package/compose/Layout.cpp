// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/Layout.h"

#include "archive/TarArchive.h"
#include "compose/PrivateKeys.h"
#include "format/FastSteps.h"
#include "format/Program.h"
#include "io/Reach.h"
#include "io/TemporaryFile.h"
#include "io/Text.h"
#include "io/Utf8.h"
#include "io/WholeFile.h"
#include "manifest/Glob.h"
#include "manifest/ManifestSteps.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include <sys/stat.h>

namespace kx::tool
{

namespace
{

/// Returns the kind of what a manifest names, as stat has it.
/// @param folder  the manifest's
/// @param thing   "file" or "folder", what it should be
/// @throws Error at the place in the manifest when there is nothing, or it may not be looked at
mode_t KindOfNamed(const std::string& folder, const std::string& named, const std::string& where,
                   const std::string& thing)
{
    struct stat info {
    };
    if (stat(PathFrom(folder, named).c_str(), &info) == 0) {
        return info.st_mode & S_IFMT;
    }
    const int number = errno;
    if (!io::MeansMissing(number)) {
        throw io::AccessError(where, "look at '" + named + "'", number);
    }
    throw io::Error(io::ExitCode::kProblems, where, "there is no " + thing + " '" + named + "'",
                    io::NearestPathRemedy(folder, named));
}

/// Refuses what a manifest names as a folder and is none.
void RequireFolder(const std::string& folder, const std::string& named, const std::string& where)
{
    if (KindOfNamed(folder, named, where, "folder") != S_IFDIR) {
        throw io::Error(io::ExitCode::kProblems, where, "'" + named + "' is not a folder",
                        "copy a file in a step of kind copy-files");
    }
}

bool IsSameFile(const std::string& one, const std::string& other)
{
    struct stat first {
    };
    struct stat second {
    };
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

/// Refuses names that would not arrive on the panel as they are.
/// @param isItem  the name stands in the description, where ':' and '\' end a folder part
void RefuseBadName(const FoundFile& file, bool isItem, const std::string& place)
{
    const std::string where = place + ": " + file.path;
    if (!io::IsUtf8(file.name)) {
        throw io::Error(io::ExitCode::kProblems, where, "the name is not UTF-8", "rename it");
    }
    if (const std::string sign = io::UnsafeCharacter(file.name); !sign.empty()) {
        throw io::Error(io::ExitCode::kProblems, where,
                        "the name contains " + sign + ", which the panel's shell interprets",
                        "rename it");
    }
    if (isItem && file.name.find(':') != std::string::npos) {
        throw io::Error(io::ExitCode::kProblems, where,
                        "the name contains ':', and the panel drops what is before it",
                        "rename it, or copy its folder in a step of kind copy-folder");
    }
}

bool IsProgram(const std::string& mode)
{
    return std::any_of(mode.end() - 3, mode.end(), [](char digit) { return (digit - '0') & 1; });
}

/// Tells whether a file is something to run: a script, or a program and no library.
bool LooksExecutable(const std::string& path)
{
    constexpr std::size_t kMarkSize = 4;
    const std::string head = io::ReadFileHead(path, kMarkSize, "read");
    if (head != "\x7f"
                "ELF") {
        return head.substr(0, 2) == "#!";
    }
    const std::optional<format::Program> program =
        format::ReadProgram(io::ReadFileHead(path, format::kLargestProgram, "read"));
    return !program.has_value() || program->kind == format::Program::Kind::kStarted;
}

/// Returns the last part of a text for the description, as the panel takes it for a name.
std::string NameOfOrigin(const std::string& origin)
{
    return origin.substr(origin.find_last_of("/\\:") + 1);
}

std::string NumberPath(std::size_t step, std::size_t item)
{
    return std::to_string(step) + "/" + std::to_string(item) + "/";
}

/// Returns the two steps that a fast folder becomes. What is in their scripts is found out later.
/// @param step  the manifest's
std::array<ManifestStep, 2> FastSteps(const ManifestStep& step, const ManifestFolder& folder)
{
    ManifestStep copy;
    copy.kind = &format::kCopyFilesKind;
    copy.comment = step.comment;
    // Its script finds out that there is no whole archive, and takes away what there is.
    copy.canSkip = true;
    copy.isRecorded = false; // the archive does not stay
    copy.isFast = true;
    copy.folders = {folder};
    copy.where = step.where;
    ManifestStep script;
    script.kind = &format::kScriptKind;
    script.comment = step.comment;
    script.canSkip = step.canSkip;
    script.isRecorded = step.isRecorded;
    script.where = script.installWhere = script.uninstallWhere = folder.where;
    script.install = script.uninstall = format::kNoUninstall;
    return {copy, script};
}

/// Returns the steps that the description has for those of a manifest.
std::vector<ManifestStep> StepsOf(const Manifest& manifest)
{
    std::vector<ManifestStep> steps;
    for (const ManifestStep& step : manifest.steps) {
        if (!step.isFast) {
            steps.push_back(step);
            continue;
        }
        for (const ManifestFolder& folder : step.folders) {
            for (ManifestStep& made : FastSteps(step, folder)) {
                steps.push_back(std::move(made));
            }
        }
    }
    return steps;
}

class Builder
{
public:
    Builder(const Manifest& manifest, const std::string& output, Mistakes& mistakes)
        : m_manifest(manifest), m_output(output), m_mistakes(mistakes)
    {
        m_layout.steps = StepsOf(manifest);
        m_layout.origins.resize(m_layout.steps.size());
    }

    Layout Build()
    {
        const std::vector<ManifestStep>& steps = m_layout.steps;
        std::vector<std::vector<CopyItem>> items(steps.size());
        for (std::size_t i = 0; i < steps.size(); ++i) {
            for (const ManifestFiles& files : steps[i].files) {
                Add([&] { AddFiles(files, i, items[i]); }, items[i], m_layout.origins[i]);
            }
            for (const ManifestFolder& folder : steps[i].folders) {
                Add(
                    [&] {
                        steps[i].isFast ? AddFastFolder(folder, i, items[i])
                                        : AddFolder(folder, i, items[i]);
                    },
                    items[i], m_layout.origins[i]);
            }
            if (steps[i].payload.has_value()) {
                m_mistakes.Try([&] { AddOtherTree(*steps[i].payload, std::to_string(i) + "/"); });
            }
        }
        if (m_manifest.extra.has_value()) {
            m_mistakes.Try([&] { AddOtherTree(*m_manifest.extra, ""); });
        }
        m_mistakes.Try([&] { RefuseSameNames(); });
        m_layout.model = MakeModel(m_manifest, steps, items);
        return std::move(m_layout);
    }

private:
    /// Adds an item of the manifest whole or not at all.
    template <class Work>
    void Add(Work work, std::vector<CopyItem>& items, std::vector<ItemOrigin>& origins)
    {
        const std::size_t count = items.size();
        const std::size_t payload = m_layout.payload.size();
        if (!m_mistakes.Try(work)) {
            items.resize(count);
            origins.resize(count);
            m_layout.payload.resize(payload);
        }
    }

    /// Finds what a pattern or path stands for; names are below the fixed part of it.
    [[nodiscard]] std::vector<FoundFile> Find(const ManifestFiles& files) const
    {
        const std::string fixed = FixedFolder(files.source);
        const std::string folder =
            fixed.empty() ? m_manifest.folder : PathFrom(m_manifest.folder, fixed);
        const std::string rest =
            files.source.substr(fixed.empty() ? 0 : fixed.size() + (fixed == "/" ? 0 : 1));
        if (!HasWildcard(files.source)) {
            const std::string path = PathFrom(m_manifest.folder, files.source);
            if (KindOfNamed(m_manifest.folder, files.source, files.where, "file") != S_IFREG) {
                throw io::Error(io::ExitCode::kProblems, files.where,
                                "'" + files.source + "' is not a file",
                                "copy a folder in a step of kind copy-folder");
            }
            return {{rest, path, false}};
        }
        RequireFolder(m_manifest.folder, fixed.empty() ? "." : fixed, files.where);
        std::vector<FoundFile> found = ListTree(folder, FilterOf(rest));
        const auto isLeftOut = [this](const FoundFile& file) {
            return file.isFolder || IsSameFile(file.path, m_output);
        };
        found.erase(std::remove_if(found.begin(), found.end(), isLeftOut), found.end());
        return found;
    }

    void AddFiles(const ManifestFiles& files, std::size_t step, std::vector<CopyItem>& items)
    {
        const bool isIntoFolder = files.target.back() == '/';
        if (HasWildcard(files.source) && !isIntoFolder) {
            throw io::Error(io::ExitCode::kProblems, files.where,
                            "the target of a pattern must be a folder",
                            "write \"" + files.target + "/\"");
        }
        const std::vector<FoundFile> found = Find(files);
        if (found.empty()) {
            throw io::Error(io::ExitCode::kProblems, files.where,
                            "no file matches '" + files.source + "'",
                            "folders and names with a leading dot do not count; '**' goes deeper");
        }
        const std::string fixed = FixedFolder(files.source);
        for (const FoundFile& file : found) {
            RefusePrivateKey(file.path, file.name, files.where);
            const std::string below = fixed.empty() ? "" : fixed == "/" ? fixed : fixed + "/";
            std::string source = below + file.name;
            std::string base = file.name.substr(file.name.rfind('/') + 1);
            if (files.origin.empty()) {
                RefuseBadName(file, true, files.where);
            } else {
                source = files.origin;
                base = NameOfOrigin(source);
            }
            m_layout.payload.push_back({NumberPath(step, items.size()) + base, file.path,
                                        std::nullopt, false, IsProgram(files.mode)});
            items.push_back({std::move(source),
                             isIntoFolder ? files.target + file.name : files.target, files.mode});
            m_layout.origins[step].push_back({files.where, files.targetWhere, files.modeWhere});
        }
    }

    void AddFolder(const ManifestFolder& item, std::size_t step, std::vector<CopyItem>& items)
    {
        AddOtherTree(item, NumberPath(step, items.size()));
        items.push_back({item.origin.empty() ? item.source : item.origin, item.target, ""});
        m_layout.origins[step].push_back({item.where, item.targetWhere, item.where});
    }

    /// Adds the archive of a folder to one step, and to the next one the scripts that unpack it and
    /// remove the files again.
    void AddFastFolder(const ManifestFolder& item, std::size_t step, std::vector<CopyItem>& items)
    {
        const std::string number = NumberPath(step, items.size());
        const std::size_t count = m_layout.payload.size();
        AddOtherTree(item, number);
        std::vector<archive::ArchiveItem> tree(
            m_layout.payload.begin() + static_cast<std::ptrdiff_t>(count), m_layout.payload.end());
        m_layout.payload.resize(count);
        for (archive::ArchiveItem& file : tree) {
            m_layout.sourcesInArchives[file.name] = file.source;
            file.name.erase(0, number.size());
        }
        ManifestStep& script = m_layout.steps[step + 1];
        const format::FastFolder folder = PackTree(item, tree, script.isRecorded);
        m_layout.payload.push_back(
            {number + format::kFastArchiveName,
             "/proc/self/fd/" + std::to_string(m_layout.archives.back()->Number()), std::nullopt,
             false, false});
        const std::string origin = item.origin.empty() ? item.source : item.origin;
        items.push_back(
            {origin + "/" + format::kFastArchiveName, folder.archive, format::kFastMode});
        m_layout.origins[step].push_back({item.where, item.archiveWhere, item.where});
        script.install = format::FastInstallScript(folder);
        script.uninstall = format::FastUninstallScript(folder);
    }

    /// Packs files into an archive, the last one of the layout's then.
    format::FastFolder PackTree(const ManifestFolder& item,
                                const std::vector<archive::ArchiveItem>& tree, bool isRecorded)
    {
        format::FastFolder folder;
        folder.target = item.target;
        folder.archive = item.archive;
        folder.isRecorded = isRecorded;
        std::vector<archive::TarItem> files;
        std::set<std::string> names;
        for (const archive::ArchiveItem& file : tree) {
            RefuseFastName(item, file.name, names);
            if (!file.isFolder) {
                files.push_back(archive::TarItemOf(
                    file.name, file.source, file.mode.value_or(file.isExecutable ? 0755 : 0644)));
                folder.modes |= files.back().mode;
                folder.kib += format::KibOf(files.back().size);
            }
        }
        for (const std::string& name : names) {
            if (!name.empty() && name.back() == '/') {
                folder.emptyFolders.push_back(name.substr(0, name.size() - 1));
            } else if (!name.empty() && isRecorded) {
                folder.files.push_back(name);
            }
        }
        folder.fileCount = files.size();
        m_layout.archives.push_back(
            std::make_shared<const io::Descriptor>(io::MakeTemporaryFile()));
        folder.size =
            archive::WriteTar(*m_layout.archives.back(), "the archive of " + item.source, files);
        return folder;
    }

    /// No name may come twice, be the archive's, or mean something else to a shell.
    static void RefuseFastName(const ManifestFolder& item, const std::string& name,
                               std::set<std::string>& names)
    {
        const std::string path = (item.target == "/" ? "" : item.target) + "/" + name;
        if (const std::string sign = io::UnsafeCharacter(name); !sign.empty()) {
            throw io::Error(io::ExitCode::kProblems, item.where,
                            "'" + name + "' contains " + sign +
                                ", which the panel's shell interprets",
                            "rename it");
        }
        if (path == item.archive ||
            path.compare(0, item.archive.size() + 1, item.archive + "/") == 0) {
            throw io::Error(io::ExitCode::kProblems, item.archiveWhere,
                            "'" + name + "' in '" + item.source + "' would be where the archive is",
                            "name another place with 'archive'");
        }
        if (!names.insert(name).second) {
            throw io::Error(io::ExitCode::kProblems, item.where,
                            "'" + name + "' would be in the archive twice", "look at 'names'");
        }
    }

    /// Adds what is in a folder.
    /// @param number  in the package, what comes before the names in the folder
    void AddOtherTree(const ManifestFolder& item, const std::string& number)
    {
        const std::string folder = PathFrom(m_manifest.folder, item.source);
        RequireFolder(m_manifest.folder, item.source, item.where);
        const std::vector<FoundFile> found = ListTree(folder, FilterWithout(item.exclude));
        RefuseIdlePatterns(item, found);
        RefuseIdlePaths(item, "modes", item.modes, found);
        RefuseIdlePaths(item, "names", item.names, found);
        AddTree(item, found, number);
        TellIdleExcludes(item, folder);
    }

    /// What a folder says of a file that is not there was written for another one.
    template <class Values>
    static void RefuseIdlePaths(const ManifestFolder& item, const char* key,
                                const std::map<std::string, Values>& told,
                                const std::vector<FoundFile>& found)
    {
        for (const auto& each : told) {
            const std::string& path = each.first;
            const auto place =
                std::lower_bound(found.begin(), found.end(), path,
                                 [](const FoundFile& file, const std::string& wanted) {
                                     return file.name < wanted;
                                 });
            if (place == found.end() || place->name != path) {
                throw io::Error(io::ExitCode::kProblems, item.where,
                                "there is no '" + path + "' in '" + item.source + "', which '" +
                                    key + "' names",
                                "paths begin below the folder");
            }
        }
    }

    /// No two things of a package may have one name.
    void RefuseSameNames() const
    {
        std::set<std::string> names = {archive::kDescriptionName, archive::kUpdaterName};
        for (const archive::ArchiveItem& item : m_layout.payload) {
            if (!names.insert(item.name).second) {
                throw io::Error(io::ExitCode::kProblems, m_manifest.path,
                                "'" + item.name + "' would be in the package twice",
                                "look at 'extra', 'payload' and 'names'");
            }
        }
    }

    void AddTree(const ManifestFolder& item, const std::vector<FoundFile>& found,
                 const std::string& number)
    {
        bool isEmpty = true;
        for (std::size_t i = 0; i < found.size(); ++i) {
            const FoundFile& file = found[i];
            if (IsSameFile(file.path, m_output)) {
                continue;
            }
            const auto renamed = item.names.find(file.name);
            if (renamed == item.names.end()) {
                RefuseBadName(file, false, item.where);
            }
            const std::string& name = renamed == item.names.end() ? file.name : renamed->second;
            isEmpty = false;
            if (file.isFolder) {
                AddFolderIfEmpty(found, i, number + name + "/");
                continue;
            }
            RefusePrivateKey(file.path, file.name, item.where);
            const auto mode = item.modes.find(file.name);
            const bool isProgram = FitsAny(item.executable, file.name);
            if (!isProgram && mode == item.modes.end() && LooksExecutable(file.path)) {
                m_layout.remarks.push_back(
                    {item.where, file.name + " looks like a program, but no pattern of "
                                             "'executable' matches it; it will not be executable"});
            }
            m_layout.payload.push_back({number + name, file.path, std::nullopt, false, isProgram});
            if (mode != item.modes.end()) {
                m_layout.payload.back().mode = mode->second;
            }
        }
        if (isEmpty && !number.empty()) {
            m_layout.payload.push_back({number, "", std::nullopt, true, false});
        }
    }

    /// Folders with something in them show in the names of that.
    /// @param name  of the folder in the package
    void AddFolderIfEmpty(const std::vector<FoundFile>& found, std::size_t index,
                          const std::string& name)
    {
        const std::string prefix = found[index].name + "/";
        // Names between "a" and "a/…" in the order of bytes, like "a-b", are few.
        const auto inside = std::lower_bound(
            found.begin(), found.end(), prefix,
            [](const FoundFile& file, const std::string& wanted) { return file.name < wanted; });
        const bool isEmpty =
            inside == found.end() || inside->name.compare(0, prefix.size(), prefix) != 0;
        if (isEmpty) {
            m_layout.payload.push_back({name, "", std::nullopt, true, false});
        }
    }

    static bool FitsAny(const std::vector<std::string>& patterns, const std::string& name)
    {
        return std::any_of(patterns.begin(), patterns.end(), [&name](const std::string& pattern) {
            return MatchesPath(pattern, name);
        });
    }

    /// A pattern for programs that fits nothing is a mistake in writing it.
    static void RefuseIdlePatterns(const ManifestFolder& item, const std::vector<FoundFile>& found)
    {
        for (const std::string& pattern : item.executable) {
            const bool fits =
                std::any_of(found.begin(), found.end(), [&pattern](const FoundFile& file) {
                    return !file.isFolder && MatchesPath(pattern, file.name);
                });
            if (!fits) {
                throw io::Error(io::ExitCode::kProblems, item.where,
                                "no file in '" + item.source + "' matches '" + pattern +
                                    "' of 'executable'",
                                "patterns begin below the folder; '**' goes deeper");
            }
        }
    }

    /// So is one for what stays out; but it may be there for files that come and go.
    void TellIdleExcludes(const ManifestFolder& item, const std::string& folder)
    {
        for (const std::string& pattern : IdlePatterns(folder, item.exclude)) {
            m_layout.remarks.push_back(
                {item.excludeWhere,
                 "nothing in '" + item.source + "' matches '" + pattern + "' of 'exclude'"});
        }
    }

    const Manifest& m_manifest;
    const std::string& m_output;
    Mistakes& m_mistakes;
    Layout m_layout;
};

} // namespace

Layout MakeLayout(const Manifest& manifest, const std::string& output, Mistakes& mistakes)
{
    return Builder(manifest, output, mistakes).Build();
}

Layout MakeLayout(const Manifest& manifest, const std::string& output)
{
    Mistakes mistakes;
    Layout layout = MakeLayout(manifest, output, mistakes);
    mistakes.ThrowAny();
    return layout;
}

} // namespace kx::tool
