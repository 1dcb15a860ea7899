// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Values.h"

#include "io/Error.h"
#include "io/Nearest.h"

namespace kx::tool
{

std::string ChoiceOf(const std::vector<std::string>& words)
{
    std::string choice;
    for (const std::string& word : words) {
        choice += (choice.empty() ? "{" : ",") + word;
    }
    return choice + "}";
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

} // namespace kx::tool
