// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/StatusText.h"

#include "commands/DecisionText.h"
#include "commands/HistoryText.h"
#include "io/Hex.h"
#include "io/Text.h"

#include <ostream>
#include <vector>

namespace kx::guard
{

namespace
{

std::string Listed(const std::vector<std::string>& words)
{
    std::string list;
    for (const std::string& word : words) {
        list += (list.empty() ? "" : ", ") + io::Printable(word);
    }
    return list.empty() ? "none" : list;
}

const char* WordOf(SignatureRule rule)
{
    return rule == SignatureRule::kRequired ? "required" : "optional";
}

const char* WordOf(DowngradeRule rule)
{
    return rule == DowngradeRule::kRefuse ? "refuse" : "allow";
}

/// ", for TP-0700 only, revoked"
std::string BoundsOf(const signature::TrustedKey& key)
{
    std::string text;
    if (key.models.has_value()) {
        text += ", on the models " + Listed(*key.models);
    }
    if (key.packages.has_value()) {
        text += ", for the packages " + Listed(*key.packages);
    }
    if (key.isDamaged) {
        text += ", not trusted: the file beside it cannot be read";
    }
    return key.isRevoked ? text + ", revoked" : text;
}

void WriteKeys(const cli::Output& output, const Door& door, Language language)
{
    output.out << "keys:         " << io::CountText(door.keys.keys.size(), "key") << '\n';
    for (const signature::TrustedKey& key : door.keys.keys) {
        output.out << "  " << io::Printable(key.name) << ", " << KeyTypeName(key.key.Type()) << ' '
                   << io::Hex(key.key.Id()) << BoundsOf(key) << '\n';
    }
    WriteProblems(output, door.keys.problems, language);
}

void WritePolicy(const cli::Output& output, const Policy& policy)
{
    const format::PanelModel& model = policy.model;
    output.out << "panel:        " << Listed(model.models.value_or(std::vector<std::string>()))
               << ", system " << Listed(model.osVersions.value_or(std::vector<std::string>()))
               << ", " << (model.processor == nullptr ? "none" : model.processor->name) << '\n'
               << "signatures:   " << WordOf(policy.signatures) << '\n'
               << "downgrade:    " << WordOf(policy.downgrade) << '\n'
               << "state:        " << policy.state << '\n'
               << "updater:      " << policy.updater << '\n';
}

void WriteMemory(const cli::Output& output, const PanelStatus& status)
{
    output.out << "at work:      " << (status.isAtWork ? "an installation" : "nothing") << '\n';
    if (status.interrupted.has_value()) {
        output.out << "interrupted:  " << io::Printable(status.interrupted->name) << ' '
                   << io::Printable(status.interrupted->version)
                   << "; the next installation clears what it left\n";
    }
    output.out << "last:         " << (status.last.has_value() ? SummaryLine(*status.last) : "none")
               << '\n'
               << "installed:    " << io::CountText(status.versions.size(), "package")
               << ", by the highest version ever\n";
    for (const auto& [name, version] : status.versions) {
        output.out << "  " << io::Printable(name) << ' ' << io::Printable(version) << '\n';
    }
    for (const std::string& problem : status.problems) {
        output.out << Coloured(output, cli::Colour::kYellow, "Problem") << ": "
                   << io::Printable(problem) << '\n';
    }
}

picojson::value KnownTexts(const std::optional<std::vector<std::string>>& texts)
{
    return texts.has_value() ? cli::JsonTexts(*texts) : picojson::value();
}

picojson::value KeysAsJson(const Door& door)
{
    picojson::array keys;
    for (const signature::TrustedKey& key : door.keys.keys) {
        keys.emplace_back(picojson::object{
            {"damaged", picojson::value(key.isDamaged)},
            {"id", cli::JsonText(io::Hex(key.key.Id()))},
            {"models", KnownTexts(key.models)},
            {"name", cli::JsonText(key.name)},
            {"packages", KnownTexts(key.packages)},
            {"revoked", picojson::value(key.isRevoked)},
            {"type", cli::JsonText(KeyTypeName(key.key.Type()))},
        });
    }
    return picojson::value(keys);
}

picojson::value PolicyAsJson(const std::optional<Policy>& policy)
{
    if (!policy.has_value()) {
        return {};
    }
    const format::PanelModel& model = policy->model;
    return picojson::value(picojson::object{
        {"downgrade", cli::JsonText(WordOf(policy->downgrade))},
        {"models", KnownTexts(model.models)},
        {"osVersions", KnownTexts(model.osVersions)},
        {"processor",
         model.processor == nullptr ? picojson::value() : cli::JsonText(model.processor->name)},
        {"signatures", cli::JsonText(WordOf(policy->signatures))},
        {"state", cli::JsonText(policy->state)},
        {"updater", cli::JsonText(policy->updater)},
    });
}

picojson::value InterruptedAsJson(const std::optional<Begun>& begun)
{
    return begun.has_value()
               ? picojson::value(picojson::object{{"historyId", cli::JsonNumber(begun->historyId)},
                                                  {"name", cli::JsonText(begun->name)},
                                                  {"version", cli::JsonText(begun->version)}})
               : picojson::value();
}

} // namespace

void WriteStatus(const cli::Output& output, const PanelStatus& status, Language language)
{
    const bool isOpen = status.door.IsOpen();
    output.out << "door:         "
               << Coloured(output, isOpen ? cli::Colour::kGreen : cli::Colour::kRed,
                           isOpen ? "open" : "closed, no package is installed")
               << '\n';
    WriteReasons(output, status.door.reasons, language);
    if (status.door.policy.has_value()) {
        WritePolicy(output, *status.door.policy);
    }
    WriteKeys(output, status.door, language);
    if (status.door.policy.has_value()) {
        WriteMemory(output, status);
    }
}

picojson::object StatusAsJson(const PanelStatus& status)
{
    picojson::object versions;
    for (const auto& [name, version] : status.versions) {
        versions[name] = cli::JsonText(version);
    }
    return {
        {"atWork", picojson::value(status.isAtWork)},
        {"interrupted", InterruptedAsJson(status.interrupted)},
        {"keyProblems", ProblemsAsJson(status.door.keys.problems)},
        {"keys", KeysAsJson(status.door)},
        {"last", status.last.has_value() ? PastAsJson(*status.last, false) : picojson::value()},
        {"open", picojson::value(status.door.IsOpen())},
        {"panel", PolicyAsJson(status.door.policy)},
        {"problems", cli::JsonTexts(status.problems)},
        {"reasons", ReasonsAsJson(status.door.reasons)},
        {"versions", picojson::value(versions)},
    };
}

} // namespace kx::guard
