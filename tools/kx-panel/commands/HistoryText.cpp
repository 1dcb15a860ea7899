// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/HistoryText.h"

#include "commands/DecisionText.h"
#include "io/Text.h"

#include <array>
#include <ctime>
#include <ostream>

namespace kx::guard
{

namespace
{

/// What the installation is called for people: by its name where it was told, else by its file.
std::string TitleOf(const PastInstallation& past)
{
    const std::string name = io::Printable(past.name.empty() ? past.file : past.name);
    return past.version.empty() ? name : name + " " + io::Printable(past.version);
}

const char* ResultWord(const PastInstallation& past)
{
    return past.ending.has_value() ? OutcomeWord(past.ending->outcome) : "running";
}

std::string ResultText(const PastInstallation& past)
{
    return past.ending.has_value() ? EndingLine(*past.ending) : ResultWord(past);
}

void WriteOmitted(const cli::Output& output, const PastInstallation& past)
{
    output.out << "    (" << io::CountText(past.omittedLines, "line") << " left out)\n";
}

void WriteLines(const cli::Output& output, const PastInstallation& past)
{
    constexpr std::uint64_t kMsPerSecond = 1000;
    for (std::size_t i = 0; i < past.lines.size(); ++i) {
        if (past.omittedLines != 0 && i == past.omittedAt) {
            WriteOmitted(output, past);
        }
        const PastLine& line = past.lines[i];
        output.out << "    " << line.milliseconds / kMsPerSecond << " s  "
                   << io::Printable(line.text) << '\n';
    }
    if (past.omittedLines != 0 && past.omittedAt >= past.lines.size()) {
        WriteOmitted(output, past);
    }
}

void WriteField(const cli::Output& output, const char* name, const std::string& value)
{
    if (!value.empty()) {
        output.out << "  " << name << io::Printable(value) << '\n';
    }
}

picojson::value InBoth(const std::string& english, const std::string& japanese)
{
    return picojson::value(
        picojson::object{{"en", cli::JsonText(english)}, {"ja", cli::JsonText(japanese)}});
}

picojson::value ReasonsOf(const PastInstallation& past)
{
    picojson::array list;
    for (const PastReason& reason : past.reasons) {
        list.emplace_back(picojson::object{{"id", cli::JsonText(reason.word)},
                                           {"remedy", InBoth(reason.remedy, reason.remedyJapanese)},
                                           {"what", InBoth(reason.what, reason.whatJapanese)}});
    }
    return picojson::value(list);
}

picojson::value LinesOf(const PastInstallation& past)
{
    picojson::array list;
    for (const PastLine& line : past.lines) {
        list.emplace_back(picojson::object{{"milliseconds", cli::JsonNumber(line.milliseconds)},
                                           {"text", cli::JsonText(line.text)}});
    }
    return picojson::value(list);
}

} // namespace

std::string MomentText(std::int64_t seconds)
{
    const auto moment = static_cast<std::time_t>(seconds);
    std::tm parts{};
    constexpr std::size_t kLongest = 64;
    std::array<char, kLongest> text{};
    if (gmtime_r(&moment, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts) == 0) {
        return std::to_string(seconds);
    }
    return text.data();
}

std::string EndingLine(const Ending& ending)
{
    const std::string word = OutcomeWord(ending.outcome);
    return ending.status == 0
               ? word
               : word + ", exit status " + std::to_string(ending.status) + " of " +
                     (ending.from == Speaker::kUpdater ? "the " : "") + SpeakerWord(ending.from);
}

std::string SummaryLine(const PastInstallation& past)
{
    return std::to_string(past.id) + "  " + MomentText(past.began) + "  " + TitleOf(past) + "  " +
           ResultText(past);
}

void WritePast(const cli::Output& output, const PastInstallation& past)
{
    const bool isFine = past.ending.has_value() && past.ending->outcome == Outcome::kInstalled;
    output.out << past.id << "  " << TitleOf(past) << ": "
               << Coloured(output, isFine ? cli::Colour::kGreen : cli::Colour::kRed,
                           ResultText(past))
               << '\n';
    WriteField(output, "began:     ", MomentText(past.began));
    WriteField(output, "file:      ", past.file);
    WriteField(output, "signed by: ", past.signer);
    WriteField(output, "message:   ", past.ending.has_value() ? past.ending->message : "");
    for (const PastReason& reason : past.reasons) {
        output.out << "  reason:    " << io::Printable(reason.what) << "  ["
                   << io::Printable(reason.word) << "]\n";
    }
    if (!past.lines.empty() || past.omittedLines != 0) {
        output.out << "  what was printed:\n";
        WriteLines(output, past);
    }
}

picojson::value PastAsJson(const PastInstallation& past, bool withLines)
{
    picojson::object told = {
        {"began", picojson::value(static_cast<double>(past.began))},
        {"file", cli::JsonText(past.file)},
        {"from", past.ending.has_value() ? cli::JsonText(SpeakerWord(past.ending->from))
                                         : picojson::value()},
        {"id", cli::JsonNumber(past.id)},
        {"message", cli::JsonTextOrNull(past.ending.has_value() ? past.ending->message : "")},
        {"name", cli::JsonTextOrNull(past.name)},
        {"reasons", ReasonsOf(past)},
        {"result", cli::JsonText(ResultWord(past))},
        {"signer", cli::JsonTextOrNull(past.signer)},
        {"status", past.ending.has_value()
                       ? picojson::value(static_cast<double>(past.ending->status))
                       : picojson::value()},
        {"version", cli::JsonTextOrNull(past.version)},
    };
    if (withLines) {
        told["lines"] = LinesOf(past);
        told["omittedAt"] = cli::JsonNumber(past.omittedAt);
        told["omittedLines"] = cli::JsonNumber(past.omittedLines);
    }
    return picojson::value(told);
}

} // namespace kx::guard
