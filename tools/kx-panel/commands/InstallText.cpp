// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/InstallText.h"

#include "commands/DecisionText.h"
#include "commands/HistoryText.h"
#include "io/Text.h"

#include <ostream>

namespace kx::guard
{

namespace
{

const char* TextOf(RoadStep step)
{
    switch (step) {
    case RoadStep::kClearing:
        return "Looking for what an earlier installation left";
    case RoadStep::kLooking:
        return "Looking at the package";
    case RoadStep::kCopying:
        return "Copying the package";
    case RoadStep::kDeciding:
        return "Deciding";
    case RoadStep::kUnpacking:
        return "Unpacking";
    case RoadStep::kInstalling:
        break;
    }
    return "Installing";
}

Judged JudgedOf(const Installed& installed)
{
    return {installed.path, installed.installation.decision, installed.problems};
}

} // namespace

void RoadText::OnStep(RoadStep step)
{
    if (!m_output.isJson) {
        m_output.out << "== " << TextOf(step) << std::endl;
    }
}

void RoadText::OnLine(const std::string& line)
{
    if (!m_output.isJson) {
        m_output.out << io::Printable(line) << std::endl;
    }
}

void RoadText::OnRemark(const std::string& text)
{
    if (!m_output.isJson) {
        m_output.err << m_output.program << ": " << io::Printable(text) << std::endl;
    }
}

void WriteInstalled(const cli::Output& output, const Installed& installed, Language language)
{
    const Installation& done = installed.installation;
    if (done.ending.outcome == Outcome::kRefused) {
        WriteDecision(output, JudgedOf(installed), language);
    } else {
        const bool isFine = done.ending.outcome == Outcome::kInstalled;
        output.out << io::Printable(installed.path) << ": "
                   << Coloured(output, isFine ? cli::Colour::kGreen : cli::Colour::kRed,
                               EndingLine(done.ending))
                   << (done.decision.IsAccepted()
                           ? ": " + PackageText(done.decision.facts, language)
                           : "")
                   << '\n';
        if (!done.ending.message.empty()) {
            output.out << "   " << io::Printable(done.ending.message) << '\n';
        }
        WriteProblems(output, installed.problems, language);
    }
    if (done.historyId != 0) {
        output.out << "See \"kx-panel history " << done.historyId << "\".\n";
    }
}

picojson::object InstalledAsJson(const Installed& installed)
{
    const Installation& done = installed.installation;
    picojson::object told = DecisionAsJson(JudgedOf(installed));
    told["from"] = cli::JsonText(SpeakerWord(done.ending.from));
    told["historyId"] = done.historyId == 0 ? picojson::value() : cli::JsonNumber(done.historyId);
    told["message"] =
        done.ending.message.empty() ? picojson::value() : cli::JsonText(done.ending.message);
    told["result"] = cli::JsonText(OutcomeWord(done.ending.outcome));
    told["status"] = picojson::value(static_cast<double>(done.ending.status));
    return told;
}

} // namespace kx::guard
