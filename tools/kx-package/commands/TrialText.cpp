// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/TrialText.h"

#include "io/Path.h"
#include "io/Text.h"
#include "osa/PanelNames.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <ostream>
#include <set>

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

void TellFile(const Output& output, const FileChange& file, const Widths& widths, bool isRecorded)
{
    constexpr std::size_t kChangeWidth = 7;
    constexpr std::size_t kModeWidth = 10;
    output.out << "  " << Padded(file.change, kChangeWidth) << "  " << Padded(file.mode, kModeWidth)
               << "  " << Padded(OwnerOf(file), widths.owner) << "  "
               << Padded(SizeOf(file), widths.size, true) << "  " << io::Printable(file.path)
               << (file.target.empty() ? "" : " -> " + io::Printable(file.target))
               << (isRecorded ? "  (recorded)" : "") << '\n';
}

void TellFiles(const Output& output, const std::vector<FileChange>& files,
               const std::set<std::string>& recorded)
{
    Widths widths;
    for (const FileChange& file : files) {
        widths.owner = std::max(widths.owner, OwnerOf(file).size());
        widths.size = std::max(widths.size, SizeOf(file).size());
    }
    for (const FileChange& file : files) {
        TellFile(output, file, widths, recorded.count(file.path) > 0);
    }
}

/// How many folders and files a run added, changed or removed, in one line.
void TellCount(const Output& output, const std::vector<FileChange>& files, const char* change)
{
    std::size_t all = 0;
    std::size_t folders = 0;
    for (const FileChange& file : files) {
        if (file.change == change) {
            ++all;
            folders += file.mode.substr(0, 1) == "d" ? 1 : 0;
        }
    }
    if (all == 0) {
        return;
    }
    const std::string some = folders > 0 ? io::CountText(folders, "folder") : "";
    const std::string rest = all > folders ? io::CountText(all - folders, "file") : "";
    output.out << "  " << change << ": " << some << (some.empty() || rest.empty() ? "" : ", ")
               << rest << '\n';
}

/// Tells whether a change is worth a look: of what was there before, and in the panel's own places.
bool IsNotable(const FileChange& file)
{
    if (io::IsIn(file.path, PanelNames::kRegistry)) {
        return false;
    }
    const auto holds = [&file](const char* folder) { return io::IsIn(file.path, folder); };
    constexpr std::array<const char*, 8> kSystem = {"/bin", "/boot",  "/dev",  "/etc",
                                                    "/lib", "/lib64", "/sbin", "/usr"};
    return file.change != "added" || std::any_of(kSystem.begin(), kSystem.end(), holds);
}

/// How many of each, and those that are worth a look, what was there before first.
void TellMainFiles(const Output& output, const std::vector<FileChange>& files)
{
    constexpr std::size_t kMost = 10;
    for (const char* const change : {"added", "changed", "removed"}) {
        TellCount(output, files, change);
    }
    std::vector<FileChange> notable;
    std::copy_if(files.begin(), files.end(), std::back_inserter(notable), IsNotable);
    std::stable_partition(notable.begin(), notable.end(),
                          [](const FileChange& file) { return file.change != "added"; });
    const std::size_t more = notable.size() > kMost ? notable.size() - kMost : 0;
    notable.resize(notable.size() - more);
    TellFiles(output, notable, {});
    if (more > 0) {
        output.out << "  and " << more << " more like these; see --verbose\n";
    }
}

/// The heading of a list; of an empty one only where everything is told.
bool Begins(const Output& output, const char* heading, bool isEmpty, bool isVerbose)
{
    if (isEmpty && !isVerbose) {
        return false;
    }
    output.out << heading << '\n' << (isEmpty ? "  none\n" : "");
    return true;
}

void TellSettings(const Output& output, const std::vector<SettingChange>& settings, bool isVerbose)
{
    if (!Begins(output, "settings", settings.empty(), isVerbose)) {
        return;
    }
    for (const SettingChange& setting : settings) {
        output.out << "  " << io::Printable(setting.name) << '='
                   << io::Printable(setting.after.value_or(""));
        if (setting.before.has_value()) {
            output.out << "  (was " << io::Printable(*setting.before) << ")";
        }
        output.out << '\n';
    }
}

void TellNamed(const Output& output, const char* heading, const std::vector<NamedChange>& changes,
               bool isVerbose)
{
    if (!Begins(output, heading, changes.empty(), isVerbose)) {
        return;
    }
    for (const NamedChange& change : changes) {
        output.out << "  " << io::Printable(change.name) << ": " << change.change << '\n';
    }
}

void TellChanges(const Output& output, const std::string& heading, const PanelChanges& changes,
                 const std::set<std::string>& recorded, bool isVerbose)
{
    output.out << '\n' << Coloured(output, Colour::kBold, heading) << '\n';
    if (isVerbose) {
        TellFiles(output, changes.files, recorded);
    } else {
        TellMainFiles(output, changes.files);
    }
    if (changes.files.empty()) {
        output.out << "  no file and no folder\n";
    }
    TellSettings(output, changes.settings, isVerbose);
    TellNamed(output, "users", changes.users, isVerbose);
    TellNamed(output, "records", changes.packages, isVerbose);
    if (changes.isRebootAsked) {
        output.out << "a reboot was asked for\n";
    }
}

/// The paths of a record, as changes name them.
std::set<std::string> PathsOf(const std::optional<TrialRecord>& record)
{
    std::set<std::string> paths;
    if (record.has_value()) {
        for (const auto* const list : {&record->folders, &record->files}) {
            for (const std::string& path : *list) {
                paths.insert(io::PlainPath(path));
            }
        }
    }
    return paths;
}

/// Of what is recorded, each path that does not stand among the changes.
void TellRecordedPaths(const Output& output, const TrialRecord& record,
                       const std::vector<FileChange>& changes)
{
    std::set<std::string> changed;
    for (const FileChange& file : changes) {
        changed.insert(file.path);
    }
    for (const auto* const list : {&record.folders, &record.files}) {
        for (const std::string& path : *list) {
            if (changed.count(io::PlainPath(path)) == 0) {
                output.out << "  " << io::Printable(path)
                           << (list == &record.folders ? "  (folder)" : "") << '\n';
            }
        }
    }
}

void TellRecord(const Output& output, const std::string& name, const Installation& installation,
                bool isVerbose)
{
    output.out << '\n';
    if (!installation.record.has_value()) {
        output.out << Coloured(output, Colour::kBold, "There is no record of it") << '\n';
        return;
    }
    const TrialRecord& record = *installation.record;
    output.out << Coloured(output, Colour::kBold, "Recorded as " + io::Printable(name)) << ": "
               << io::CountText(record.folders.size(), "folder") << ", "
               << io::CountText(record.files.size(), "file") << '\n';
    if (isVerbose) {
        TellRecordedPaths(output, record, installation.changes.files);
    }
}

/// The lines that matter: of an installation that succeeded those of scripts and tools, and the end
/// of what is long.
std::vector<std::string> MainLines(const Installation& installation)
{
    constexpr std::size_t kMost = 20;
    std::vector<std::string> lines = installation.log.Lines();
    if (installation.Outcome() == Verdict::kInstalled) {
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string& line) {
                                       return line.rfind("**** Installation step ", 0) == 0 ||
                                              line == "Installation succeeded.";
                                   }),
                    lines.end());
    }
    if (lines.size() > kMost) {
        const std::size_t more = lines.size() - kMost;
        lines.erase(lines.begin(), lines.end() - kMost);
        lines.insert(lines.begin(), "... " + std::to_string(more) + " more; see --verbose");
    }
    return lines;
}

void TellLog(const Output& output, const Installation& installation, bool isVerbose)
{
    const std::vector<std::string> lines =
        isVerbose ? installation.log.Lines() : MainLines(installation);
    if (lines.empty() && !(isVerbose && installation.isUnpacked)) {
        return;
    }
    const char* const heading = !installation.isUnpacked ? "What the unpacking printed"
                                : isVerbose || installation.Outcome() != Verdict::kInstalled
                                    ? "What the updater printed"
                                    : "What scripts and tools printed";
    output.out << '\n' << Coloured(output, Colour::kBold, heading) << '\n';
    for (const std::string& line : lines) {
        output.out << "  | " << io::Printable(line) << '\n';
    }
}

/// Returns "; steps 2 and 4 failed and were skipped", or nothing.
std::string SkippedText(const std::vector<StepFailure>& failures)
{
    std::vector<int> steps;
    for (const StepFailure& failure : failures) {
        if (failure.isSkipped) {
            steps.push_back(failure.step);
        }
    }
    if (steps.empty()) {
        return "";
    }
    std::string text = steps.size() == 1 ? "; step " : "; steps ";
    for (std::size_t i = 0; i < steps.size(); ++i) {
        text += i == 0 ? "" : i + 1 == steps.size() ? " and " : ", ";
        text += std::to_string(steps[i]);
    }
    return text + (steps.size() == 1 ? " failed and was skipped" : " failed and were skipped");
}

std::string Outcome(const Output& output, const Installation& installation)
{
    const Verdict verdict = installation.Outcome();
    const Colour colour = verdict == Verdict::kInstalled      ? Colour::kGreen
                          : verdict == Verdict::kNotInstalled ? Colour::kRed
                                                              : Colour::kYellow;
    std::string text = Coloured(output, colour, VerdictText(verdict));
    if (verdict == Verdict::kNotJudged) {
        text += ": " + io::Printable(installation.doubts.front());
    } else if (verdict == Verdict::kNotInstalled && installation.exitCode.has_value()) {
        text += ", exit code " + std::to_string(*installation.exitCode);
    }
    return text + SkippedText(installation.failedSteps);
}

/// Tells each step that failed, and why. What was made to fail stands among the remarks.
void TellFailures(const Output& output, const std::vector<StepFailure>& failures)
{
    for (const StepFailure& failure : failures) {
        std::string text = "step " + std::to_string(failure.step);
        text += failure.kind.empty() ? "" : " (" + failure.kind + ")";
        text += failure.isSkipped ? " failed and was skipped" : " failed";
        text += failure.why.empty() ? "" : ": " + failure.why;
        text += failure.command.empty() ? "" : ": " + ShownCommand(failure.command);
        text += failure.failures > 1
                    ? "; and " + std::to_string(failure.failures - 1) + " more of its items"
                    : "";
        output.out << "  " << Coloured(output, Colour::kYellow, io::Printable(text)) << '\n';
    }
}

void TellRemarks(const Output& output, const std::vector<std::string>& remarks)
{
    for (const std::string& remark : remarks) {
        output.out << "  " << Coloured(output, Colour::kYellow, io::Printable(remark)) << '\n';
    }
}

void TellInstallation(const Output& output, const TrialSubject& subject, const TrialResult& result,
                      std::size_t index, bool isVerbose)
{
    const Installation& installation = result.installations[index];
    const bool isOnly = result.installations.size() == 1;
    const std::string ordinal = isOnly ? "" : index == 0 ? "first " : "second ";
    if (index != 0) {
        output.out << '\n';
    }
    output.out << io::Printable(subject.package) << (isOnly ? "" : ", the " + ordinal + "time")
               << ": " << Outcome(output, installation) << '\n';
    TellFailures(output, installation.failedSteps);
    for (std::size_t i = 1; i < installation.doubts.size(); ++i) {
        TellRemarks(output, {installation.doubts[i]});
    }
    TellRemarks(output, RemarksOn(installation, index == 0 ? subject : TrialSubject()));
    if (installation.isUnpacked) {
        TellChanges(output, "What the " + ordinal + "installation changed", installation.changes,
                    PathsOf(installation.record), isVerbose);
        TellRecord(output, result.recordName, installation, isVerbose);
    }
    TellLog(output, installation, isVerbose);
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
void TellRestart(const Output& output, const Restart& restart, bool isVerbose)
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
        TellChanges(output, "What the start-up script changed", restart.changes, {}, isVerbose);
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

void WriteTrialText(const Output& output, const TrialSubject& subject, const TrialResult& result,
                    bool isVerbose)
{
    for (std::size_t i = 0; i < result.installations.size(); ++i) {
        TellInstallation(output, subject, result, i, isVerbose);
    }
    if (result.restart.has_value()) {
        TellRestart(output, *result.restart, isVerbose);
    }
    if (result.shell.has_value()) {
        TellChanges(output, "What the shell changed", result.shell->changes, {}, isVerbose);
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
