// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "trial/BoundedText.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::tool
{

class ShellTerminal;

/// What a trial may use up.
struct TrialBounds {
    unsigned seconds = 600; ///< of each step of the trial
    unsigned memory = 4096; ///< MiB
    unsigned processes = 256;
    unsigned disk = 2048; ///< MiB of the panel's files
};

/// How a command on the panel ended.
struct PanelResult {
    int status = 0;          ///< its exit status
    bool isStopped = false;  ///< a bound was reached
    bool isTimeOver = false; ///< that of the time
    BoundedText out;
    std::vector<std::string> remarks; ///< what the device says about the run
};

/// What else belongs to the run of a command.
struct PanelTerms {
    ShellTerminal* terminal = nullptr;              ///< for a shell, or null
    std::function<void(std::string_view)> onOutput; ///< gets the command's output, or none
    std::function<void()> onMoment;                 ///< called several times a second, or none
};

/// A panel of the sandboxed device, for one trial: its files are kept in a temporary folder between
/// commands, and go with it, unless they get a place of their own.
class TrialPanel
{
public:
    /// @param device       folder of the sandboxed device
    /// @param environment  NAME=VALUE of what commands on the panel get besides the usual
    /// @param place        full path at which its files may be kept; empty for none. Until then
    /// they
    ///                     lie beside it
    /// @throws Error when the temporary folder cannot be made
    TrialPanel(std::string device, TrialBounds bounds, std::vector<std::string> environment,
               std::string place = {});
    TrialPanel(const TrialPanel&) = delete;
    TrialPanel& operator=(const TrialPanel&) = delete;
    /// Removes everything but what was kept.
    ~TrialPanel();

    /// Returns the path of a file of this machine, for the reports of the device.
    [[nodiscard]] std::string Scratch(const std::string& name) const
    {
        return m_folder + "/" + name;
    }

    /// Runs a command on the panel.
    /// @param options  further options for device/run
    /// @throws Error when the panel cannot be made, or the person ended the trial
    [[nodiscard]] PanelResult Run(const std::vector<std::string>& options,
                                  const std::vector<std::string>& command,
                                  const PanelTerms& terms = {});

    void SetSeconds(unsigned seconds) { m_bounds.seconds = seconds; }

    /// Keeps its files at the place for them: device/run --state starts from them.
    /// @return false when there are none, as no command was run
    /// @throws Error when that cannot be
    [[nodiscard]] bool Keep();

    /// Removes everything but what was kept.
    /// @throws Error when something stays
    void End();

private:
    [[nodiscard]] bool IsDiskFull();
    void RefuseToGoOn(int status, const std::string& remark) const;
    [[nodiscard]] std::string EraseState() const;
    [[nodiscard]] std::string State() const
    {
        return m_beside.empty() ? m_folder + "/panel" : m_beside;
    }
    /// The folder whose disk the panel's files use up.
    [[nodiscard]] const std::string& Used() const { return m_beside.empty() ? m_folder : m_beside; }

    std::string m_device;
    TrialBounds m_bounds;
    std::vector<std::string> m_environment;
    std::string m_folder;
    std::string m_place;  ///< where to keep the panel's files, or empty
    std::string m_beside; ///< where they lie until then, or empty
    bool m_isKept = false;
    std::uint64_t m_free = 0; ///< bytes of the disk before the trial
};

} // namespace kx::tool
