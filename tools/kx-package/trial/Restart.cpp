// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/Restart.h"

#include "osa/PanelNames.h"

namespace kx::tool
{

namespace
{

constexpr unsigned kLookSeconds = 60;

// Exit statuses of the script that looks.
constexpr int kNoScript = 1;
constexpr int kNotExecutable = 2;

/// Looks whether a panel would start $0.
constexpr const char* kLookScript = R"([ -f "$0" ] || exit 1
[ -x "$0" ] || exit 2)";

/// Runs the start-up script $0; what it says as an error stands among the rest. Says which programs
/// it leaves behind, but with statuses that the device has for itself, too.
constexpr const char* kStartScript = R"(exec 3>&2 2>&1
"$0" 3>&-
status=$?
case $status in 2 | 124 | 125) exit "$status" ;; esac
sleep 0.5
for folder in /proc/[0-9]*; do
    number=${folder#/proc/}
    [ "$number" -ne 1 ] && [ "$number" -ne "$$" ] || continue
    words=$(tr '\0' ' ' 2>/dev/null <"$folder/cmdline")
    [ -z "$words" ] || echo "still runs in the background: ${words% }" >&3
done
exit "$status")";

} // namespace

Restart PlayRestart(TrialPanel& panel, unsigned seconds, unsigned usually,
                    const std::string& summary, const std::function<PanelChanges()>& readChanges)
{
    Restart restart;
    restart.seconds = seconds;
    panel.SetSeconds(kLookSeconds);
    const PanelResult looked = panel.Run({"--boot", "--no-startup"},
                                         {"sh", "-c", kLookScript, PanelNames::kStartupScript});
    if (looked.status == kNoScript || looked.status == kNotExecutable) {
        restart.script =
            looked.status == kNoScript ? StartupScript::kNone : StartupScript::kNotExecutable;
        panel.SetSeconds(usually);
        return restart;
    }
    panel.SetSeconds(seconds);
    const PanelResult ended = panel.Run(
        {"--summary-json", summary, "--trace", panel.Scratch("trace"), "--trace-programs"},
        {"sh", "-c", kStartScript, PanelNames::kStartupScript});
    panel.SetSeconds(usually);
    restart.script = ended.isTimeOver  ? StartupScript::kRunning
                     : ended.isStopped ? StartupScript::kStopped
                                       : StartupScript::kEnded;
    if (restart.script == StartupScript::kEnded) {
        restart.exitStatus = ended.status;
    }
    if (restart.script != StartupScript::kRunning) {
        restart.remarks = ended.remarks;
    }
    restart.output = ended.out;
    restart.changes = readChanges();
    return restart;
}

} // namespace kx::tool
