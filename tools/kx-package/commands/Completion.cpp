// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/Values.h"
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

namespace kx::tool
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

/// Returns the shell's words for what completes a value, empty when nothing does.
std::string CompleterOf(const CLI::App& program, const CLI::Option& option)
{
    const std::string kind = option.get_type_name();
    const auto isKind = [&kind](std::string_view name) {
        return kind == name || kind.compare(0, name.size() + 1, std::string(name) + ":") == 0;
    };
    if (isKind(kFileValue)) {
        return "_kx_package_files '*'";
    }
    if (isKind(kFolderValue)) {
        return "_kx_package_files";
    }
    if (isKind(kPackageValue)) {
        return "_kx_package_files '*.kx-update' '*.toml'";
    }
    if (isKind(kManifestValue)) {
        return "_kx_package_files '*.toml'";
    }
    if (isKind(kCommandValue)) {
        return "_kx_package_words '" + Joined(CommandNames(program), " ") + "'";
    }
    const std::size_t open = kind.find('{');
    const std::size_t close = kind.find('}');
    if (open == std::string::npos || close == std::string::npos) {
        return {};
    }
    std::string choices = kind.substr(open + 1, close - open - 1);
    std::replace(choices.begin(), choices.end(), ',', ' ');
    return "_kx_package_words '" + choices + "'";
}

struct Names {
    std::vector<std::string> options;
    std::string values;     ///< one pattern of a `case` for each option with a value
    std::string positional; ///< completes what is no option
};

Names NamesOf(const CLI::App& program, const CLI::App& app)
{
    Names names;
    for (const CLI::Option* const option : app.get_options()) {
        const std::string completer = CompleterOf(program, *option);
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
/// values of options, and what else there is behind a command.
struct ShellText {
    const char* name;
    const char* head; ///< up to the names of the commands
    const char* tail;
};

constexpr const char* kBashHead =
    R"(# bash completion of kx-package, made by "kx-package completion bash" from its own commands
# shellcheck shell=bash

_kx_package_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$word")
}

# Folders, and the files that fit one of the patterns.
_kx_package_files() {
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

_kx_package() {
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

constexpr const char* kBashTail = "complete -F _kx_package kx-package\n";

constexpr const char* kZshHead =
    R"zsh(#compdef kx-package
# zsh completion of kx-package, made by "kx-package completion zsh" from its own commands

_kx_package_words() {
    compadd -- ${=1}
}

# Folders, and the files that fit one of the patterns.
_kx_package_files() {
    if (($# == 0)); then
        _files -/
    else
        _files -g "$*"
    fi
}

_kx_package() {
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
if [[ $funcstack[1] == _kx-package ]]; then
    _kx_package "$@"
else
    compdef _kx_package kx-package
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

io::ExitCode Complete(const CLI::App& program, const std::string& name, const Output& output)
{
    const ShellText& shell = FindShell(name);
    const Names top = NamesOf(program, program);
    const std::vector<std::string> commands = CommandNames(program);
    std::string values;
    std::string words;
    for (const CLI::App* const command :
         program.get_subcommands([](const CLI::App*) { return true; })) {
        const Names names = NamesOf(program, *command);
        values += names.values;
        words +=
            "        " + command->get_name() + ")\n" + "            case $word in\n" +
            "                -*) _kx_package_words '" + Joined(names.options, " ") + "' ;;\n" +
            (names.positional.empty() ? "" : "                *) " + names.positional + " ;;\n") +
            "            esac\n            ;;\n";
    }
    output.out << shell.head << Joined(commands, " | ")
               << ")\n                command=${COMP_WORDS[i]}\n                break\n"
                  "                ;;\n        esac\n    done\n"
               << "    case \"$command $before\" in\n"
               << values << "    esac\n    case $command in\n"
               << "        '') _kx_package_words '" << Joined(commands, " ") << ' '
               << Joined(top.options, " ") << "' ;;\n"
               << words << "    esac\n}\n\n"
               << shell.tail;
    return io::ExitCode::kFine;
}

} // namespace

void AddCompletion(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "completion", "Write what lets a shell complete the words of a kx-package command line");
    const auto shell = std::make_shared<std::string>(kShells.front().name);
    command->add_option("shell", *shell, "The shell")
        ->type_name(ChoiceOf(ShellNames()))
        ->capture_default_str();
    command->footer("Installed beside the program already. For this shell only:\n"
                    "  source <(kx-package completion)\n"
                    "  source <(kx-package completion zsh)   # behind compinit");
    command->callback([&program, &invocation, shell] {
        invocation.run = [&program, shell](const Output& output) {
            return Complete(program, *shell, output);
        };
    });
}

} // namespace kx::tool
