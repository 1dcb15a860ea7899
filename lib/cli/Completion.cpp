// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Command.h"
#include "cli/Values.h"
#include "io/Error.h"
#include "io/Nearest.h"

#include <algorithm>
#include <array>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

namespace kx::cli
{

namespace
{

std::string Joined(const std::vector<std::string>& words, const std::string& between)
{
    std::string joined;
    for (const std::string& word : words) {
        joined += (joined.empty() ? "" : between) + word;
    }
    return joined;
}

std::string Replaced(std::string text, const std::string& what, const std::string& by)
{
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
    return text;
}

/// Returns the shell's words that offer files which fit one of the patterns, and folders.
std::string OfFiles(const std::string& patterns)
{
    return patterns.empty() ? "@FUNCTION@_files" : "@FUNCTION@_files " + patterns;
}

/// Returns the shell's words that offer some words.
std::string OfWords(const std::string& words)
{
    return "@FUNCTION@_words '" + words + "'";
}

/// A program, and what completes the values of its options.
struct Completed {
    const CLI::App& program;
    std::vector<FileKind> kinds;
};

/// Returns the shell's words for what completes a value, empty when nothing does.
std::string CompleterOf(const Completed& completed, const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    const std::string word = type.substr(0, type.find(':'));
    const auto found = std::find_if(completed.kinds.begin(), completed.kinds.end(),
                                    [&word](const FileKind& kind) { return word == kind.value; });
    if (found != completed.kinds.end()) {
        return OfFiles(found->patterns);
    }
    if (word == kCommandValue) {
        return OfWords(Joined(CommandNames(completed.program), " "));
    }
    const std::size_t open = type.find('{');
    const std::size_t close = type.find('}');
    if (open == std::string::npos || close == std::string::npos) {
        return {};
    }
    std::string choices = type.substr(open + 1, close - open - 1);
    std::replace(choices.begin(), choices.end(), ',', ' ');
    return OfWords(choices);
}

struct Names {
    std::vector<std::string> options;
    std::string values;     ///< one pattern of a `case` for each option with a value
    std::string positional; ///< completes what is no option
};

Names NamesOf(const Completed& completed, const CLI::App& app)
{
    Names names;
    for (const CLI::Option* const option : app.get_options()) {
        const std::string completer = CompleterOf(completed, *option);
        const std::vector<std::string> words = OptionWords(*option);
        names.options.insert(names.options.end(), words.begin(), words.end());
        if (words.empty()) {
            // What completes the first one offers folders, too, which is all that others want.
            names.positional = names.positional.empty() ? completer : names.positional;
        } else if (option->get_items_expected_max() > 0) {
            names.values += "        '" + app.get_name() + ' ' +
                            Joined(words, "' | '" + app.get_name() + ' ') + "') " +
                            (completer.empty() ? "" : completer + "; ") + "return ;;\n";
        }
    }
    return names;
}

/// What the shells have of their own, around what is the same in both: the commands' names, the
/// values of options, and what else there is behind a command. @PROGRAM@ stands for the program's
/// name, @FUNCTION@ for what the names of its functions begin with.
struct ShellText {
    const char* name;
    const char* head; ///< up to the names of the commands
    const char* tail;
};

constexpr const char* kBashHead =
    R"(# bash completion of @PROGRAM@, made by "@PROGRAM@ completion bash" from its own commands
# shellcheck shell=bash

@FUNCTION@_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$word")
}

# Folders, and the files that fit one of the patterns.
@FUNCTION@_files() {
    local pattern
    compopt -o filenames
    mapfile -t COMPREPLY < <(
        compgen -d -- "$word"
        for pattern; do
            compgen -f -X "!$pattern" -- "$word" | while IFS= read -r file; do
                [ -d "$file" ] || printf '%s\n' "$file"
            done
        done
    )
}

@FUNCTION@() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' i
    # "--option=value" comes as three words.
    if [ "$word" = = ]; then
        word=''
    elif [ "$before" = = ] && [ "$COMP_CWORD" -ge 2 ]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            )";

constexpr const char* kBashTail = "complete -F @FUNCTION@ @PROGRAM@\n";

constexpr const char* kZshHead =
    R"zsh(#compdef @PROGRAM@
# zsh completion of @PROGRAM@, made by "@PROGRAM@ completion zsh" from its own commands

@FUNCTION@_words() {
    compadd -- ${=1}
}

# Folders, and the files that fit one of the patterns.
@FUNCTION@_files() {
    if (($# == 0)); then
        _files -/
    else
        _files -g "$*"
    fi
}

@FUNCTION@() {
    local word=${words[CURRENT]} before=${words[CURRENT - 1]} command='' i
    if [[ $word == --*=* ]]; then
        before=${word%%=*}
        word=${word#*=}
        compset -P '*='
    fi
    local -a COMP_WORDS=("${(@)words}")
    for ((i = 2; i < CURRENT; i++)); do
        case ${COMP_WORDS[i]} in
            )zsh";

constexpr const char* kZshTail =
    R"(# Loaded by its name from the folders of functions, or read as a whole.
if [[ $funcstack[1] == _@PROGRAM@ ]]; then
    @FUNCTION@ "$@"
else
    compdef @FUNCTION@ @PROGRAM@
fi
)";

constexpr std::array<ShellText, 2> kShells = {
    {{"bash", kBashHead, kBashTail}, {"zsh", kZshHead, kZshTail}}};

std::vector<std::string> ShellNames()
{
    std::vector<std::string> names;
    names.reserve(kShells.size());
    for (const ShellText& shell : kShells) {
        names.emplace_back(shell.name);
    }
    return names;
}

const ShellText& FindShell(const std::string& name)
{
    const auto* const found =
        std::find_if(kShells.begin(), kShells.end(),
                     [&name](const ShellText& shell) { return name == shell.name; });
    if (found == kShells.end()) {
        throw io::Error(io::ExitCode::kWrongUse, "completion",
                        "nothing is known of the shell '" + name + "'",
                        io::NearestRemedy(name, ShellNames()));
    }
    return *found;
}

/// Returns the branch of the `case` for one command.
std::string BranchOf(const CLI::App& command, const Names& names)
{
    return "        " + command.get_name() + ")\n" + "            case $word in\n" +
           "                -*) " + OfWords(Joined(names.options, " ")) + " ;;\n" +
           (names.positional.empty() ? "" : "                *) " + names.positional + " ;;\n") +
           "            esac\n            ;;\n";
}

std::string CompletionText(const Completed& completed, const ShellText& shell)
{
    const CLI::App& program = completed.program;
    const std::vector<std::string> commands = CommandNames(program);
    std::string values;
    std::string branches;
    for (const CLI::App* const command :
         program.get_subcommands([](const CLI::App*) { return true; })) {
        const Names names = NamesOf(completed, *command);
        values += names.values;
        branches += BranchOf(*command, names);
    }
    return shell.head + Joined(commands, " | ") +
           ")\n                command=${COMP_WORDS[i]}\n                break\n"
           "                ;;\n        esac\n    done\n"
           "    case \"$command $before\" in\n" +
           values + "    esac\n    case $command in\n        '') " +
           OfWords(Joined(commands, " ") + ' ' + Joined(NamesOf(completed, program).options, " ")) +
           " ;;\n" + branches + "    esac\n}\n\n" + shell.tail;
}

io::ExitCode Complete(const Completed& completed, const std::string& shell, const Output& output)
{
    const std::string& name = completed.program.get_name();
    const std::string function = "_" + Replaced(name, "-", "_");
    const std::string text = CompletionText(completed, FindShell(shell));
    output.out << Replaced(Replaced(text, "@PROGRAM@", name), "@FUNCTION@", function);
    return io::ExitCode::kFine;
}

} // namespace

void AddCompletion(CLI::App& program, Invocation& invocation, const std::vector<FileKind>& kinds)
{
    const std::string& name = program.get_name();
    CLI::App* const command = program.add_subcommand(
        "completion", "Write what lets a shell complete the words of a " + name + " command line");
    const auto shell = std::make_shared<std::string>(kShells.front().name);
    command->add_option("shell", *shell, "The shell")
        ->type_name(ChoiceOf(ShellNames()))
        ->capture_default_str();
    command->footer("Installed beside the program already. For this shell only:\n"
                    "  source <(" +
                    name +
                    " completion)\n"
                    "  source <(" +
                    name + " completion zsh)   # behind compinit");
    std::vector<FileKind> all = {{kFileValue, "'*'"}, {kFolderValue, ""}};
    all.insert(all.end(), kinds.begin(), kinds.end());
    command->callback([&program, &invocation, shell, all] {
        invocation.run = [&program, shell, all](const Output& output) {
            return Complete({program, all}, *shell, output);
        };
    });
}

} // namespace kx::cli
