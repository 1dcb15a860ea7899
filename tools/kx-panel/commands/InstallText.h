// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Output.h"
#include "decision/Reason.h"
#include "io/Error.h"
#include "road/Install.h"

#include <picojson.h>

#include <string>
#include <vector>

namespace kx::guard
{

/// What became of a file that was to be installed.
struct Installed {
    std::string path; ///< as it was named
    Installation installation;
    std::vector<io::Error> problems{}; ///< files of the keys' folder that are no keys
};

/// Tells on the standard streams how an installation goes on, line by line; nothing where JSON is
/// wanted.
class RoadText final : public IRoadObserver
{
public:
    /// @param output  must live as long as the object
    explicit RoadText(const cli::Output& output) : m_output(output) {}

    void OnStep(RoadStep step) override;
    void OnLine(const std::string& line) override;
    void OnRemark(const std::string& text) override;

private:
    const cli::Output& m_output;
};

/// Writes what became of it, as a person reads it.
void WriteInstalled(const cli::Output& output, const Installed& installed, Language language);

/// Returns it as a JSON object: what the decision has, and "result", "status", "from", "message",
/// "historyId".
[[nodiscard]] picojson::object InstalledAsJson(const Installed& installed);

} // namespace kx::guard
