// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Values.h"

#include <CLI/CLI.hpp>

namespace kx::cli
{

std::string ChoiceOf(const std::vector<std::string>& words)
{
    std::string choice;
    for (const std::string& word : words) {
        choice += (choice.empty() ? "{" : ",") + word;
    }
    return choice + "}";
}

std::vector<std::string> CommandNames(const CLI::App& program)
{
    std::vector<std::string> names;
    for (const CLI::App* const command :
         program.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    return names;
}

const CLI::App* FindCommand(const CLI::App& program, const std::string& name)
{
    const std::vector<const CLI::App*> found = program.get_subcommands(
        [&name](const CLI::App* command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

std::vector<std::string> OptionWords(const CLI::Option& option)
{
    std::vector<std::string> words;
    for (const std::string& name : option.get_snames()) {
        words.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        words.push_back("--" + name);
    }
    return words;
}

} // namespace kx::cli
