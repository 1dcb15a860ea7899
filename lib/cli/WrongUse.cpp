// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/WrongUse.h"

#include "cli/Values.h"
#include "io/Nearest.h"

#include <algorithm>
#include <optional>

#include <CLI/CLI.hpp>

namespace kx::cli
{

namespace
{

bool BeginsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

bool LooksLikeOption(const std::string& word)
{
    return word.size() > 1 && word[0] == '-';
}

/// Returns all options, as they are typed.
std::vector<std::string> OptionsOf(const CLI::App& app)
{
    std::vector<std::string> all;
    for (const CLI::Option* const option : app.get_options()) {
        const std::vector<std::string> words = OptionWords(*option);
        all.insert(all.end(), words.begin(), words.end());
    }
    return all;
}

/// Returns the option that a word was probably meant to be, empty when none comes near. Words of
/// one letter are all near each other.
std::string NearestOption(const std::string& word, const std::vector<std::string>& options)
{
    constexpr std::size_t kShort = 2; // "-o"
    if (word.size() <= kShort) {
        return {};
    }
    std::vector<std::string> begun;
    std::vector<std::string> candidates;
    for (const std::string& option : options) {
        if (option.size() > kShort) {
            candidates.push_back(option);
        }
        if (BeginsWith(option, word)) {
            begun.push_back(option);
        }
    }
    return begun.size() == 1 ? begun.front() : io::Nearest(word, candidates);
}

/// The command that tells more.
std::string SeeHelp(const CLI::App& program, const CLI::App* command)
{
    return "see " + program.get_name() + " help" +
           (command == nullptr ? "" : " " + command->get_name());
}

/// Makes the error of an option that stands before the command, or that it does not have.
io::Error NoOption(const std::string& word, const CLI::App& program, const CLI::App* command,
                   bool isBefore)
{
    const std::string option = word.substr(0, word.find('='));
    const std::vector<std::string> options = OptionsOf(command == nullptr ? program : *command);
    if (isBefore && std::find(options.begin(), options.end(), option) != options.end()) {
        return {io::ExitCode::kWrongUse, "", "'" + option + "' stands before the command",
                "write " + program.get_name() + " " + command->get_name() + " " + option};
    }
    const std::string nearest = NearestOption(option, options);
    return {io::ExitCode::kWrongUse, "",
            "'" + option + "' is not an option" +
                (command == nullptr ? "" : " of " + command->get_name()),
            nearest.empty() ? SeeHelp(program, command) : "did you mean '" + nearest + "'?"};
}

/// Makes the error of the first word that nothing takes, if there is one.
std::optional<io::Error> StrayWord(const CLI::App& program, const CLI::App* command)
{
    for (const CLI::App* const app : {&program, command}) {
        const bool isBefore = app == &program && command != nullptr;
        const std::vector<std::string> words =
            app == nullptr ? std::vector<std::string>() : app->remaining();
        const auto stray = std::find_if(words.begin(), words.end(), LooksLikeOption);
        if (stray != words.end()) {
            return NoOption(*stray, program, command, isBefore);
        }
        if (!words.empty() && command != nullptr) {
            return io::Error(io::ExitCode::kWrongUse, "",
                             "'" + words.front() + "' is one word too many for " +
                                 command->get_name(),
                             SeeHelp(program, command));
        }
    }
    return {};
}

} // namespace

io::Error WrongUse(const CLI::App& program, const std::vector<std::string>& words,
                   const std::string& what)
{
    const std::vector<std::string> commands = CommandNames(program);
    const auto word = std::find_if(words.begin(), words.end(), [](const std::string& each) {
        return each.empty() || each[0] != '-';
    });
    if (word != words.end() &&
        std::find(commands.begin(), commands.end(), *word) == commands.end()) {
        return {io::ExitCode::kWrongUse, "", "'" + *word + "' is not a command",
                io::NearestRemedy(*word, commands)};
    }
    const CLI::App* const command = word == words.end() ? nullptr : FindCommand(program, *word);
    if (std::optional<io::Error> stray = StrayWord(program, command)) {
        return *std::move(stray);
    }
    return {io::ExitCode::kWrongUse, "", what, SeeHelp(program, command)};
}

} // namespace kx::cli
