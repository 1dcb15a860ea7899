// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/Values.h"
#include "compare/PackageDifference.h"
#include "compose/PackageSource.h"
#include "io/Error.h"
#include "io/Text.h"

#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

/// What `diff` is told.
struct DiffArguments {
    std::string before;
    std::string after;
};

// ---- JSON ----

picojson::value OptionalJson(const std::optional<std::string>& text)
{
    return text.has_value() ? JsonText(*text) : picojson::value();
}

picojson::value NumberOrNull(const std::optional<std::size_t>& number)
{
    return number.has_value() ? JsonNumber(*number) : picojson::value();
}

template <class Things, class Teller>
picojson::value ListedAsJson(const Things& things, Teller tell)
{
    picojson::array array;
    for (const auto& thing : things) {
        array.push_back(tell(thing));
    }
    return picojson::value(array);
}

/// The word for a change of something that is on one side, or on both.
template <class Thing>
const char* WordForChange(const Thing& thing)
{
    return !thing.before.has_value() ? "added" : !thing.after.has_value() ? "gone" : "changed";
}

picojson::value FactAsJson(const FactChange& change)
{
    return picojson::value(picojson::object{
        {"name", JsonText(change.name)},
        {"before", OptionalJson(change.before)},
        {"after", OptionalJson(change.after)},
    });
}

picojson::value FileAsJson(const std::optional<PackageFile>& file)
{
    return !file.has_value() ? picojson::value()
                             : picojson::value(picojson::object{
                                   {"size", JsonNumber(file->size)},
                                   {"mode", JsonText(file->mode)},
                               });
}

picojson::value ChangedFileAsJson(const PackageFileChange& change)
{
    return picojson::value(picojson::object{
        {"path", JsonText(change.path)},
        {"change", picojson::value(WordForChange(change))},
        {"before", FileAsJson(change.before)},
        {"after", FileAsJson(change.after)},
        {"isContentChanged", picojson::value(change.isContentChanged)},
    });
}

picojson::value StepChangeAsJson(const StepChange& step)
{
    return picojson::value(picojson::object{
        {"change", picojson::value(WordForChange(step))},
        {"before", NumberOrNull(step.before)},
        {"after", NumberOrNull(step.after)},
        {"kind", JsonText(step.kind)},
        {"facts", ListedAsJson(step.facts, FactAsJson)},
        {"scripts", ListedAsJson(step.scripts,
                                 [](const ScriptChange& script) {
                                     return picojson::value(picojson::object{
                                         {"name", JsonText(script.name)},
                                         {"unified", JsonText(script.unified)},
                                     });
                                 })},
    });
}

picojson::value KeptAsJson(const KeptPath& kept)
{
    return picojson::value(picojson::object{
        {"path", JsonText(kept.path)},
        {"kind", picojson::value(kept.isFolder ? "folder" : "file")},
        {"isRecorded", picojson::value(kept.isRecorded)},
    });
}

void TellDifferenceAsJson(const Output& output, const DiffArguments& arguments,
                          const PackageDifference& difference)
{
    WriteJson(output, picojson::value(picojson::object{
                          {"before", JsonText(arguments.before)},
                          {"after", JsonText(arguments.after)},
                          {"isSame", picojson::value(difference.IsNone())},
                          {"identity", ListedAsJson(difference.identity, FactAsJson)},
                          {"steps", ListedAsJson(difference.steps, StepChangeAsJson)},
                          {"settings", ListedAsJson(difference.settings, FactAsJson)},
                          {"files", ListedAsJson(difference.files, ChangedFileAsJson)},
                          {"unused", ListedAsJson(difference.unused, ChangedFileAsJson)},
                          {"kept", ListedAsJson(difference.kept, KeptAsJson)},
                      }));
}

// ---- text ----

void TellPartHeading(const Output& output, const std::string& heading)
{
    output.out << '\n' << Coloured(output, Colour::kBold, heading) << '\n';
}

/// Writes a line that is gone, and one that is new.
void TellFact(const Output& output, const FactChange& change, const char* indent)
{
    const std::string name = indent + io::Printable(change.name) + ": ";
    if (change.before.has_value()) {
        output.out << Coloured(output, Colour::kRed, "-" + name + io::Printable(*change.before))
                   << '\n';
    }
    if (change.after.has_value()) {
        output.out << Coloured(output, Colour::kGreen, "+" + name + io::Printable(*change.after))
                   << '\n';
    }
}

void TellScriptChange(const Output& output, const ScriptChange& script)
{
    output.out << "    " << script.name << " script:\n";
    std::string_view rest = script.unified;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string line = io::Printable(rest.substr(0, end));
        output.out << "      "
                   << (line[0] == '-'   ? Coloured(output, Colour::kRed, line)
                       : line[0] == '+' ? Coloured(output, Colour::kGreen, line)
                                        : line)
                   << '\n';
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

void TellStepChange(const Output& output, const StepChange& step)
{
    output.out << "  step " << (step.before.has_value() ? *step.before : *step.after);
    if (step.before.has_value() && step.after.has_value() && step.before != step.after) {
        output.out << ", now " << *step.after;
    }
    output.out << ", " << io::Printable(step.kind) << ": " << WordForChange(step) << '\n';
    for (const FactChange& fact : step.facts) {
        TellFact(output, fact, "   ");
    }
    for (const ScriptChange& script : step.scripts) {
        TellScriptChange(output, script);
    }
}

std::string FileText(const PackageFile& file)
{
    return "mode " + io::Printable(file.mode) + ", " + io::SizeText(file.size);
}

void TellFileChange(const Output& output, const PackageFileChange& change)
{
    std::string line =
        std::string("  ") + WordForChange(change) + " " + io::Printable(change.path) + ": ";
    if (change.before.has_value() && change.after.has_value()) {
        const bool isModeChanged = change.before->mode != change.after->mode;
        line += isModeChanged
                    ? FileText(*change.before) + " -> " + FileText(*change.after)
                    : io::SizeText(change.before->size) + " -> " + io::SizeText(change.after->size);
        line += change.isContentChanged ? ", another content" : ", the same content";
    } else {
        line += FileText(change.before.has_value() ? *change.before : *change.after);
    }
    output.out << line << '\n';
}

void TellKept(const Output& output, const std::vector<KeptPath>& kept)
{
    if (kept.empty()) {
        return;
    }
    TellPartHeading(output, "A panel with the first one keeps, unless a script removes it");
    for (const KeptPath& each : kept) {
        output.out << "  " << io::Printable(each.path)
                   << (each.isFolder     ? "/"
                       : each.isRecorded ? ""
                                         : "  (not recorded)")
                   << '\n';
    }
}

template <class Things, class Teller>
void TellAll(const Output& output, const char* heading, const Things& things, Teller tell)
{
    if (things.empty()) {
        return;
    }
    TellPartHeading(output, heading);
    for (const auto& thing : things) {
        tell(output, thing);
    }
}

void TellDifference(const Output& output, const DiffArguments& arguments,
                    const PackageDifference& difference)
{
    if (difference.IsNone()) {
        output.out << "A panel makes no difference between them.\n";
        return;
    }
    output.out << "--- " << io::Printable(arguments.before) << "\n+++ "
               << io::Printable(arguments.after) << '\n';
    const auto tellFact = [](const Output& out, const FactChange& change) {
        TellFact(out, change, " ");
    };
    TellAll(output, "Identity", difference.identity, tellFact);
    TellAll(output, "Steps", difference.steps, TellStepChange);
    TellAll(output, "Settings", difference.settings, tellFact);
    TellAll(output, "Files on the panel", difference.files, TellFileChange);
    TellAll(output, "Files that no step copies", difference.unused, TellFileChange);
    TellKept(output, difference.kept);
}

io::ExitCode RunDiff(const DiffArguments& arguments, const Output& output)
{
    const OpenedPackage before = OpenAsPackage(arguments.before);
    const OpenedPackage after = OpenAsPackage(arguments.after);
    const format::FastPackage one(*before.package);
    const format::FastPackage other(*after.package);
    const PackageDifference difference = ComparePackages(one, other);
    if (output.isJson) {
        TellDifferenceAsJson(output, arguments, difference);
    } else {
        TellDifference(output, arguments, difference);
    }
    return difference.IsNone() ? io::ExitCode::kFine : io::ExitCode::kProblems;
}

} // namespace

void AddDiff(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command =
        program.add_subcommand("diff", "Show what is different between two packages");
    const auto arguments = std::make_shared<DiffArguments>();
    AddPackage(*command, "before", arguments->before);
    AddPackage(*command, "after", arguments->after);
    command->add_flag("--json", invocation.isJson, "Write it as JSON");
    command->footer("Exit status: 0 no difference, 1 there are some, 2 wrong use, 3 could not "
                    "read.\nWhat no panel reads is not compared. Passwords are masked.\n\n"
                    "Examples:\n"
                    "  kx-package diff recipes-1.kx-update recipes-2.kx-update\n"
                    "  kx-package diff recipes.kx-update recipes/\n"
                    "  kx-package diff --json old.kx-update new.kx-update | jq -r '.kept[].path'");
    command->callback([&invocation, arguments] {
        invocation.run = [arguments](const Output& output) { return RunDiff(*arguments, output); };
    });
}

} // namespace kx::tool
