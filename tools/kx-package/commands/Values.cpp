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
