// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/DecisionText.h"

#include "io/Text.h"

#include <cstdint>
#include <ostream>

namespace kx::guard
{

namespace
{

/// The words around what is told, in one language.
struct DecisionWords {
    const char* accepted;
    const char* refused;
    const char* signedBy;
    const char* isUnsigned;
    const char* remark;
};

const DecisionWords& WordsOf(Language language)
{
    static constexpr DecisionWords kEnglish = {"would be installed", "refused", ", signed by ",
                                               ", not signed", "Remark: "};
    static constexpr DecisionWords kJapanese = {"インストールできます", "インストールできません",
                                                "、署名: ", "、署名なし", "備考: "};
    return language == Language::kJapanese ? kJapanese : kEnglish;
}

picojson::value KnownNumber(std::uint64_t number)
{
    return number == 0 ? picojson::value() : cli::JsonNumber(number);
}

picojson::value FactsAsJson(const PackageFacts& facts)
{
    return picojson::value(picojson::object{
        {"entries", KnownNumber(facts.entries)},
        {"model", cli::JsonTextOrNull(facts.model)},
        {"name", cli::JsonTextOrNull(facts.name)},
        {"osVersion", cli::JsonTextOrNull(facts.osVersion)},
        {"signatureBytes", cli::JsonNumber(facts.blockSize)},
        {"signer", cli::JsonTextOrNull(facts.signer)},
        {"title", cli::JsonTextOrNull(facts.title)},
        {"unpackedBytes", KnownNumber(facts.unpackedBytes)},
        {"version", cli::JsonTextOrNull(facts.version)},
    });
}

/// A text in both languages.
picojson::value InBoth(std::string (*text)(const Reason&, Language), const Reason& reason)
{
    return picojson::value(
        picojson::object{{"en", cli::JsonText(text(reason, Language::kEnglish))},
                         {"ja", cli::JsonText(text(reason, Language::kJapanese))}});
}

} // namespace

picojson::value KnownText(const std::string& text)
{
    return text.empty() ? picojson::value() : cli::JsonText(text);
}

std::string PackageText(const PackageFacts& facts, Language language)
{
    const DecisionWords& words = WordsOf(language);
    const std::string signer =
        facts.signer.empty() ? words.isUnsigned : words.signedBy + io::Printable(facts.signer);
    return io::Printable(facts.title) + " " + io::Printable(facts.version) + " (" +
           io::Printable(facts.name) + ")" + signer;
}

void WriteReasons(const cli::Output& output, const std::vector<Reason>& reasons, Language language)
{
    std::size_t number = 0;
    for (const Reason& reason : reasons) {
        output.out << ++number << ". " << WhatText(reason, language) << "  "
                   << Coloured(output, cli::Colour::kGrey,
                               "[" + std::string(ReasonWord(reason.id)) + "]")
                   << "\n   " << RemedyText(reason, language) << '\n';
    }
}

void WriteProblems(const cli::Output& output, const std::vector<io::Error>& problems,
                   Language language)
{
    const DecisionWords& words = WordsOf(language);
    for (const io::Error& problem : problems) {
        output.out << words.remark << io::Printable(problem.Line()) << '\n';
    }
}

void WriteDecision(const cli::Output& output, const Judged& judged, Language language)
{
    const DecisionWords& words = WordsOf(language);
    const Decision& decision = judged.decision;
    output.out << io::Printable(judged.path) << ": "
               << (decision.IsAccepted() ? Coloured(output, cli::Colour::kGreen, words.accepted) +
                                               ": " + PackageText(decision.facts, language)
                                         : Coloured(output, cli::Colour::kRed, words.refused))
               << '\n';
    WriteReasons(output, decision.reasons, language);
    WriteProblems(output, judged.problems, language);
}

picojson::value ReasonsAsJson(const std::vector<Reason>& reasons)
{
    picojson::array list;
    for (const Reason& reason : reasons) {
        list.emplace_back(picojson::object{{"id", cli::JsonText(ReasonWord(reason.id))},
                                           {"remedy", InBoth(RemedyText, reason)},
                                           {"what", InBoth(WhatText, reason)}});
    }
    return picojson::value(list);
}

picojson::value ProblemsAsJson(const std::vector<io::Error>& problems)
{
    std::vector<std::string> lines;
    lines.reserve(problems.size());
    for (const io::Error& problem : problems) {
        lines.push_back(problem.Line());
    }
    return cli::JsonTexts(lines);
}

picojson::object DecisionAsJson(const Judged& judged)
{
    return {{"accepted", picojson::value(judged.decision.IsAccepted())},
            {"facts", FactsAsJson(judged.decision.facts)},
            {"package", cli::JsonText(judged.path)},
            {"problems", ProblemsAsJson(judged.problems)},
            {"reasons", ReasonsAsJson(judged.decision.reasons)}};
}

} // namespace kx::guard
