// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/Stage.h"

#include "format/Description.h"
#include "format/ShellText.h"
#include "io/Error.h"
#include "osa/OSA.h"

#include <optional>
#include <string_view>
#include <utility>

namespace kx::rehearsal
{

namespace
{

constexpr const char* kScript = "\"/tmp/Zt/temp.sh\"";
constexpr int kFailed = 256;       ///< status word of exit status 1
constexpr int kNotStarted = 32512; ///< of exit status 127

Stage* current = nullptr;

/// Returns what stands between a command's beginning and its end, or nothing when it has others.
std::optional<std::string> Between(const std::string& command, std::string_view begin,
                                   std::string_view end)
{
    if (command.size() < begin.size() + end.size() ||
        command.compare(0, begin.size(), begin) != 0 ||
        command.compare(command.size() - end.size(), end.size(), end) != 0) {
        return std::nullopt;
    }
    return command.substr(begin.size(), command.size() - begin.size() - end.size());
}

/// Splits the two quoted words of a command.
bool SplitQuoted(const std::string& text, std::string_view middle, std::string& first,
                 std::string& second)
{
    const std::size_t place = text.find(middle);
    if (place == std::string::npos) {
        return false;
    }
    first = text.substr(0, place);
    second = text.substr(place + middle.size());
    return true;
}

/// Tells whether the shell makes something else of a text between double quotes.
bool IsSpecial(const std::string& text)
{
    return !format::ChangedInDoubleQuotes(text).empty();
}

} // namespace

Stage::Stage(VirtualPanel& panel, const archive::Package& package, Plan& plan)
    : m_panel(panel), m_package(package), m_plan(plan),
      m_unpacked(OSA_TrimExt(plan.packageFile.c_str()) + ".temp/")
{
    current = this;
}

Stage::~Stage()
{
    current = nullptr;
}

Stage* Stage::Current()
{
    return current;
}

VirtualPanel::Kind Stage::LookAt(const std::string& path)
{
    // What lies in the unpacked package is not a script's business.
    m_hasLooked = m_hasLooked || path.compare(0, m_unpacked.size(), m_unpacked) != 0;
    try {
        CheckLimits();
        return m_panel.KindOf(path);
    } catch (...) {
        Keep();
        return VirtualPanel::Kind::kNone;
    }
}

std::uint64_t Stage::SizeOf(const std::string& path)
{
    try {
        return m_panel.SizeOf(path);
    } catch (...) {
        Keep();
        return 0;
    }
}

VirtualPanel::Bytes Stage::ContentOf(const std::string& path)
{
    try {
        return m_panel.Content(path, format::kLargestDescription);
    } catch (...) {
        Keep();
        return nullptr;
    }
}

std::vector<std::string> Stage::NamesIn(const std::string& folder)
{
    try {
        return m_panel.Names(folder);
    } catch (...) {
        Keep();
        return {};
    }
}

bool Stage::MakeFile(const std::string& path)
{
    try {
        return m_panel.MakeFile(path);
    } catch (...) {
        Keep();
        return false;
    }
}

void Stage::Keep() noexcept
{
    m_failure = m_failure != nullptr ? m_failure : std::current_exception();
}

void Stage::CheckLimits()
{
    constexpr std::uint64_t kMostTold = 256U << 20U;
    constexpr std::uint64_t kMostEffort = 2U << 30U;
    if (m_told > kMostTold || m_panel.Effort() > kMostEffort) {
        throw io::Error(io::ExitCode::kProblems, m_package.Path(),
                        "its installation takes more commands than can be planned",
                        "look for links that multiply its folders: find . -type l");
    }
}

int Stage::Run(const std::string& command)
{
    if (m_failure != nullptr) {
        std::rethrow_exception(m_failure);
    }
    PlannedCommand planned;
    planned.process = m_process;
    planned.step = m_step;
    planned.command = command;
    planned.isAfterScript = m_hasScriptRun && m_hasLooked;
    m_hasLooked = false;
    // A longer command line does not reach the shell.
    constexpr std::size_t kLongestCommand = (128U << 10U) - 1;
    int status = kNotStarted;
    if (command.size() <= kLongestCommand) {
        status = Play(planned) ? 0 : kFailed;
    }
    m_told += sizeof(planned) + command.size();
    CheckLimits();
    m_plan.commands.push_back(std::move(planned));
    return status;
}

bool Stage::Play(PlannedCommand& planned)
{
    const std::string& command = planned.command;
    std::string first;
    std::string second;
    if (command == kScript) {
        m_hasScriptRun = true;
        planned.isUnknown = true;
        return true;
    }
    if (const auto folder = Between(command, R"(mkdir -p ")", "\"")) {
        planned.isReadDifferently = IsSpecial(*folder);
        return planned.isReadDifferently || m_panel.MakeFolder(*folder);
    }
    if (const auto paths = Between(command, R"(cp -f ")", "\" ");
        paths && SplitQuoted(*paths, "\" \"", first, second)) {
        planned.isReadDifferently = IsSpecial(first) || IsSpecial(second);
        return planned.isReadDifferently || m_panel.CopyFile(first, second);
    }
    if (const auto paths = Between(command, R"(unzip -o ")", "\" ");
        paths && SplitQuoted(*paths, "\" -d \"", first, second)) {
        planned.isReadDifferently = IsSpecial(first) || IsSpecial(second);
        return planned.isReadDifferently || Unpack(second);
    }
    if (const auto path = Between(command, R"(rm -r ")", "\"")) {
        planned.isReadDifferently = IsSpecial(*path);
        return planned.isReadDifferently || m_panel.Remove(*path);
    }
    if (const auto words = Between(command, "chmod ", "\" ");
        words && SplitQuoted(*words, " \"", first, second)) {
        planned.isReadDifferently =
            IsSpecial(second) ||
            first.find_first_of(" \t;&|<>()$`\\\"'*?[#~\n") != std::string::npos;
        return planned.isReadDifferently ||
               (format::IsMode(first) && m_panel.KindOf(second) != VirtualPanel::Kind::kNone);
    }
    if (const auto words = Between(command, "echo '", "' | chpasswd")) {
        planned.isReadDifferently = !format::ChangedInSingleQuotes(*words).empty();
        planned.isUnknown = true;
        return true;
    }
    if (const auto words = Between(command, "kx-setting-cui set ", "")) {
        planned.isReadDifferently =
            words->find_first_of(";&|<>()$`\\\"'*?[#~\n") != std::string::npos;
        planned.isUnknown = true;
    }
    return true;
}

/// Follows the links of the unpacked package.
/// @return what the name leads to when that is a part of the package, otherwise null
const archive::PackageEntry* Stage::EntryBehind(const std::string& name) const
{
    const std::string folder = m_panel.Resolved(m_unpacked) + "/";
    const std::string path = m_panel.Resolved(m_unpacked + name);
    return path.compare(0, folder.size(), folder) == 0 ? m_package.Find(path.substr(folder.size()))
                                                       : nullptr;
}

bool Stage::Unpack(const std::string& folder)
{
    if (m_package.UnpackStatus() != 0) {
        return false; // what was unpacked by then plays no part: the window only takes it away
    }
    const std::vector<archive::PackageEntry>& entries = m_package.Entries();
    for (std::size_t index = 0; index < entries.size(); ++index) {
        const archive::PackageEntry& entry = entries[index];
        const std::string path = folder + "/" + entry.name;
        if (entry.kind == archive::PackageEntry::Kind::kFolder) {
            // What follows in it makes it, too.
            const bool isMadeNext =
                index + 1 < entries.size() &&
                entries[index + 1].name.compare(0, entry.name.size() + 1, entry.name + "/") == 0;
            if (!isMadeNext) {
                m_panel.MakeFolder(path);
            }
            continue;
        }
        m_panel.MakeFolder(path.substr(0, path.rfind('/')));
        if (entry.kind == archive::PackageEntry::Kind::kLink) {
            m_panel.MakeLink(path, m_package.LinkTarget(entry.name));
            continue;
        }
        m_panel.MakeFile(path);
        CheckLimits();
    }
    const archive::PackageEntry* const description = EntryBehind(archive::kDescriptionName);
    if (description != nullptr && description->kind == archive::PackageEntry::Kind::kFile) {
        std::string bytes = m_package.Read(description->name, format::kLargestDescription + 1);
        if (bytes.size() > format::kLargestDescription) {
            throw io::Error(io::ExitCode::kNoAccess,
                            m_package.Path() + ":" + archive::kDescriptionName,
                            "is larger than 256 MiB");
        }
        m_panel.MakeFile(m_unpacked + description->name,
                         std::make_shared<const std::string>(std::move(bytes)));
    }
    return true;
}

bool Stage::HasUpdater()
{
    // The window reads the path as Latin-1, and does not find what has other bytes in it. Without
    // modes in the archive nothing comes out executable.
    constexpr unsigned kExecute = 0111;
    const archive::PackageEntry* const entry = EntryBehind(archive::kUpdaterName);
    return !format::HasForeignBytes(m_unpacked) && entry != nullptr &&
           entry->kind == archive::PackageEntry::Kind::kFile && (entry->mode & kExecute) != 0;
}

} // namespace kx::rehearsal
