// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "schema/JsonSchemas.h"

#include "cli/JsonDocument.h"
#include "format/Kinds.h"

#include <utility>

namespace kx::tool
{

namespace
{

using cli::Document;
using cli::Field;
using cli::Fields;
using cli::Shape;

// ---- what several documents have ----

const Fields kFindings = {
    {"clean", "flag", "No problems were found."},
    {"errors", "count", "How many errors."},
    {"warnings", "count", "How many warnings."},
    {"notes", "count", "How many notes."},
    {"findings", "[finding]", "What was found, at most 100 of a kind."},
    {"omitted", "{count}", "How many more there are, by identifier."},
};

const Shape kFinding = {"finding",
                        {{"id", "text", "Never changes."},
                         {"severity", "error|warning|note", "How bad it is."},
                         {"place", "place", "Where it is; empty for the package as a whole."},
                         {"message", "text", "What is wrong there."},
                         {"happens", "text", "What a panel makes of it."},
                         {"remedy", "text", "What to do about it."}}};

const Shape kPlace = {"place",
                      {{"file?", "text", "An entry of the package, or the manifest."},
                       {"path?", "text", "The value in the description."},
                       {"line?", "number", "Counted from 1."},
                       {"column?", "number", "Counted from 1."}}};

const Shape kRecordProblem = {
    "problem",
    {{"id", "text", "Never changes."}, {"message", "text", "What is wrong with the record."}}};

const Fields kIdentity = {
    {"name", "text", "Of the record."},
    {"title", "text?", "As the description says; null when that cannot be read."},
    {"version", "text?", "As the description says; null when that cannot be read."},
    {"comment", "text?", "As the description says; null when that cannot be read."},
    {"model", "text?", "As the description says; null when that cannot be read."},
    {"osVersion", "text?", "As the description says; null when that cannot be read."},
    {"date", "text?", "As the description says; null when that cannot be read."},
    {"problems", "[problem]", "What is wrong with the record."},
    {"omittedProblems", "count", "How many more damaged lines there are."},
};

const Shape kFact = {"fact",
                     {{"name", "text", "Of what."},
                      {"before", "text?", "What the first one says; null when nothing."},
                      {"after", "text?", "What the second one says; null when nothing."}}};

const Shape kNamed = {"named",
                      {{"name", "text", "Of what."}, {"change", "text", "What became of it."}}};

const Field kFastFolders = {"fastFolders", "[fastFolder]",
                            "Folders that come as one file, which a script unpacks."};

const Shape kFastFolder = {
    "fastFolder",
    {{"step", "number", "That copies the file; the next one unpacks it."},
     {"source", "text", "Where the author had the folder."},
     {"target", "text", "Where it goes on the panel."},
     {"archive", "text", "The file on the panel until it is unpacked."},
     {"archiveSize", "count", "Its bytes."},
     {"fileCount", "count", "Number of files in it."},
     {"isRecorded", "flag", "The uninstall script knows its files."},
     {"folders", "[text]", "Folders on the panel, where the script knows them."},
     {"files", "[text]", "Files on the panel, where the script knows them."}}};

const Fields kMadeFile = {{"file", "text", "The file that was made."}};

// ---- the documents ----

Document Build()
{
    return {"build",
            "What was built, and what the check of it found.",
            {"build"},
            {{"build", Fields{{"file", "text", "The package."},
                              {"size", "count", "Its bytes."},
                              {"unpackedSize", "count", "Bytes of its files."},
                              {"payloadFiles", "count", "Number of files of the payload."},
                              {"updater", "text", "The updater that was put in."},
                              {"remarks", "[text]", "What the manifest may mean otherwise."}} +
                           kFindings},
             kFinding,
             kPlace}};
}

Document Check()
{
    const Fields package = Fields{{"package", "text", "As it was named."}} + kFindings;
    return {"check",
            "What was found; of several packages a list.",
            {"check", "several"},
            {{"check", package},
             {"several",
              {{"clean", "flag", "No package has problems."},
               {"packages", "[package]", "In the order in which they were named."}}},
             {"package", package},
             kFinding,
             kPlace}};
}

Document Diff()
{
    return {"diff",
            "What is different between two packages.",
            {"diff"},
            {{"diff",
              {{"before", "text", "The first one, as it was named."},
               {"after", "text", "The second one."},
               {"isSame", "flag", "A panel makes no difference between them."},
               {"identity", "[fact]", "Title and so on."},
               {"steps", "[step]", "Steps that differ."},
               {"settings", "[fact]", "Settings that differ."},
               {"files", "[file]", "Files that come to the panel."},
               {"unused", "[file]", "Files that no step copies."},
               {"kept", "[kept]", "What a panel with the first one keeps."}}},
             kFact,
             {"step",
              {{"change", "added|gone|changed", "What became of the step."},
               {"before", "number?", "Its number in the first one, from 1."},
               {"after", "number?", "Its number in the second one."},
               {"kind", "stepKind", "What the step does."},
               {"facts", "[fact]", "What differs in it."},
               {"scripts", "[script]", "Scripts that differ."}}},
             {"script",
              {{"name", "install|uninstall|start-up", "Which script."},
               {"unified", "text", "The difference, as unified text."}}},
             {"file",
              {{"path", "text", "On the panel, or in the package."},
               {"change", "added|gone|changed", "What became of it."},
               {"before", "content?", "In the first one."},
               {"after", "content?", "In the second one."},
               {"isContentChanged", "flag", "Its bytes differ."}}},
             {"content", {{"size", "count", "Bytes."}, {"mode", "text", "Octal digits."}}},
             {"kept",
              {{"path", "text", "On the panel."},
               {"kind", "file|folder", "What it is."},
               {"isRecorded", "flag", "It is in the first one's record."}}}}};
}

Document Installed()
{
    return {"installed",
            "The packages that a panel has recorded.",
            {"installed"},
            {{"installed",
              {{"root", "text", "The folder with the panel's files."},
               {"registry", "text", "The folder of the records there."},
               {"packages", "[record]", "By the names of their records."},
               {"foreign", "[foreign]", "What else is among the records."}}},
             {"record", kIdentity + Fields{kFastFolders,
                                           {"folders", "count?", "Folders that it lists."},
                                           {"files", "count?", "Files that it lists."}}},
             kFastFolder,
             {"foreign",
              {{"name", "text", "Of what is no record."}, {"message", "text", "Why it is none."}}},
             kRecordProblem}};
}

Document New()
{
    return {"new",
            "The folder that a package was begun in.",
            {"new"},
            {{"new",
              {{"folder", "text", "As it was named."},
               {"files", "[text]", "What was made in it."},
               {"taken", "[text]", "What was there, and is copied by the manifest."},
               {"remarks", "[text]", "What was left out, and why."}}}}};
}

Document Plan()
{
    return {"plan",
            "What a panel would do with a package.",
            {"plan"},
            {{"plan",
              {{"packageFile", "text", "The package on the panel."},
               {"record", "text", "The folder of its record there."},
               {"found", "flag", "The window finds it."},
               {"unpacked", "flag", "The window unpacks it."},
               {"aborted", "flag", "The window ends without a word."},
               {"shown", "flag", "The window shows what it is."},
               {"started", "flag", "The installer starts."},
               {"failedStep", "number?", "The step that fails, from 1."},
               {"installed", "flag", "It is installed at the end."},
               {"commands", "[command]", "In the order in which they are run."},
               {"log", "[text]", "The installer's own lines."},
               kFastFolders,
               {"recordedFolders", "[text]", "Folders in its record."},
               {"recordedFiles", "[text]", "Files in its record."}}},
             kFastFolder,
             {"command",
              {{"process", "window|installer", "Which one runs it."},
               {"step", "number?", "For which step, from 1."},
               {"command", "text", "As the shell gets it."},
               {"commandHex", "text?", "Its bytes, where it is no UTF-8."},
               {"afterScript", "flag", "Whether it is run depends on an earlier script."},
               {"readDifferently", "flag", "To the shell it is more than a text."},
               {"unknownResult", "flag", "It may fail on the panel."}}}}};
}

const Shape kSignature = {
    "signature",
    {{"name", "text?", "The package's name that is signed; null when that cannot be read."},
     {"problem", "text?", "What is wrong with them; null when nothing."},
     {"signers", "[signer]", "In the order of their identifiers."}}};
const Shape kSigner = {
    "signer",
    {{"keyId", "text", "The public key's identifier."},
     {"key", "text?", "The key's name; null when no key is known by it."},
     {"state", "good|limited|unknown|revoked|damaged|bad", "What its signature is worth."}}};

Document Show()
{
    return {
        "show",
        "What is in a package.",
        {"show"},
        {{"show",
          {{"package", "text", "As it was named."},
           {"isArchive", "flag", "It is an archive, or would be one."},
           {"recordName", "text", "The name of its record on a panel."},
           {"title", "text", "As the description says; empty when it does not."},
           {"version", "text", "As the description says; empty when it does not."},
           {"comment", "text", "As the description says; empty when it does not."},
           {"model", "text", "As the description says; empty when it does not."},
           {"osVersion", "text", "As the description says; empty when it does not."},
           {"date", "text", "As the description says; empty when it does not."},
           {"updater", "updater?", "The updater in it."},
           {"payload", "sum", "What is in it besides."},
           {"signature", "signature?", "Its signatures; null when it has none."},
           {"steps", "[step]", "In the order in which a panel executes them."},
           kFastFolders,
           {"recorded", "recorded", "What a fresh panel records."}}},
         {"updater",
          {{"size", "count", "Bytes."},
           {"isExecutable", "flag", "A panel can start it."},
           {"processor", "text?", "What it is for; null when it is no program."}}},
         kFastFolder,
         {"sum", {{"files", "count", "Number of files."}, {"size", "count", "Their bytes."}}},
         kSignature,
         kSigner,
         {"step",
          {{"kind", "stepKind", "What the step does."},
           {"id", "text", "The kind as the description says it."},
           {"comment", "text", "For people."},
           {"canSkip", "flag", "What fails is reported and passed over."},
           {"isRecorded", "flag", "What it creates is recorded."},
           {"items", "[item]", "What it copies."},
           {"install", "text", "The script; of other steps empty."},
           {"uninstall", "text", "Its counterpart."},
           {"settings", "[setting]", "What it sets."}}},
         {"item",
          {{"source", "text", "Where the author had it."},
           {"target", "text", "Where it goes on the panel."},
           {"mode", "text", "For chmod; empty means 777, and of folders nothing."},
           {"isMissing", "flag", "There is no payload for it."},
           {"files", "count", "Number of files."},
           {"size", "count", "Their bytes."}}},
         {"setting",
          {{"kind", "settingKind", "What is set."},
           {"id", "text", "The kind as the description says it."},
           {"isUsed", "flag", "A panel does not pass it over."},
           {"items", "[value]", "In the order in which the panel gets them."}}},
         {"value", {{"name", "text", "Of the value."}, {"value", "text", "Passwords are masked."}}},
         {"recorded",
          {{"folders", "[text]", "Folders that the record lists."},
           {"files", "[text]", "Files that it lists."},
           {"why", "text?", "Why nothing is recorded."}}}}};
}

Document Unpack()
{
    return {"unpack",
            "The sources that were made of a package.",
            {"unpack"},
            {{"unpack",
              {{"folder", "text", "As it was named."},
               {"manifest", "text", "The manifest's name in it."},
               {"payloadFiles", "count", "Number of files of the payload."},
               {"size", "count", "Bytes that were written."},
               {"verbatimSteps", "[number]", "Steps that are taken as they are, from 1."},
               {"remarks", "[text]", "What is not as in the package."}}}}};
}

Document Verify()
{
    return {
        "verify",
        "How a record and a panel's files agree.",
        {"verify"},
        {{"verify", kIdentity + Fields{{"root", "text", "The folder with the panel's files."},
                                       {"record", "text", "The folder of the record there."},
                                       kFastFolders,
                                       {"folders", "tally", "Folders that are recorded."},
                                       {"files", "tally", "Files that are recorded."},
                                       {"deviations", "[deviation]", "What is not as recorded."},
                                       {"omittedDeviations", "count", "How many more there are."}}},
         kFastFolder,
         {"tally",
          {{"recorded", "count", "How many."},
           {"present", "count", "How many of them are there."},
           {"missing", "count", "How many are not."},
           {"otherKind", "count", "How many are something else now."},
           {"unknown", "count", "How many could not be looked at."}}},
         {"deviation",
          {{"path", "text", "On the panel."},
           {"kind", "file|folder", "As it is recorded."},
           {"line", "number?", "Of the record's list, from 1; null of what a script unpacked."},
           {"state", "missing|other-kind|unknown", "What became of it."},
           {"found", "text", "What is there instead, or why that is not known."}}},
         kRecordProblem}};
}

Document Stick()
{
    return {
        "stick",
        "How a package came to a drive.",
        {"stick"},
        {{"stick", Fields{{"package", "text", "As it was named."},
                          {"drive", "drive", "Where it goes."},
                          {"needed", "needed", "The room that it takes there."},
                          {"others", "[other]", "What a panel would stumble over on the drive."},
                          {"problems", "[problem]", "Why nothing was written."},
                          {"ready", "flag", "The package is on the drive and was read back."},
                          {"written", "flag", "It was written; else it was there already."},
                          {"readBack", "drive|memory?", "From where it was read back."}} +
                       kFindings},
         {"drive",
          {{"folder", "text", "As it was named."},
           {"fileSystem", "text", "Its type."},
           {"source", "text", "What is mounted there."},
           {"size", "count", "Bytes in all."},
           {"free", "count", "Bytes that are free."},
           {"doubts", "[text]", "Why a panel may not read it."}}},
         {"needed",
          {{"package", "count", "Bytes of the package, in whole blocks."},
           {"unpacked", "count", "Bytes of what a panel unpacks there."},
           {"files", "count", "Number of files and folders."}}},
         {"other",
          {{"name", "text", "On the drive."},
           {"kind", "text", "What it is to a panel."},
           {"size", "count", "Bytes."},
           {"removed", "flag", "It was removed."}}},
         {"problem",
          {{"place", "text", "Where it is."},
           {"message", "text", "What is wrong."},
           {"remedy", "text", "What to do about it; or empty."}}},
         kFinding,
         kPlace}};
}

Document Key()
{
    return {"key",
            "The keys that were made.",
            {"key"},
            {{"key",
              {{"private", "text", "The file of the private key."},
               {"public", "text", "The file of the public key."},
               {"type", "ed25519|p256", "Of the keys."},
               {"keyId", "text", "The public key's identifier."},
               {"isEncrypted", "flag", "A passphrase protects the private key."}}}}};
}

Document Sign()
{
    return {"sign",
            "What became of a package's signatures.",
            {"sign"},
            {{"sign",
              {{"file", "text", "The package."},
               {"isChanged", "flag", "It was written; else nothing was to be done."},
               {"keyId?", "text", "Of the key that signed."},
               {"keyIds?", "[text]", "Of all keys whose signatures it has."},
               {"name?", "text", "The package's name that is signed."},
               {"length?", "count", "The bytes that are signed."},
               {"sha256?", "text", "Their digest."}}}}};
}

/// What the program says about steps and programs of a trial.
std::vector<Shape> TrialShapes()
{
    return {{"failedStep",
             {{"step", "number", "Counted from 1."},
              {"kind", "text?", "What the step does."},
              {"command", "text?", "The command that failed."},
              {"why", "text?", "Why, as far as it is known."},
              {"failures", "count", "How often something in it failed."},
              {"skipped", "flag", "The installation went on."}}},
            {"program",
             {{"path", "text", "On the panel."},
              {"processor", "text", "What it is for."},
              {"step", "number?", "The step that started it."},
              {"canRun", "flag", "This machine can run it."},
              {"missingLoader", "text?", "The loader that the panel lacks for it."}}}};
}

Document Try()
{
    const Fields verdict = {{"verdict", "installed|not installed|not judged", "What it came to."},
                            {"reason", "text?", "Why it cannot be judged."}};
    const Fields changes = {{"files", "[file]", "Files and folders that changed."},
                            {"settings", "[fact]", "Settings that changed."},
                            {"users", "[named]", "Users that changed."},
                            {"records", "[named]", "Records that changed."},
                            {"rebootAsked", "flag", "A reboot was asked for."}};
    Document document = {
        "try",
        "What an installation on a sandboxed panel changed.",
        {"try"},
        {{"try", Fields{{"package", "text", "As it was named."},
                        {"recordName", "text", "The name of its record."},
                        {"installed", "flag", "It was installed, the last time."},
                        {"installations", "[installation]", "One, or two."},
                        {"restart", "restart?", "The restart of the panel behind them."},
                        {"kept", "text?", "The folder with the panel, as it was named."},
                        {"shell", "shell?", "The visit by a shell."}} +
                     verdict},
         {"restart", Fields{{"script", "none|notExecutable|ended|running|stopped",
                             "What became of the start-up script."},
                            {"exitStatus", "status?", "Of the script."},
                            {"seconds", "count", "The time that it was given."},
                            {"remarks", "[text]", "What is to be known besides."},
                            {"output", "[text]", "What it printed."},
                            {"outputOmitted", "count", "How many bytes of it are left out."}} +
                         changes},
         {"installation",
          Fields{{"unpacked", "flag", "The package was unpacked."},
                 {"failedSteps", "[failedStep]", "Steps in which something failed."},
                 {"programs", "[program]", "Programs for other processors."},
                 {"installed", "flag", "It was installed."},
                 {"exitCode", "status?", "Of the updater."},
                 {"remarks", "[text]", "What is to be known besides."},
                 {"log", "[text]", "What the updater printed."},
                 {"logOmitted", "count", "How many lines of it are left out."},
                 {"record", "record?", "What the panel recorded."}} +
              verdict + changes},
         {"shell", Fields{{"exitStatus", "status", "Of the shell."},
                          {"remarks", "[text]", "What is to be known besides."}} +
                       changes},
         {"record",
          {{"folders", "[text]", "Folders that it lists."},
           {"files", "[text]", "Files that it lists."}}},
         {"file",
          {{"change", "text", "What became of it."},
           {"path", "text", "On the panel."},
           {"mode?", "text", "Octal digits."},
           {"type?", "text", "The first letter of what ls shows: - for a file, d for a folder."},
           {"owner?", "text", "The user's name."},
           {"group?", "text", "The group's name."},
           {"size?", "count", "Bytes."},
           {"target?", "text", "Where a link leads."}}},
         kFact,
         kNamed}};
    for (Shape& shape : TrialShapes()) {
        document.shapes.push_back(std::move(shape));
    }
    return document;
}

std::vector<Document> AllDocuments()
{
    return {Build(),
            Check(),
            Diff(),
            cli::ErrorDocument(),
            Installed(),
            Key(),
            New(),
            {"new-panel", "The description that was begun.", {"made"}, {{"made", kMadeFile}}},
            Plan(),
            {"schema", "The schema that was written to a file.", {"made"}, {{"made", kMadeFile}}},
            Show(),
            Sign(),
            Stick(),
            Try(),
            Unpack(),
            Verify()};
}

// ---- the schemas ----

template <class Kind>
picojson::object OneOfKinds(const std::vector<const Kind*>& kinds)
{
    std::vector<std::string> names = format::NamesOf(kinds);
    names.emplace_back("unknown");
    return cli::OneOfWords(names);
}

} // namespace

std::vector<std::string> JsonDocumentNames()
{
    return cli::NamesOf(AllDocuments());
}

picojson::value MakeJsonSchema(const std::string& name)
{
    return cli::MakeDocumentSchema(AllDocuments(), name,
                                   {"kx-package",
                                    "json-",
                                    {{"stepKind", OneOfKinds(format::StepKinds())},
                                     {"settingKind", OneOfKinds(format::SettingKinds())}}});
}

} // namespace kx::tool
