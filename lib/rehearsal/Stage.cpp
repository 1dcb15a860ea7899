// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/Stage.h"

#include "engine/Installation.h"
#include "format/Description.h"
#include "format/ShellText.h"
#include "io/Error.h"
#include "io/Text.h"
#include "panel/Names.h"

#include <string_view>
#include <utility>

namespace kx::rehearsal
{

namespace
{

constexpr int kFailed = 256;       ///< status word of exit status 1
constexpr int kNotStarted = 32512; ///< of exit status 127

Stage* current = nullptr;

/// Tells whether the shell makes something else of a text between double quotes.
bool IsSpecial(const std::string& text)
{
    return !format::ChangedInDoubleQuotes(text).empty();
}

/// Tells whether the shell makes something else of a text without quotes, blanks apart.
bool IsSpecialBare(const std::string& text)
{
    return text.find_first_of(";&|<>()$`\\\"'*?[#~\n") != std::string::npos;
}

} // namespace

Stage::Stage(VirtualPanel& panel, const archive::Package& package, Plan& plan)
    : m_panel(panel), m_package(package), m_plan(plan),
      m_unpacked(Installation::UnpackedFolder(plan.packageFile) + "/")
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

/// A command of the updater: the texts around its words, and what it does.
struct Stage::Known {
    std::string_view begin;
    std::string_view middle; ///< between two words; empty where there is one word, or none
    std::string_view end;
    bool (*play)(Stage& stage, const std::string& first, const std::string& second,
                 PlannedCommand& planned);
};

/// Takes the words out of a command.
/// @return false when it is not this command
bool Stage::Fits(const Known& known, const std::string& command, std::string& first,
                 std::string& second)
{
    if (command.size() < known.begin.size() + known.end.size() ||
        command.compare(0, known.begin.size(), known.begin) != 0 ||
        command.compare(command.size() - known.end.size(), known.end.size(), known.end) != 0) {
        return false;
    }
    first =
        command.substr(known.begin.size(), command.size() - known.begin.size() - known.end.size());
    if (known.middle.empty()) {
        return true;
    }
    const std::size_t place = first.find(known.middle);
    if (place == std::string::npos) {
        return false;
    }
    second = first.substr(place + known.middle.size());
    first.resize(place);
    return true;
}

/// Plays what is done to files and folders.
const std::vector<Stage::Known>& Stage::FileCommands()
{
    using Planned = PlannedCommand;
    static const std::vector<Known> kCommands = {
        {R"(mkdir -p ")", "", "\"",
         [](Stage& stage, const std::string& folder, const std::string&, Planned& planned) {
             planned.isReadDifferently = IsSpecial(folder);
             return planned.isReadDifferently || stage.m_panel.MakeFolder(folder);
         }},
        {R"(cp -f -r ")", "\" \"", "\" ",
         [](Stage& stage, const std::string& from, const std::string& to, Planned& planned) {
             planned.isReadDifferently = IsSpecial(from) || IsSpecial(to);
             return planned.isReadDifferently || stage.CopyFolder(from, to);
         }},
        {R"(cp -f ")", "\" \"", "\" ",
         [](Stage& stage, const std::string& from, const std::string& to, Planned& planned) {
             planned.isReadDifferently = IsSpecial(from) || IsSpecial(to);
             return planned.isReadDifferently || stage.m_panel.CopyFile(from, to);
         }},
        {R"(rm -r ")", "", "\"",
         [](Stage& stage, const std::string& path, const std::string&, Planned& planned) {
             planned.isReadDifferently = IsSpecial(path);
             return planned.isReadDifferently || stage.m_panel.Remove(path);
         }},
        // The script's own has no blank at its end.
        {R"(chmod +x ")", "", "\"",
         [](Stage& stage, const std::string& path, const std::string&, Planned& planned) {
             planned.isReadDifferently = IsSpecial(path);
             return planned.isReadDifferently ||
                    stage.m_panel.KindOf(path) != VirtualPanel::Kind::kNone;
         }},
        {"chmod ", " \"", "\" ",
         [](Stage& stage, const std::string& mode, const std::string& path, Planned& planned) {
             planned.isReadDifferently = IsSpecial(path) || IsSpecialBare(mode) ||
                                         mode.find_first_of(" \t") != std::string::npos;
             return planned.isReadDifferently || format::IsChmodQuestion(mode) ||
                    (format::IsMode(mode) &&
                     stage.m_panel.KindOf(path) != VirtualPanel::Kind::kNone);
         }},
        {R"(unzip -o ")", R"(" -d ")", "\" ",
         [](Stage& stage, const std::string& file, const std::string& folder, Planned& planned) {
             planned.isReadDifferently = IsSpecial(file) || IsSpecial(folder);
             stage.m_isUnpacked = planned.isReadDifferently || stage.Unpack(folder);
             return stage.m_isUnpacked;
         }},
    };
    return kCommands;
}

/// Plays the tools whose results only a panel knows.
const std::vector<Stage::Known>& Stage::ToolCommands()
{
    using Planned = PlannedCommand;
    static const std::string kSettings = std::string(panel::kSettingTool) + " set ";
    static const std::vector<Known> kCommands = {
        {"echo '", "", "' | chpasswd",
         [](Stage& /*stage*/, const std::string& words, const std::string&, Planned& planned) {
             planned.isReadDifferently = !format::ChangedInSingleQuotes(words).empty();
             planned.isUnknown = true;
             return true;
         }},
        {kSettings, "", "",
         [](Stage& /*stage*/, const std::string& words, const std::string&, Planned& planned) {
             planned.isReadDifferently = IsSpecialBare(words);
             planned.isUnknown = true;
             return true;
         }},
    };
    return kCommands;
}

bool Stage::Play(PlannedCommand& planned)
{
    const std::string& command = planned.command;
    if (command == panel::kSync || command == panel::kWriteProtectOff ||
        command == panel::kUnmountDrive || command == panel::kReboot) {
        return true;
    }
    if (command == std::string("\"") + panel::kStepScript + "\"") {
        m_hasScriptRun = true;
        planned.isUnknown = true;
        return true;
    }
    std::string first;
    std::string second;
    for (const std::vector<Known>* const commands : {&FileCommands(), &ToolCommands()}) {
        for (const Known& known : *commands) {
            if (Fits(known, command, first, second)) {
                return known.play(*this, first, second, planned);
            }
        }
    }
    throw UnknownCommand(command);
}

/// Plays `cp -f -r`. No step runs it.
bool Stage::CopyFolder(const std::string& from, const std::string& to)
{
    CheckLimits();
    if (m_panel.KindOf(from) != VirtualPanel::Kind::kFolder) {
        return m_panel.CopyFile(from, to);
    }
    const bool isInto = m_panel.KindOf(to) == VirtualPanel::Kind::kFolder;
    const std::string target = isInto ? to + "/" + from.substr(from.rfind('/') + 1) : to;
    // cp makes the last folder only.
    const std::string above = target.substr(0, target.rfind('/') + 1);
    bool isDone =
        m_panel.KindOf(above) == VirtualPanel::Kind::kFolder && m_panel.MakeFolder(target);
    for (const std::string& name : isDone ? m_panel.Names(from) : std::vector<std::string>()) {
        const std::string entry = "/" + name;
        isDone = CopyFolder(from + entry, target + entry) && isDone;
    }
    return isDone;
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

/// Refuses a description that neither a panel nor this program comes to an end with.
void Stage::RefuseEndless(const std::string& description) const
{
    if (format::FilledObjects(description, format::kMostFilledObjects) ==
        format::kMostFilledObjects) {
        throw io::Error(io::ExitCode::kProblems, m_package.Path() + ":" + panel::kDescription,
                        "takes too long to read: there are too many objects in it, and each list "
                        "doubles what stands in it",
                        "look for lists in lists");
    }
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
    const archive::PackageEntry* const description = EntryBehind(panel::kDescription);
    if (description != nullptr && description->kind == archive::PackageEntry::Kind::kFile) {
        std::string bytes = m_package.Read(description->name, format::kLargestDescription + 1);
        if (bytes.size() > format::kLargestDescription) {
            throw io::Error(io::ExitCode::kNoAccess, m_package.Path() + ":" + panel::kDescription,
                            "is larger than 256 MiB");
        }
        RefuseEndless(bytes);
        m_panel.MakeFile(m_unpacked + description->name,
                         std::make_shared<const std::string>(std::move(bytes)));
    }
    return true;
}

bool Stage::CanStartUpdater(bool hasOther)
{
    // The window reads the path as Latin-1, and does not find what has other bytes in it.
    if (format::HasForeignBytes(m_unpacked)) {
        return false;
    }
    // Without modes in the archive nothing comes out executable.
    constexpr unsigned kExecute = 0111;
    const archive::PackageEntry* const entry = EntryBehind(panel::kUpdater);
    return hasOther || (entry != nullptr && entry->kind == archive::PackageEntry::Kind::kFile &&
                        (entry->mode & kExecute) != 0);
}

UnknownCommand::UnknownCommand(const std::string& command)
    : std::logic_error("the updater runs a command that the rehearsal does not know, which is a "
                       "fault of this program and not of the package: " +
                       io::Printable(command))
{
}

} // namespace kx::rehearsal
