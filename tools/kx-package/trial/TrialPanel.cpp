// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/TrialPanel.h"

#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Text.h"
#include "trial/ChildProcess.h"
#include "trial/KeptPanel.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

// Exit statuses of device/run, when it says something itself.
constexpr int kDeviceUsage = 2;
constexpr int kDeviceTimeOver = 124;
constexpr int kDeviceNotMade = 125;

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

std::string MakeFolder()
{
    const char* const variable = std::getenv("TMPDIR");
    const std::string parent = variable != nullptr && *variable != '\0' ? variable : "/tmp";
    std::string folder = fs::absolute(parent) / "kx-package-try-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        throw io::AccessError(parent, "make a folder for the trial", errno);
    }
    return folder;
}

std::uint64_t FreeBytes(const std::string& folder)
{
    struct statvfs info {
    };
    return statvfs(folder.c_str(), &info) == 0 ? std::uint64_t{info.f_bavail} * info.f_frsize : 0;
}

/// Returns how many bytes of the disk the files of a folder take; all there are when some cannot be
/// looked at.
std::uint64_t UsedBytes(const std::string& folder)
{
    constexpr std::uint64_t kBlock = 512;
    std::uint64_t bytes = 0;
    std::error_code error;
    fs::recursive_directory_iterator place(folder, error);
    for (; !error && place != fs::recursive_directory_iterator(); place.increment(error)) {
        struct stat info {
        };
        if (lstat(place->path().c_str(), &info) == 0) {
            bytes += static_cast<std::uint64_t>(info.st_blocks) * kBlock;
        }
    }
    return error ? UINT64_MAX : bytes;
}

/// How long a device that was told to end may take: it may have much to tell about the panel, but
/// a person who interrupts does not wait for that. A device that is killed takes its panel along.
std::chrono::milliseconds Patience()
{
    constexpr std::chrono::milliseconds kToReport(40000);
    constexpr std::chrono::milliseconds kToGiveUp(20);
    return io::Interruption::IsAsked() ? kToGiveUp : kToReport;
}

/// What device/run says, without its name.
std::vector<std::string> Said(const BoundedText& err)
{
    const std::string name = "device/run: ";
    std::vector<std::string> lines = err.Lines();
    for (std::string& line : lines) {
        if (line.compare(0, name.size(), name) == 0) {
            line.erase(0, name.size());
        }
    }
    return lines;
}

} // namespace

void TrialPanel::RefuseToGoOn(int status, const std::string& remark) const
{
    const std::size_t help = remark.rfind("; see device/run --help");
    if (status == kDeviceUsage && help != std::string::npos) {
        throw io::Error(io::ExitCode::kWrongUse, m_device + "/run", remark.substr(0, help),
                        "see kx-package try --help");
    }
    if (status == kDeviceNotMade) {
        throw io::Error(io::ExitCode::kNoAccess, m_device + "/run", remark,
                        "without a sandboxed device nothing is installed");
    }
}

TrialPanel::TrialPanel(std::string device, TrialBounds bounds, std::vector<std::string> environment,
                       std::string place)
    : m_device(std::move(device)), m_bounds(bounds), m_environment(std::move(environment)),
      m_folder(MakeFolder()), m_place(std::move(place))
{
    if (!m_place.empty()) {
        try {
            m_beside = MakeFolderBeside(m_place);
        } catch (const io::Error&) {
            End(); // an object that is not whole has no destructor
            throw;
        }
    }
    m_free = FreeBytes(Used());
}

TrialPanel::~TrialPanel()
{
    try {
        End();
    } catch (const std::exception&) {
        // Another error is being told, and what stays lies where temporary files do.
        static_cast<void>(m_folder);
    }
}

bool TrialPanel::Keep()
{
    if (!GivePlace(m_beside, m_place)) {
        return false;
    }
    m_isKept = true;
    return true;
}

/// Removes the panel's files, which may belong to users that only the device can act for.
/// @return why some may have stayed, or nothing
std::string TrialPanel::EraseState() const
{
    std::string why;
    try {
        const ChildResult erased =
            RunChild({m_device + "/run", "--erase", "--state", State()}, [] { return true; });
        for (const std::string& line : Said(erased.err)) {
            why += why.empty() ? line : " " + line;
        }
    } catch (const io::Error& error) {
        why = error.what();
    }
    return why;
}

void TrialPanel::End()
{
    if (m_folder.empty()) {
        return;
    }
    const std::string why = m_isKept ? std::string() : EraseState();
    const std::string beside = m_isKept ? std::string() : std::exchange(m_beside, {});
    const std::string folder = std::exchange(m_folder, {});
    std::string stays;
    std::error_code reason;
    for (const std::string& path : {folder, beside}) {
        std::error_code error;
        fs::remove_all(path, error);
        if (error) {
            stays = path;
            reason = error;
        }
    }
    if (!stays.empty()) {
        throw io::Error(io::ExitCode::kNoAccess, stays,
                        "cannot remove the files of the trial: " +
                            (why.empty() ? reason.message() : why));
    }
}

bool TrialPanel::IsDiskFull()
{
    const std::uint64_t limit = m_bounds.disk * kMiB;
    const std::uint64_t now = FreeBytes(Used());
    if (now >= m_free || m_free - now <= limit) {
        return false;
    }
    // Others use the disk, too: count what is the panel's.
    const std::uint64_t used = UsedBytes(Used());
    if (used > limit) {
        return true;
    }
    m_free = now + used;
    return false;
}

PanelResult TrialPanel::Run(const std::vector<std::string>& options,
                            const std::vector<std::string>& command, const PanelTerms& terms)
{
    std::vector<std::string> words = {m_device + "/run",
                                      "--state",
                                      State(),
                                      "--seconds",
                                      std::to_string(m_bounds.seconds),
                                      "--memory",
                                      std::to_string(m_bounds.memory),
                                      "--processes",
                                      std::to_string(m_bounds.processes)};
    for (const std::string& variable : m_environment) {
        words.insert(words.end(), {"--env", variable});
    }
    words.insert(words.end(), options.begin(), options.end());
    words.emplace_back("--");
    words.insert(words.end(), command.begin(), command.end());

    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLook(250);
    Clock::time_point next = Clock::now();
    bool isFull = false;
    const ChildResult ended = RunChild(words,
                                       [this, &next, &isFull, &terms, kLook] {
                                           if (terms.onMoment) {
                                               terms.onMoment();
                                           }
                                           if (Clock::now() >= next) {
                                               next = Clock::now() + kLook;
                                               isFull = isFull || IsDiskFull();
                                           }
                                           return !isFull && !io::Interruption::IsAsked();
                                       },
                                       {terms.terminal, terms.onOutput, Patience});
    if (io::Interruption::IsAsked()) {
        throw io::Error(io::ExitCode::kNoAccess, "", "the trial was interrupted");
    }

    PanelResult result;
    result.status = ended.status;
    result.out = ended.out;
    result.remarks = Said(ended.err);
    const bool hasSaid = !result.remarks.empty();
    if (hasSaid && !isFull) {
        RefuseToGoOn(ended.status, result.remarks.back());
    }
    if (isFull) {
        result.remarks = {"ended because the panel's files take more than " +
                          std::to_string(m_bounds.disk) + " MiB; see --disk"};
    }
    result.isTimeOver = !isFull && hasSaid && ended.status == kDeviceTimeOver;
    result.isStopped = isFull || result.isTimeOver;
    return result;
}

} // namespace kx::tool
