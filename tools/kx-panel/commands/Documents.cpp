// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Documents.h"

#include "cli/JsonDocument.h"
#include "decision/Reason.h"
#include "journal/PastInstallation.h"

#include <string>
#include <vector>

namespace kx::guard
{

namespace
{

using cli::Document;
using cli::Fields;
using cli::Shape;

const Shape kBothLanguages = {"inBoth",
                              {{"en", "text", "In English."}, {"ja", "text", "In Japanese."}}};

const Shape kReason = {"reason",
                       {{"id", "reasonWord", "Never changes."},
                        {"what", "inBoth", "What is wrong."},
                        {"remedy", "inBoth", "What to do about it."}}};

const Shape kFacts = {
    "facts",
    {{"name", "text?", "The signed name; of an unsigned package that of its file."},
     {"signer", "text?", "Name of the key whose signature counts; null when there is none."},
     {"title", "text?", "As the description says; null when it was not looked at."},
     {"version", "text?", "As the description says; null when it was not looked at."},
     {"model", "text?", "As the description says; null when it was not looked at."},
     {"osVersion", "text?", "As the description says; null when it was not looked at."},
     {"entries", "count?", "Number of files and folders; null when they were not looked at."},
     {"unpackedBytes", "count?", "Bytes of its files; null when they were not looked at."},
     {"signatureBytes", "count", "Bytes of its signatures; 0 for none."}}};

const Fields kDecision = {
    {"package", "text", "As it was named."},
    {"accepted", "flag", "The panel installs it."},
    {"reasons", "[reason]", "Why it does not, in the order in which packages are judged."},
    {"facts", "facts", "What the package says about itself, as far as it was looked at."},
    {"problems", "[text]", "Files in the folder of keys that are no keys."},
};

const Fields kPast = {
    {"id", "number", "Counted from the panel's first installation."},
    {"began", "status", "Seconds since 1970, as the panel's clock told."},
    {"file", "text", "The package's own file name."},
    {"name", "text?", "The signed name; null when it was not told."},
    {"version", "text?", "Null when it was not told."},
    {"signer", "text?", "Name of the key whose signature counts; null when there is none."},
    {"reasons", "[reason]", "Why it was refused."},
    {"result", "outcome", "What became of it."},
    {"status", "status?", "The exit status; null while it runs."},
    {"from", "speaker?", "Whose that is; null while it runs."},
    {"message", "text?", "What else there is to say; null when nothing."},
};

Document CheckDocument()
{
    return {"check",
            "Whether this panel would install a package.",
            {"check"},
            {{"check", kDecision}, kReason, kBothLanguages, kFacts}};
}

Document InstallDocument()
{
    return {
        "install",
        "What became of a package that was to be installed.",
        {"install"},
        {{"install",
          kDecision + Fields{{"result", "outcome", "What became of it."},
                             {"status", "status", "The exit status."},
                             {"from", "speaker", "Whose that is."},
                             {"message", "text?", "What else there is to say; null when nothing."},
                             {"historyId", "number?",
                              "Its number in the history; null when nothing was noted."}}},
         kReason,
         kBothLanguages,
         kFacts}};
}

Document StatusDocument()
{
    return {"status",
            "How the panel stands.",
            {"status"},
            {{"status",
              {{"open", "flag", "Packages are let in."},
               {"reasons", "[reason]", "Why none is."},
               {"panel", "panel?", "What it says about itself; null when that cannot be told."},
               {"keys", "[key]", "Those of its folder, by name."},
               {"keyProblems", "[text]", "Files in that folder that are no keys."},
               {"atWork", "flag", "An installation runs."},
               {"interrupted", "begun?", "One that did not come to its end; null for none."},
               {"last", "past?", "The last one; null for none."},
               {"versions", "{text}", "The highest version that was ever installed, by name."},
               {"problems", "[text]", "What is remembered and damaged."}}},
             {"panel",
              {{"models", "[text]?", "What it is."},
               {"osVersions", "[text]?", "Versions of its system."},
               {"processor", "text?", "Its processor."},
               {"signatures", "required|optional", "Whether packages must be signed."},
               {"downgrade", "refuse|allow", "What becomes of older versions."},
               {"state", "text", "The folder of what is remembered."},
               {"updater", "text", "The program that installs."}}},
             {"key",
              {{"name", "text", "Of its file, without .pem."},
               {"type", "ed25519|p256", "What kind of key it is."},
               {"id", "text", "The public key's identifier."},
               {"models", "[text]?", "On which it counts; null for all."},
               {"packages", "[text]?", "For which it counts; null for all."},
               {"revoked", "flag", "It does not count any more."},
               {"damaged", "flag", "The file beside it cannot be read: it does not count."}}},
             {"begun",
              {{"name", "text", "Of the package."},
               {"version", "text", "Of the package."},
               {"historyId", "count", "Its number in the history."}}},
             {"past", kPast},
             kReason,
             kBothLanguages}};
}

Document HistoryDocument()
{
    return {
        "history",
        "What was installed or refused; of one installation, all that is remembered.",
        {"list", "one"},
        {{"list",
          {{"entries", "[past]", "Newest first."},
           {"problems", "[text]", "Entries that are damaged."}}},
         {"one", {{"entry", "whole", "The installation."}}},
         {"past", kPast},
         {"whole", kPast + Fields{{"lines", "[line]", "What was printed."},
                                  {"omittedLines", "count", "How many are left out."},
                                  {"omittedAt", "count", "Before which of the lines, from 0."}}},
         {"line",
          {{"milliseconds", "count", "Since the updater's start."},
           {"text", "text", "Passwords are masked."}}},
         kReason,
         kBothLanguages}};
}

std::vector<Document> AllDocuments()
{
    return {CheckDocument(), cli::ErrorDocument(), HistoryDocument(), InstallDocument(),
            StatusDocument()};
}

/// The words of an enumeration that ends with kEnd.
template <class Word>
std::vector<std::string> AllWords(const char* (*wordOf)(Word))
{
    std::vector<std::string> words;
    words.reserve(static_cast<std::size_t>(Word::kEnd));
    for (int i = 0; i < static_cast<int>(Word::kEnd); ++i) {
        words.emplace_back(wordOf(static_cast<Word>(i)));
    }
    return words;
}

picojson::object ExitCodes()
{
    constexpr int kLast = 4;
    picojson::array codes;
    codes.reserve(kLast);
    for (int code = 1; code <= kLast; ++code) {
        codes.emplace_back(static_cast<double>(code));
    }
    return {{"enum", picojson::value(codes)}};
}

} // namespace

std::vector<std::string> DocumentNames()
{
    return cli::NamesOf(AllDocuments());
}

picojson::value DocumentSchema(const std::string& name)
{
    std::vector<std::string> outcomes = AllWords(OutcomeWord);
    outcomes.emplace_back("running");
    return cli::MakeDocumentSchema(
        AllDocuments(), name,
        {"kx-panel",
         "panel-json-",
         {{"exitCode", ExitCodes()},
          {"outcome", cli::OneOfWords(outcomes)},
          {"reasonWord", cli::OneOfWords(AllWords(ReasonWord))},
          {"speaker",
           cli::OneOfWords({SpeakerWord(Speaker::kPanel), SpeakerWord(Speaker::kUpdater)})}}});
}

} // namespace kx::guard
