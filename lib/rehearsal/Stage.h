// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "rehearsal/Rehearsal.h"
#include "rehearsal/VirtualPanel.h"

#include <exception>
#include <string>
#include <vector>

namespace kx::rehearsal
{

/// Where the updater's code plays: its looks at files and its shell commands end here instead of
/// at the system, as long as a stage is up.
class Stage
{
public:
    Stage(VirtualPanel& panel, const archive::Package& package, Plan& plan);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage();

    /// The stage that is up, or null.
    [[nodiscard]] static Stage* Current();

    void SetProcess(PlannedCommand::Process process) { m_process = process; }
    void SetStep(int step) { m_step = step; }

    // What the updater's code does with files. Its C functions let no exception through: what goes
    // wrong here is kept, shows as something that is not there, and is thrown by the next command.

    [[nodiscard]] VirtualPanel::Kind LookAt(const std::string& path);
    [[nodiscard]] std::uint64_t SizeOf(const std::string& path);
    [[nodiscard]] VirtualPanel::Bytes ContentOf(const std::string& path);
    [[nodiscard]] std::vector<std::string> NamesIn(const std::string& folder);
    [[nodiscard]] bool MakeFile(const std::string& path);

    /// Keeps the error that is being handled.
    void Keep() noexcept;

    /// Plays one shell command.
    /// @return the status word that `system` would return
    /// @throws Error when something cannot be read, and when the plan becomes too large
    /// @throws UnknownCommand
    [[nodiscard]] int Run(const std::string& command);

    /// Tells whether the package has been unpacked.
    [[nodiscard]] bool IsUnpacked() const { return m_isUnpacked; }

    /// Tells whether the window can start an installer: it finds the unpacked folder by its name,
    /// and has another updater or finds one there that its user may execute.
    [[nodiscard]] bool CanStartUpdater(bool hasOther);

private:
    struct Known;
    static bool Fits(const Known& known, const std::string& command, std::string& first,
                     std::string& second);
    static const std::vector<Known>& FileCommands();
    static const std::vector<Known>& ToolCommands();
    [[nodiscard]] bool Play(PlannedCommand& planned);
    [[nodiscard]] bool CopyFolder(const std::string& from, const std::string& to);
    [[nodiscard]] bool Unpack(const std::string& folder);
    [[nodiscard]] const archive::PackageEntry* EntryBehind(const std::string& name) const;
    void CheckLimits();
    void RefuseEndless(const std::string& description) const;

    VirtualPanel& m_panel;
    const archive::Package& m_package;
    Plan& m_plan;
    PlannedCommand::Process m_process = PlannedCommand::Process::kWindow;
    int m_step = 0;
    bool m_isUnpacked = false;
    bool m_hasScriptRun = false;
    bool m_hasLooked = false; ///< at the panel's files, since the last command
    std::string m_unpacked;   ///< the folder of the unpacked package, with a '/' at its end
    std::uint64_t m_told = 0; ///< bytes of the plan
    std::exception_ptr m_failure;
};

} // namespace kx::rehearsal
