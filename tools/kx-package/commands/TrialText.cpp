// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/TrialText.h"

#include "io/Text.h"

#include <algorithm>
#include <ostream>

namespace kx::tool
{

namespace
{

/// Widths of the columns of a list of files.
struct Widths {
    std::size_t owner = 0;
    std::size_t size = 0;
};

std::string OwnerOf(const FileChange& file)
{
    return file.mode.empty() ? "" : io::Printable(file.owner + ":" + file.group);
}

std::string SizeOf(const FileChange& file)
{
    return file.size.has_value() ? std::to_string(*file.size) : "";
}

/// Fills a text up with blanks.
std::string Padded(const std::string& text, std::size_t width, bool isRight = false)
{
    const std::string blanks(width > text.size() ? width - text.size() : 0, ' ');
    return isRight ? blanks + text : text + blanks;
}

void TellFile(const Output& output, const FileChange& file, const Widths& widths)
{
    constexpr std::size_t kChangeWidth = 7;
    constexpr std::size_t kModeWidth = 10;
    output.out << "  " << Padded(file.change, kChangeWidth) << "  " << Padded(file.mode, kModeWidth)
               << "  " << Padded(OwnerOf(file), widths.owner) << "  "
               << Padded(SizeOf(file), widths.size, true) << "  " << io::Printable(file.path)
               << (file.target.empty() ? "" : " -> " + io::Printable(file.target)) << '\n';
}

void TellFiles(const Output& output, const std::vector<FileChange>& files)
{
    Widths widths;
    for (const FileChange& file : files) {
        widths.owner = std::max(widths.owner, OwnerOf(file).size());
        widths.size = std::max(widths.size, SizeOf(file).size());
    }
    for (const FileChange& file : files) {
        TellFile(output, file, widths);
    }
    if (files.empty()) {
        output.out << "  no file and no folder\n";
    }
}

void TellSettings(const Output& output, const std::vector<SettingChange>& settings)
{
    output.out << "settings\n";
    for (const SettingChange& setting : settings) {
        output.out << "  " << io::Printable(setting.name) << '='
                   << io::Printable(setting.after.value_or(""));
        if (setting.before.has_value()) {
            output.out << "  (was " << io::Printable(*setting.before) << ")";
        }
        output.out << '\n';
    }
    if (settings.empty()) {
        output.out << "  none\n";
    }
}

void TellNamed(const Output& output, const char* heading, const std::vector<NamedChange>& changes)
{
    output.out << heading << '\n';
    for (const NamedChange& change : changes) {
        output.out << "  " << io::Printable(change.name) << ": " << change.change << '\n';
    }
    if (changes.empty()) {
        output.out << "  none\n";
    }
}

void TellChanges(const Output& output, const std::string& heading, const PanelChanges& changes)
{
    output.out << '\n' << Coloured(output, Colour::kBold, heading) << '\n';
    TellFiles(output, changes.files);
    TellSettings(output, changes.settings);
    TellNamed(output, "users", changes.users);
    TellNamed(output, "records", changes.packages);
    if (changes.isRebootAsked) {
        output.out << "a reboot was asked for\n";
    }
}

void TellRecord(const Output& output, const std::string& name,
                const std::optional<TrialRecord>& record)
{
    output.out << '\n';
    if (!record.has_value()) {
        output.out << Coloured(output, Colour::kBold, "There is no record of it") << '\n';
        return;
    }
    output.out << Coloured(output, Colour::kBold, "Recorded as " + io::Printable(name)) << '\n';
    for (const auto* const list : {&record->folders, &record->files}) {
        for (const std::string& path : *list) {
            output.out << "  " << io::Printable(path)
                       << (list == &record->folders ? "  (folder)" : "") << '\n';
        }
    }
}

void TellLog(const Output& output, const Installation& installation)
{
    const std::vector<std::string> lines = installation.log.Lines();
    if (!installation.isUnpacked && lines.empty()) {
        return;
    }
    output.out << '\n'
               << Coloured(output, Colour::kBold,
                           installation.isUnpacked ? "What the updater printed"
                                                   : "What the unpacking printed")
               << '\n';
    for (const std::string& line : lines) {
        output.out << "  | " << io::Printable(line) << '\n';
    }
}

std::string Outcome(const Output& output, const Installation& installation)
{
    if (installation.isInstalled) {
        return Coloured(output, Colour::kGreen, "installed");
    }
    const std::string outcome = Coloured(output, Colour::kRed, "not installed");
    return installation.exitCode.has_value()
               ? outcome + ", exit code " + std::to_string(*installation.exitCode)
               : outcome;
}

void TellRemarks(const Output& output, const std::vector<std::string>& remarks)
{
    for (const std::string& remark : remarks) {
        output.out << "  " << Coloured(output, Colour::kYellow, io::Printable(remark)) << '\n';
    }
}

void TellInstallation(const Output& output, const TrialSubject& subject, const TrialResult& result,
                      std::size_t index)
{
    const Installation& installation = result.installations[index];
    const bool isOnly = result.installations.size() == 1;
    const std::string ordinal = isOnly ? "" : index == 0 ? "first " : "second ";
    if (index != 0) {
        output.out << '\n';
    }
    output.out << io::Printable(subject.package) << (isOnly ? "" : ", the " + ordinal + "time")
               << ": " << Outcome(output, installation) << '\n';
    TellRemarks(output, RemarksOn(installation, index == 0 ? subject : TrialSubject()));
    if (installation.isUnpacked) {
        TellChanges(output, "What the " + ordinal + "installation changed", installation.changes);
        TellRecord(output, result.recordName, installation.record);
    }
    TellLog(output, installation);
}

std::string StartupText(const Restart& restart)
{
    switch (restart.script) {
    case StartupScript::kNone:
        return "there is no start-up script";
    case StartupScript::kNotExecutable:
        return "the start-up script is not executable: a panel does not start it";
    case StartupScript::kRunning:
        return "the start-up script still ran after " + io::CountText(restart.seconds, "second");
    case StartupScript::kStopped:
        return "the start-up script was ended";
    case StartupScript::kEnded:
        break;
    }
    return "the start-up script ended with exit status " + std::to_string(*restart.exitStatus);
}

/// Tells what the start-up script did.
void TellRestart(const Output& output, const Restart& restart)
{
    output.out << '\n'
               << Coloured(output, Colour::kBold, "The restart") << ": " << StartupText(restart)
               << '\n';
    TellRemarks(output, restart.remarks);
    for (const std::string& line : restart.output.Lines()) {
        output.out << "  | " << io::Printable(line) << '\n';
    }
    const bool isStarted =
        restart.script != StartupScript::kNone && restart.script != StartupScript::kNotExecutable;
    if (isStarted) {
        TellChanges(output, "What the start-up script changed", restart.changes);
    }
}

/// Returns a word as the shell of this machine takes it.
std::string Quoted(const std::string& word)
{
    constexpr const char* kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                   "%+,-./:=@_";
    if (word.find_first_not_of(kPlain) == std::string::npos) {
        return word;
    }
    std::string quoted = "'";
    for (const char c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

/// Tells how a person goes on with a panel that was kept.
void TellKept(const Output& output, const TrialSubject& subject, const TrialResult& result)
{
    output.out << '\n';
    if (!result.isKept) {
        output.out << "No panel is kept: none was started\n";
        return;
    }
    // A name that begins with a dash is no option.
    const std::string folder = Quoted((subject.keptAt[0] == '-' ? "./" : "") + subject.keptAt);
    const std::string run = Quoted(subject.device + "/run");
    output.out << Coloured(output, Colour::kBold,
                           "The panel is kept in " + io::Printable(subject.keptAt))
               << '\n';
    const auto tell = [&output](const std::string& line) {
        output.out << "  " << io::Printable(line) << '\n';
    };
    tell("kx-package installed --root " + folder + "/root");
    tell(std::string(run).append(" --state ").append(folder).append(" -- sh"));
    tell(std::string(run).append(" --erase --state ").append(folder));
}

} // namespace

void WriteTrialText(const Output& output, const TrialSubject& subject, const TrialResult& result)
{
    for (std::size_t i = 0; i < result.installations.size(); ++i) {
        TellInstallation(output, subject, result, i);
    }
    if (result.restart.has_value()) {
        TellRestart(output, *result.restart);
    }
    if (result.shell.has_value()) {
        TellChanges(output, "What the shell changed", result.shell->changes);
        TellRemarks(output, result.shell->remarks);
    }
    if (!subject.keptAt.empty()) {
        TellKept(output, subject, result);
    }
}

std::string ShellGreeting(bool isInstalled)
{
    return std::string("The package is ") + (isInstalled ? "" : "not ") +
           "installed. This is a shell on the panel; leave it with 'exit'.";
}

} // namespace kx::tool
