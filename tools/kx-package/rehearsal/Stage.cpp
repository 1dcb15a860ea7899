// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "rehearsal/Stage.h"

#include "checks/ShellText.h"
#include "package/Description.h"

#include <string_view>

namespace
{

constexpr const char* kScript = "\"/tmp/Zt/temp.sh\"";
constexpr int kFailed = 256; ///< status word of exit status 1

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
    return !ChangedInDoubleQuotes(text).empty();
}

} // namespace

Stage::Stage(VirtualPanel& panel, const Package& package, Plan& plan)
    : m_panel(panel), m_package(package), m_plan(plan)
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
    const std::string drive = m_plan.packageFile.substr(0, m_plan.packageFile.rfind('/') + 1);
    m_hasLooked = m_hasLooked || path.compare(0, drive.size(), drive) != 0;
    return m_panel.KindOf(path);
}

int Stage::Run(const std::string& command)
{
    PlannedCommand planned;
    planned.process = m_process;
    planned.step = m_step;
    planned.command = command;
    planned.isAfterScript = m_hasScriptRun && m_hasLooked;
    m_hasLooked = false;
    const bool isDone = Play(planned);
    m_plan.commands.push_back(planned);
    return isDone ? 0 : kFailed;
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
        planned.isReadDifferently = IsSpecial(first + second);
        return planned.isReadDifferently || m_panel.CopyFile(first, second);
    }
    if (const auto paths = Between(command, R"(unzip -o ")", "\" ");
        paths && SplitQuoted(*paths, "\" -d \"", first, second)) {
        planned.isReadDifferently = IsSpecial(first + second);
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
               (IsMode(first) && m_panel.KindOf(second) != VirtualPanel::Kind::kNone);
    }
    if (const auto words = Between(command, "echo '", "' | chpasswd")) {
        planned.isReadDifferently = !ChangedInSingleQuotes(*words).empty();
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

bool Stage::Unpack(const std::string& folder)
{
    for (const PackageEntry& entry : m_package.Entries()) {
        const std::string path = folder + "/" + entry.name;
        if (entry.kind == PackageEntry::Kind::kFolder) {
            m_panel.MakeFolder(path);
            continue;
        }
        m_panel.MakeFolder(path.substr(0, path.rfind('/')));
        if (entry.kind == PackageEntry::Kind::kLink) {
            m_panel.MakeLink(path, m_package.LinkTarget(entry.name));
            continue;
        }
        const bool isRead = entry.name == kDescriptionName;
        m_panel.MakeFile(path, isRead ? m_package.Read(entry.name, kLargestDescription)
                                      : std::optional<std::string>());
    }
    return true;
}
