// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Values.h"

#include "io/Error.h"
#include "io/Nearest.h"

#include <CLI/CLI.hpp>

namespace kx::tool
{

void AddPackage(CLI::App& command, const std::string& name, std::string& path)
{
    command
        .add_option(name, path,
                    "A package file, the folder of an unpacked one, a manifest or its folder, or - "
                    "for standard input")
        ->type_name(kPackageValue)
        ->required();
}

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

const format::Processor* ReadProcessor(const std::string& word)
{
    const format::Processor* const processor = format::FindProcessor(word);
    if (processor == nullptr && !word.empty()) {
        throw io::Error(io::ExitCode::kWrongUse, "--processor",
                        "'" + word + "' is not a known processor",
                        io::NearestRemedy(word, format::ProcessorNames()));
    }
    return processor;
}

void AddPanelOption(CLI::App& command, std::string& file)
{
    command
        .add_option("--panel", file,
                    "The description of the panel that it is for (see new-panel), by which it is "
                    "judged")
        ->type_name(kFileValue);
}

std::string RefuseNoFolder(const std::string& folder)
{
    return folder.empty() ? "names no folder" : "";
}

format::PanelModel PanelOf(const std::string& file, const std::string& processor)
{
    format::PanelModel panel;
    if (!file.empty()) {
        panel = format::ReadPanelFile(file);
    }
    if (const format::Processor* const named = ReadProcessor(processor)) {
        const format::FloatAbi abi = format::FloatAbiOfWord(processor);
        const bool isOther = named != panel.processor || abi != format::FloatAbi::kUnknown;
        panel.floatAbi = isOther ? abi : panel.floatAbi;
        panel.processor = named;
    }
    return panel;
}

} // namespace kx::tool
