// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/Trial.h"

#include "archive/Package.h"
#include "format/Description.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/StandardInput.h"
#include "io/Text.h"
#include "io/WholeFile.h"
#include "osa/OSA.h"
#include "trial/ShellTerminal.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* kDrive = "/mnt/usb/";
constexpr const char* kRecords = "/var/lib/KxUserPackages/";
// Left out of the summary, like everything in /run.
constexpr const char* kInsidePackage = "/run/kx-package/package";
constexpr const char* kInsideUpdater = "/run/kx-package/kx_Updater";
constexpr std::uint64_t kLargestReport = std::uint64_t{64} << 20;

// Exit statuses of the script below; unzip's own are smaller.
constexpr int kNoDescription = 118;
constexpr int kNoUpdater = 119;
constexpr int kNotLaidDown = 120;

/// Lays the package on the drive and unpacks it like the window. $1 is the archive, empty for the
/// folder of an unpacked package; $2 the folder to unpack to.
constexpr const char* kUnpackScript = R"(exec 2>&1
rm -rf "$2" || exit 120
if [ -n "$1" ]; then
    rm -rf "$1" && mv /run/kx-package/package "$1" && mkdir -p "$2" || exit 120
    unzip -o "$1" -d "$2" || exit
else
    mv /run/kx-package/package "$2" || exit 120
fi
[ -f "$2/UserPackage.kx-project" ] || exit 118
[ -f "$2/kx_Updater" ] && [ -x "$2/kx_Updater" ] || exit 119
)";

constexpr const char* kInstallScript = R"(exec "$0" -unzipedDir "$1" 2>&1)";

// A shell with a terminal of its own, so that its keys and job control work.
constexpr const char* kShellScript = R"(exec 2>&1
cd /
shell='sh -i'
! command -v bash >/dev/null || shell='bash --norc --noprofile -i'
! command -v setsid >/dev/null || exec setsid --ctty --wait $shell
exec $shell)";
constexpr unsigned kShellSeconds = 86400;
constexpr unsigned kReadSeconds = 60;

/// One trial on one panel.
class Trial
{
public:
    explicit Trial(const TrialRequest& request)
        : m_request(request), m_panel(request.device, request.bounds, request.environment)
    {
        std::error_code error;
        m_path = request.package;
        if (m_path == io::kStandardInput) {
            m_path = m_panel.Scratch(std::string("package") + archive::kPackageExtension);
            TakeStandardInput();
        }
        m_isArchive = !fs::is_directory(m_path, error);
        m_name = fs::path(m_path).filename().string();
        m_folder = UnpackedFolder(m_path, m_isArchive);
        m_recordName = format::RecordName(m_folder);
        fs::create_directory(m_panel.Scratch("drive"), error);
    }

    TrialResult Run()
    {
        TrialResult result;
        result.packageName = m_name;
        result.recordName = m_recordName;
        result.installations.push_back(Install(m_request.failure));
        if (m_request.isTwice && result.installations.front().isUnpacked) {
            result.installations.push_back(Install(std::nullopt));
        }
        if (m_request.hasShell) {
            result.shell = VisitShell(result.installations.back().isInstalled);
        }
        m_panel.End();
        return result;
    }

private:
    void TakeStandardInput();
    [[nodiscard]] PanelResult Unpack();
    [[nodiscard]] Installation Install(const std::optional<ShellFailure>& failure);
    [[nodiscard]] std::optional<TrialRecord> ReadRecord();
    [[nodiscard]] ShellVisit VisitShell(bool isInstalled);
    [[nodiscard]] PanelChanges ReadChanges() const;

    const TrialRequest& m_request;
    TrialPanel m_panel;
    std::string m_path;
    std::string m_name;
    bool m_isArchive = false;
    std::string m_folder; ///< on the panel, to which the package is unpacked
    std::string m_recordName;
    bool m_hasDrive = false; ///< it has been plugged in
};

void Trial::TakeStandardInput()
{
    const int file = open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) {
        throw io::AccessError(m_path, "write", errno);
    }
    const auto close = [](const int* descriptor) { ::close(*descriptor); };
    const std::unique_ptr<const int, decltype(close)> guard(&file, close);
    const std::uint64_t limit = std::uint64_t{m_request.bounds.disk} << 20;
    std::uint64_t total = 0;
    std::array<char, 1 << 16> piece{};
    while (true) {
        const ssize_t count = read(STDIN_FILENO, piece.data(), piece.size());
        if (io::Interruption::IsAsked()) {
            throw io::Error(io::ExitCode::kNoAccess, "", "the trial was interrupted");
        }
        if (count < 0) {
            throw io::AccessError("standard input", "read", errno);
        }
        total += static_cast<std::uint64_t>(count);
        if (count == 0) {
            return;
        }
        if (total > limit) {
            throw io::Error(io::ExitCode::kNoAccess, "standard input",
                            "is larger than " + io::SizeText(limit), "see --disk");
        }
        if (write(file, piece.data(), static_cast<std::size_t>(count)) != count) {
            throw io::AccessError(m_path, "write", errno);
        }
    }
}

PanelResult Trial::Unpack()
{
    std::vector<std::string> options = {"--put", m_path + "=" + kInsidePackage};
    if (!m_hasDrive) {
        options.insert(options.end(), {"--usb", m_panel.Scratch("drive")});
        m_hasDrive = true;
    }
    return m_panel.Run(options, {"sh", "-c", kUnpackScript, "sh",
                                 m_isArchive ? kDrive + m_name : std::string(), m_folder});
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

Installation Trial::Install(const std::optional<ShellFailure>& failure)
{
    Installation installation;
    const PanelResult unpacked = Unpack();
    installation.remarks = unpacked.remarks;
    installation.isUnpacked = unpacked.status == 0 || unpacked.status == kNoUpdater;
    if (!installation.isUnpacked) {
        installation.remarks.push_back(WhyNotUnpacked(unpacked));
        installation.log = unpacked.out;
        return installation;
    }
    if (const std::string character = io::UnsafeCharacter(m_name); !character.empty()) {
        installation.remarks.push_back("the panel's shell reads the " + character +
                                       " in the package's name as more than a letter; see "
                                       "kx-package check");
    }
    if (unpacked.status == kNoUpdater) {
        installation.remarks.push_back(std::string("the package has no ") + archive::kUpdaterName +
                                       " that a panel could start; see kx-package check");
    }

    std::vector<std::string> options = {"--share",        m_request.updater + "=" + kInsideUpdater,
                                        "--summary-json", m_panel.Scratch("changes"),
                                        "--trace",        m_panel.Scratch("trace")};
    if (failure.has_value()) {
        options.insert(options.end(),
                       {"--fail-shell", std::to_string(failure->number) + "=" + failure->command});
    }
    const PanelResult ended =
        m_panel.Run(options, {"sh", "-c", kInstallScript, kInsideUpdater, m_folder});
    installation.remarks.insert(installation.remarks.end(), ended.remarks.begin(),
                                ended.remarks.end());
    installation.exitCode = ended.status;
    installation.isInstalled = ended.status == 0 && !ended.isStopped;
    installation.log = ended.out;
    installation.changes = ReadChanges();
    const std::string trace = io::ReadWholeFile(m_panel.Scratch("trace"), kLargestReport * 8);
    installation.isRefused = ("\n" + trace).find("\nrefused\t") != std::string::npos;
    installation.record = ReadRecord();
    return installation;
}

std::optional<TrialRecord> Trial::ReadRecord()
{
    m_panel.SetSeconds(kReadSeconds);
    const PanelResult read =
        m_panel.Run({}, {"cat", kRecords + m_recordName + "/installedFile.list"});
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
    terminal.Say(std::string("The package is ") + (isInstalled ? "" : "not ") +
                 "installed. This is a shell on the panel; leave it with 'exit'.");
    m_panel.SetSeconds(kShellSeconds);
    const PanelResult ended = m_panel.Run({"--summary-json", m_panel.Scratch("changes"), "--env",
                                           "PS1=panel:\\w# ", "--env", "HISTFILE="},
                                          {"sh", "-c", kShellScript}, &terminal);
    m_panel.SetSeconds(m_request.bounds.seconds);
    return {ended.status, ended.remarks, ReadChanges()};
}

PanelChanges Trial::ReadChanges() const
{
    const std::string path = m_panel.Scratch("changes");
    try {
        return ReadPanelChanges(io::ReadWholeFile(path, kLargestReport));
    } catch (const io::Error&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw io::Error(io::ExitCode::kNoAccess, m_request.device + "/run",
                        std::string("the device did not tell what changed: ") + error.what());
    }
}

} // namespace

std::string NamedPath(const std::string& path)
{
    struct stat info {
    };
    if (stat(path.c_str(), &info) != 0) {
        throw io::AccessError(path, "open", errno);
    }
    if (!S_ISDIR(info.st_mode) && !S_ISREG(info.st_mode)) {
        throw io::Error(io::ExitCode::kNoAccess, path, "is neither a file nor a folder",
                        "name a package or the folder of an unpacked one");
    }
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
        throw io::Error(io::ExitCode::kNoAccess, path, "is no package",
                        "name a package or the folder of an unpacked one");
    }
    return named;
}

std::string UnpackedFolder(const std::string& path, bool isArchive)
{
    const std::string extension = ".temp";
    const std::string inside = kDrive + fs::path(path).filename().string();
    if (isArchive) {
        return OSA_TrimExt(inside.c_str()) + extension;
    }
    const bool isUnpacked =
        inside.size() > extension.size() &&
        inside.compare(inside.size() - extension.size(), extension.size(), extension) == 0;
    return isUnpacked ? inside : inside + extension;
}

TrialResult RunTrial(const TrialRequest& request)
{
    // Outlives the trial: what was made is removed before the signal does its work.
    const io::Interruption interruption;
    return Trial(request).Run();
}

} // namespace kx::tool
