// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/Trial.h"

#include "archive/Package.h"
#include "format/ShellText.h"
#include "format/Summary.h"
#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/StandardInput.h"
#include "io/Text.h"
#include "io/WholeFile.h"
#include "osa/PanelNames.h"
#include "trial/Doubts.h"
#include "trial/FailedSteps.h"
#include "trial/ShellTerminal.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

// Left out of the summary, like everything in /run.
constexpr const char* kInsidePackage = "/run/kx-package/package";
constexpr const char* kInsideUpdater = "/run/kx-package/updater";
constexpr std::uint64_t kLargestReport = std::uint64_t{64} << 20;

// Exit statuses of the scripts below; unzip's own are smaller.
constexpr int kNoDescription = 118;
constexpr int kNoUpdater = 119;
constexpr int kNotLaidDown = 120;

/// Lays an archive on the drive and does what the window does up to its question. $0 is the
/// archive, $1 the folder that it is unpacked to, $2 and $3 are the names of description and
/// updater; commands follow. When one before the last fails, the last one, which unpacks, does,
/// too.
constexpr const char* kOpenScript = R"(exec 2>&1
mv /run/kx-package/package "$0" || exit 120
folder=$1 description=$2 updater=$3
shift 3
status=0
for command; do
    sh -c "$command"
    status=$?
done
[ "$status" -eq 0 ] || exit "$status"
[ -f "$folder/$description" ] || exit 118
[ -f "$folder/$updater" ] && [ -x "$folder/$updater" ] || exit 119
)";

/// Lays the folder of an unpacked package where its archive would have been unpacked to.
constexpr const char* kLayScript = R"(exec 2>&1
mv /run/kx-package/package "$1" || exit 120
[ -f "$1/$2" ] || exit 118
[ -f "$1/$3" ] && [ -x "$1/$3" ] || exit 119
)";

/// Shows the record's list $0, then does what the window does after the installation.
constexpr const char* kLeaveScript = R"(cat "$0"
status=$?
for command; do
    sh -c "$command" >/dev/null 2>&1
done
exit "$status")";

constexpr const char* kInstallScript = R"(exec "$0" -unzipedDir "$1" 2>&1)";

constexpr const char* kPullScript = "/usr/bin/kxsystem/drive pull >/dev/null 2>&1";

// A shell with a terminal of its own, so that its keys and job control work.
constexpr const char* kShellScript = R"(exec 2>&1
cd /
shell='sh -i'
! command -v bash >/dev/null || shell='bash --norc --noprofile -i'
! command -v setsid >/dev/null || exec setsid --ctty --wait $shell
exec $shell)";
constexpr unsigned kShellSeconds = 86400;
constexpr unsigned kReadSeconds = 60;

/// Reading that a signal ended is no failure of the input.
void RefuseIfInterrupted()
{
    if (io::Interruption::IsAsked()) {
        throw io::Error(io::ExitCode::kNoAccess, "", "the trial was interrupted");
    }
}

/// One trial on one panel.
class Trial
{
public:
    explicit Trial(const TrialRequest& request)
        : m_request(request), m_road(request.road),
          m_panel(request.device, request.bounds, request.environment, request.keepAt)
    {
        std::error_code error;
        m_path = request.package;
        if (request.build || m_path == io::kStandardInput) {
            m_path = m_panel.Scratch(std::string("package") + archive::kPackageExtension);
            MakePackage();
        }
        m_isArchive = !fs::is_directory(m_path, error);
        fs::create_directory(m_panel.Scratch("drive"), error);
    }

    TrialResult Run()
    {
        TrialResult result;
        result.recordName = m_road.record.substr(m_road.record.rfind('/') + 1);
        result.installations.push_back(Install(m_request.failure));
        if (m_request.isTwice && result.installations.front().isUnpacked) {
            result.installations.push_back(Install(std::nullopt));
        }
        if (m_request.bootSeconds != 0 && m_road.isFound) {
            PullDrive();
            result.restart =
                PlayRestart(m_panel, m_request.bootSeconds, m_request.bounds.seconds,
                            m_panel.Scratch("changes"), [this] { return ReadChanges(); });
            DoubtRestart(*result.restart);
        }
        if (m_request.shellGreeting) {
            result.shell = VisitShell(result.installations.back().isInstalled);
        }
        if (!m_request.keepAt.empty()) {
            result.isKept = Keep();
        }
        m_panel.End();
        return result;
    }

private:
    void MakePackage();
    void TakeStandardInput();
    [[nodiscard]] PanelResult Open();
    void Start(const std::optional<ShellFailure>& failure, Installation& installation);
    [[nodiscard]] Installation Install(const std::optional<ShellFailure>& failure);
    [[nodiscard]] std::optional<TrialRecord> Leave();
    [[nodiscard]] ShellVisit VisitShell(bool isInstalled);
    [[nodiscard]] std::string ReadReport(const char* name, std::uint64_t limit) const;
    [[nodiscard]] PanelChanges ReadChanges() const;
    [[nodiscard]] PanelTerms Watched(TrialProgress& progress, StepLog& log) const;
    void Explain(RunTrace& trace, const StepLog& log, const std::optional<ShellFailure>& failure,
                 Installation& installation) const;
    void DoubtRestart(Restart& restart) const;
    void PullDrive();
    [[nodiscard]] bool Keep();

    const TrialRequest& m_request;
    const Road& m_road;
    TrialPanel m_panel;
    std::string m_path;
    bool m_isArchive = false;
};

void Trial::MakePackage()
{
    try {
        if (m_request.build) {
            m_request.build(m_path);
        } else {
            TakeStandardInput();
        }
    } catch (const io::Error&) {
        RefuseIfInterrupted();
        throw;
    }
    RefuseIfInterrupted();
}

void Trial::TakeStandardInput()
{
    const io::Descriptor file = io::CreateFile(m_path, 0600);
    const std::uint64_t limit = std::uint64_t{m_request.bounds.disk} << 20;
    io::CopyStandardInput(file, m_path, limit, "see --disk");
}

PanelResult Trial::Open()
{
    // Every installation has the drive anew: the window leaves it unmounted.
    const std::vector<std::string> options = {"--put", m_path + "=" + kInsidePackage, "--usb",
                                              m_panel.Scratch("drive")};
    std::vector<std::string> command = {"sh",
                                        "-c",
                                        m_isArchive ? kOpenScript : kLayScript,
                                        m_road.archive,
                                        m_road.folder,
                                        archive::kDescriptionName,
                                        archive::kUpdaterName};
    command.insert(command.end(), m_road.opening.begin(), m_road.opening.end());
    TrialProgress progress;
    StepLog log;
    return m_panel.Run(options, command, Watched(progress, log));
}

/// What tells how far the trial has come. Scripts of a package that is being unpacked do not run
/// yet, so there is no step then.
PanelTerms Trial::Watched(TrialProgress& progress, StepLog& log) const
{
    PanelTerms terms;
    terms.onOutput = [&progress, &log](std::string_view piece) {
        if (progress.isInstalling) {
            log.Hear(piece);
            progress.step = log.Step();
            progress.steps = log.Count();
        }
    };
    terms.onMoment = [this, &progress] {
        if (m_request.onProgress) {
            progress.isEnding = io::Interruption::IsAsked();
            m_request.onProgress(progress);
        }
    };
    return terms;
}

/// What is to be said when a package did not get as far as its installation.
std::string WhyNotUnpacked(const PanelResult& unpacked)
{
    if (unpacked.isStopped) {
        return "the package could not be unpacked in the given bounds";
    }
    if (unpacked.status == kNoDescription) {
        return std::string("the package has no ") + archive::kDescriptionName +
               " at its top level; see kx-package check";
    }
    if (unpacked.status == kNotLaidDown) {
        return "the package could not be laid on the panel's drive";
    }
    return "a panel cannot unpack the package: unzip ends with " + std::to_string(unpacked.status) +
           "; see kx-package check";
}

/// Returns what a panel would do otherwise than the trial, or at least not as its author meant.
std::vector<std::string> RemarksOnName(const Road& road)
{
    const std::string name = fs::path(road.archive).filename().string();
    if (const std::string character = io::UnsafeCharacter(name); !character.empty()) {
        return {"the panel's shell interprets the " + character +
                " in the package's name; see kx-package check"};
    }
    if (format::HasForeignBytes(name)) {
        return {"a panel would not start the installation: the package's name is not plain ASCII; "
                "see kx-package check"};
    }
    return {};
}

Installation Trial::Install(const std::optional<ShellFailure>& failure)
{
    Installation installation;
    if (!m_road.isFound) {
        installation.remarks = {std::string("a panel finds no package: the file's name does not "
                                            "end in ") +
                                archive::kPackageExtension};
        return installation;
    }
    const PanelResult opened = Open();
    installation.remarks = opened.remarks;
    for (const std::string& remark : RemarksOnName(m_road)) {
        installation.remarks.push_back(remark);
    }
    installation.isUnpacked =
        !opened.isStopped && (opened.status == 0 || opened.status == kNoUpdater);
    if (!installation.isUnpacked) {
        installation.remarks.push_back(WhyNotUnpacked(opened));
        installation.log = opened.out;
        static_cast<void>(Leave()); // an earlier record is not this package's
        return installation;
    }
    if (opened.status == kNoUpdater) {
        installation.remarks.push_back(m_request.whyNoUpdater.empty()
                                           ? std::string("the package has no ") +
                                                 archive::kUpdaterName +
                                                 " that a panel could start; see kx-package check"
                                           : m_request.whyNoUpdater);
    }
    Start(failure, installation);
    installation.record = Leave();
    return installation;
}

void Trial::Start(const std::optional<ShellFailure>& failure, Installation& installation)
{
    std::vector<std::string> options = {"--share",         m_request.updater + "=" + kInsideUpdater,
                                        "--summary-json",  m_panel.Scratch("changes"),
                                        "--trace",         m_panel.Scratch("trace"),
                                        "--trace-programs"};
    if (failure.has_value()) {
        options.insert(options.end(),
                       {"--fail-shell", std::to_string(failure->number) + "=" + failure->command});
    }
    TrialProgress progress{true};
    StepLog log;
    const PanelResult ended =
        m_panel.Run(options, {"sh", "-c", kInstallScript, kInsideUpdater, m_road.folder},
                    Watched(progress, log));
    installation.remarks.insert(installation.remarks.end(), ended.remarks.begin(),
                                ended.remarks.end());
    installation.exitCode = ended.status;
    installation.isInstalled = ended.status == 0 && !ended.isStopped;
    installation.log = ended.out;
    installation.changes = ReadChanges();
    RunTrace trace = ReadRunTrace(ReadReport("trace", kLargestReport * 8));
    installation.isRefused = trace.isRefused;
    Explain(trace, log, failure, installation);
}

/// Writes the commands of a plan for another folder of the unpacked package.
void RenameFolder(rehearsal::Plan& plan, const std::string& from, const std::string& to)
{
    const std::string found = "\"" + from + "/";
    for (rehearsal::PlannedCommand& command : plan.commands) {
        if (const std::size_t at = command.command.find(found); at != std::string::npos) {
            command.command.replace(at + 1, from.size(), to);
        }
    }
}

/// Tells which steps failed, and what the programs that were started say about the result. Most
/// installations need no look into the package for that.
void Trial::Explain(RunTrace& trace, const StepLog& log, const std::optional<ShellFailure>& failure,
                    Installation& installation) const
{
    installation.failedSteps = log.Failures();
    if (failure.has_value() && trace.isRefused) {
        AddMadeFailure(*failure, installation.isInstalled || log.Step() > failure->step,
                       installation.failedSteps);
    }
    if (installation.failedSteps.empty() && trace.Programs().empty()) {
        return;
    }
    std::string processor = m_request.processor;
    try {
        const std::unique_ptr<archive::Package> package = archive::OpenPackage(m_path);
        const format::Summary summary = format::Summarize(*package);
        if (processor.empty() && summary.updater.has_value() &&
            summary.updater->program.has_value()) {
            processor = summary.updater->program->ProcessorName();
        }
        rehearsal::Circumstances where;
        where.hasOtherUpdater = true;
        rehearsal::Plan plan = rehearsal::Rehearse(*package, where);
        // The file that was built or taken from standard input has a name of its own.
        RenameFolder(plan, RoadOf(plan).folder, m_road.folder);
        AssignSteps(plan, trace);
        CompleteFailures(summary.steps, trace, installation.failedSteps);
    } catch (const std::exception&) {
        // What the panel could read and this program cannot: the steps are told without more.
        static_cast<void>(processor);
    }
    installation.programs = trace.Programs();
    installation.doubts = DoubtsOf(installation.programs, processor);
    for (const std::string& remark : RemarksOnDoubts(installation.programs, processor)) {
        installation.remarks.push_back(remark);
    }
}

std::optional<TrialRecord> Trial::Leave()
{
    std::vector<std::string> command = {"sh", "-c", kLeaveScript,
                                        m_road.record + "/" + PanelNames::kInstalledList};
    command.insert(command.end(), m_road.leaving.begin(), m_road.leaving.end());
    m_panel.SetSeconds(kReadSeconds);
    const PanelResult read = m_panel.Run({}, command);
    m_panel.SetSeconds(m_request.bounds.seconds);
    // What cat says goes to the remarks; no record is no trouble here.
    if (read.status != 0) {
        return std::nullopt;
    }
    TrialRecord record;
    std::vector<std::string>* list = nullptr;
    for (const std::string& line : read.out.Lines()) {
        if (line == " #dir") {
            list = &record.folders;
        } else if (line == " #file") {
            list = &record.files;
        } else if (list != nullptr) {
            list->push_back(line);
        }
    }
    return record;
}

ShellVisit Trial::VisitShell(bool isInstalled)
{
    ShellTerminal terminal;
    terminal.Say(m_request.shellGreeting(isInstalled));
    m_panel.SetSeconds(kShellSeconds);
    const PanelResult ended = m_panel.Run({"--summary-json", m_panel.Scratch("changes"), "--trace",
                                           m_panel.Scratch("trace"), "--trace-programs", "--env",
                                           "PS1=panel:\\w# ", "--env", "HISTFILE="},
                                          {"sh", "-c", kShellScript}, {&terminal, {}, {}});
    m_panel.SetSeconds(m_request.bounds.seconds);
    return {ended.status, ended.remarks, ReadChanges()};
}

/// Tells which programs of the start-up script cannot run here as on the panel.
void Trial::DoubtRestart(Restart& restart) const
{
    if (restart.script == StartupScript::kNone || restart.script == StartupScript::kNotExecutable) {
        return; // none was started, and the trace is of an installation
    }
    const RunTrace trace = ReadRunTrace(ReadReport("trace", kLargestReport * 8));
    for (const std::string& doubt :
         DoubtsOf(trace.Programs(), m_request.processor, "the start-up script")) {
        restart.remarks.push_back("not judged: " + doubt);
    }
}

/// Pulls the drive out, as the person at the panel does when the installation has ended.
void Trial::PullDrive()
{
    m_panel.SetSeconds(kReadSeconds);
    // A package may have broken that tool; then the drive stays.
    static_cast<void>(m_panel.Run({}, {"sh", "-c", kPullScript}));
    m_panel.SetSeconds(m_request.bounds.seconds);
}

bool Trial::Keep()
{
    if (!m_road.isFound) {
        return false; // no panel was needed to say so
    }
    PullDrive();
    return m_panel.Keep();
}

std::string Trial::ReadReport(const char* name, std::uint64_t limit) const
{
    try {
        return io::ReadWholeFile(m_panel.Scratch(name), limit);
    } catch (const io::Error& error) {
        // The device writes it: one that is missing is no mistake of the package.
        throw io::Error(io::ExitCode::kNoAccess, error.Where(), error.what());
    }
}

PanelChanges Trial::ReadChanges() const
{
    try {
        return ReadPanelChanges(ReadReport("changes", kLargestReport));
    } catch (const io::Error&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw io::Error(io::ExitCode::kNoAccess, m_request.device + "/run",
                        std::string("the device did not tell what changed: ") + error.what());
    }
}

} // namespace

Verdict Installation::Outcome() const
{
    if (!doubts.empty()) {
        return Verdict::kNotJudged;
    }
    return isInstalled ? Verdict::kInstalled : Verdict::kNotInstalled;
}

Verdict TrialResult::Outcome() const
{
    const bool isDoubtful =
        std::any_of(installations.begin(), installations.end(),
                    [](const Installation& one) { return one.Outcome() == Verdict::kNotJudged; });
    return isDoubtful ? Verdict::kNotJudged : installations.back().Outcome();
}

std::string NamedPath(const std::string& path)
{
    static_cast<void>(archive::NamesArchive(path));
    if (access(path.c_str(), R_OK) != 0) {
        throw io::AccessError(path, "open", errno);
    }
    std::string named = path;
    while (named.size() > 1 && named.back() == '/') {
        named.pop_back();
    }
    const std::string last = fs::path(named).filename().string();
    if (last == "." || last == ".." || last.empty()) {
        named = fs::canonical(named).string();
    }
    if (named == "/") {
        throw io::Error(io::ExitCode::kProblems, path, "is not a package",
                        "name a package or the folder of an unpacked one");
    }
    return named;
}

TrialResult RunTrial(const TrialRequest& request)
{
    // Outlives the trial: what was made is removed before the signal does its work.
    const io::Interruption interruption;
    return Trial(request).Run();
}

} // namespace kx::tool
