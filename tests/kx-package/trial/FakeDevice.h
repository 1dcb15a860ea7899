// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "support/Environment.h"
#include "support/TempDir.h"

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace kx::tool
{

/// A folder with a program in the place of the device's, which installs nothing, and a folder for
/// the files of a trial.
class FakeDevice
{
public:
    /// @param body  of the shell script that stands for the device; with "--state DIR" it has made
    ///              that folder, and in $state, $seconds, $summary and $trace are the values of its
    ///              options
    explicit FakeDevice(const std::string& body)
    {
        constexpr unsigned kExecutable = 0755;
        m_dir.MakeDir("temporary");
        m_dir.Write("device/run",
                    "#!/bin/sh\n"
                    "printf '%s\\n' \"$*\" >>\"${0%/*}/calls\"\n"
                    "case $1 in --erase) rm -rf \"$3\"; exit 0 ;; esac\n"
                    "while [ $# -gt 0 ]; do\n"
                    "    case $1 in\n"
                    "        --state) state=$2 ;;\n"
                    "        --seconds) seconds=$2 ;;\n"
                    "        --summary-json) summary=$2 ;;\n"
                    "        --trace) trace=$2 ;;\n"
                    "        --) break ;;\n"
                    "    esac\n"
                    "    shift\n"
                    "done\n"
                    "mkdir -p \"$state\"\n" +
                        body,
                    kExecutable);
    }

    [[nodiscard]] std::string Folder() const { return m_dir / "device"; }

    /// The words of each call; "STATE" stands for the folder with the panel's files.
    [[nodiscard]] std::vector<std::string> Calls() const
    {
        std::vector<std::string> calls;
        std::istringstream lines(ReadFile(m_dir / "device/calls"));
        for (std::string line; std::getline(lines, line);) {
            const std::size_t at = line.find(m_dir / "temporary");
            const std::size_t end = line.find("/panel", at);
            calls.push_back(line.replace(at, end + 6 - at, "STATE"));
        }
        return calls;
    }

    /// Tells whether nothing of a trial is left.
    [[nodiscard]] bool IsClean() const { return std::filesystem::is_empty(m_dir / "temporary"); }

private:
    TempDir m_dir;
    Environment m_temporary{"TMPDIR", (m_dir / "temporary").c_str()};
};

/// What a device does whose panel fills the disk, and that ends with 0 all the same as soon as it
/// is told to end. It gives up by itself, too.
inline const std::string kFillsTheDisk = "trap 'exit 0' TERM\n"
                                         "for i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15; do\n"
                                         "    head -c 20000000 /dev/zero >>\"$state/full\"\n"
                                         "    sleep 0.2\n"
                                         "done\n";

} // namespace kx::tool
