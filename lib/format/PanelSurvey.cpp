// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/PanelSurvey.h"

#include "format/PanelFile.h"
#include "format/Program.h"
#include "io/Transfer.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace kx::format
{

namespace
{

using Kind = io::RootedFolder::Kind;

/// Folders of programs and of libraries that every panel may have.
constexpr const char* kProgramFolders[] = {"/bin/", "/usr/bin/", "/usr/local/bin/"};
constexpr const char* kLibraryFolders[] = {"/lib", "/usr/lib", "/usr/local/lib"};
constexpr const char* kOtherLibraryFolders[] = {"/lib32", "/lib64", "/usr/lib32", "/usr/lib64"};

/// Interpreters that scripts usually name.
constexpr const char* kInterpreters[] = {"sh",   "ash",   "bash", "busybox", "dash",    "env",
                                         "lua",  "node",  "perl", "python",  "python2", "python3",
                                         "ruby", "tclsh", "awk",  "sed"};

std::vector<std::string> NamesIn(const io::RootedFolder& root, const std::string& folder)
{
    return root.Look(folder).kind == Kind::kFolder ? root.Names(folder)
                                                   : std::vector<std::string>();
}

std::string FileText(const io::RootedFolder& root, const std::string& path, std::uint64_t limit)
{
    if (root.Look(path).kind != Kind::kFile) {
        return {};
    }
    return io::ReadUpTo(root.Open(path, Kind::kFile).Number(), limit, root.Shown(path));
}

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

/// The folders in which the panel's loader looks for libraries.
std::vector<std::string> LibraryFolders(const io::RootedFolder& root)
{
    constexpr std::uint64_t kMost = std::uint64_t{1} << 16;
    std::vector<std::string> folders(std::begin(kOtherLibraryFolders),
                                     std::end(kOtherLibraryFolders));
    for (const char* const folder : kLibraryFolders) {
        folders.emplace_back(folder);
        for (const std::string& name : NamesIn(root, folder)) {
            if (name.find("-linux-") != std::string::npos) {
                folders.push_back(std::string(folder) + "/" + name);
            }
        }
    }
    std::vector<std::string> lists = {"/etc/ld.so.conf"};
    for (const std::string& name : NamesIn(root, "/etc/ld.so.conf.d")) {
        lists.push_back("/etc/ld.so.conf.d/" + name);
    }
    for (const std::string& list : lists) {
        for (const std::string& line : LinesOf(FileText(root, list, kMost))) {
            if (!line.empty() && line[0] == '/') {
                folders.push_back(line.substr(0, line.find_last_not_of(" \t\r") + 1));
            }
        }
    }
    return folders;
}

std::optional<Program> ProgramAt(const io::RootedFolder& root, const std::string& path)
{
    return ReadProgram(FileText(root, path, kLargestProgram));
}

/// Follows the links of /bin/sh to the name of the shell that it is.
std::string ShellOf(const io::RootedFolder& root)
{
    constexpr int kMostLinks = 8;
    std::string path = "/bin/sh";
    for (int i = 0; i < kMostLinks; ++i) {
        const std::string target = root.LookAtLink(path).target;
        if (target.empty()) {
            break;
        }
        path.resize(target[0] == '/' ? 0 : path.rfind('/') + 1);
        path.append(target);
    }
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::vector<std::string>& shells = PanelShells();
    return std::find(shells.begin(), shells.end(), name) == shells.end() ? "" : name;
}

std::vector<std::string> InterpretersOf(const io::RootedFolder& root)
{
    std::vector<std::string> found;
    for (const char* const folder : kProgramFolders) {
        for (const char* const name : kInterpreters) {
            const std::string path = std::string(folder) + name;
            if (root.Look(path).kind == Kind::kFile) {
                found.push_back(path);
            }
        }
    }
    for (const char* const folder : {"/lib", "/lib64"}) {
        for (const std::string& name : NamesIn(root, folder)) {
            if (name.compare(0, 3, "ld-") == 0 && name.find(".so") != std::string::npos) {
                found.push_back(std::string(folder) + "/" + name);
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<std::string> UsersOf(const io::RootedFolder& root)
{
    constexpr std::uint64_t kMost = std::uint64_t{1} << 20;
    std::vector<std::string> users;
    for (const std::string& line : LinesOf(FileText(root, "/etc/passwd", kMost))) {
        const std::size_t colon = line.find(':');
        const std::string user = line.substr(0, colon);
        if (colon != std::string::npos && !user.empty() &&
            std::find(users.begin(), users.end(), user) == users.end()) {
            users.push_back(user);
        }
    }
    return users;
}

} // namespace

std::set<std::string> LibrariesOf(const io::RootedFolder& root)
{
    std::set<std::string> libraries;
    for (const std::string& folder : LibraryFolders(root)) {
        for (std::string& name : NamesIn(root, folder)) {
            if (name.find(".so") != std::string::npos) {
                libraries.insert(std::move(name));
            }
        }
    }
    return libraries;
}

std::string CLibraryOf(const io::RootedFolder& root)
{
    constexpr std::string_view kMark = "GNU C Library";
    constexpr std::string_view kVersion = "release version ";
    for (const std::string& folder : LibraryFolders(root)) {
        const std::string bytes = FileText(root, folder + "/libc.so.6", kLargestProgram);
        const std::size_t mark = bytes.find(kMark);
        const std::size_t version = mark == std::string::npos ? mark : bytes.find(kVersion, mark);
        if (version != std::string::npos) {
            const std::size_t begin = version + kVersion.size();
            std::string text =
                bytes.substr(begin, bytes.find_first_not_of("0123456789.", begin) - begin);
            text.erase(text.find_last_not_of('.') + 1);
            return text;
        }
    }
    return {};
}

PanelSurvey SurveyPanel(const io::RootedFolder& root)
{
    PanelSurvey survey;
    for (const char* const path : {"/bin/sh", "/bin/busybox", "/sbin/init", "/bin/cp"}) {
        if (const std::optional<Program> program = ProgramAt(root, path)) {
            survey.processor = FindProcessor(program->head.ProcessorName());
            survey.floatAbi = program->floatAbi;
            break;
        }
    }
    survey.cLibrary = CLibraryOf(root);
    survey.shell = ShellOf(root);
    const std::set<std::string> libraries = LibrariesOf(root);
    survey.libraries.assign(libraries.begin(), libraries.end());
    survey.interpreters = InterpretersOf(root);
    survey.users = UsersOf(root);
    return survey;
}

} // namespace kx::format
