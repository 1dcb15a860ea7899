// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Values.h"

#include "common/Error.h"
#include "common/Nearest.h"

std::string ChoiceOf(const std::vector<std::string>& words)
{
    std::string choice;
    for (const std::string& word : words) {
        choice += (choice.empty() ? "{" : ",") + word;
    }
    return choice + "}";
}

const Processor* ReadProcessor(const std::string& word)
{
    const Processor* const processor = FindProcessor(word);
    if (processor == nullptr && !word.empty()) {
        throw Error(ExitCode::kWrongUse, "--processor",
                    "'" + word + "' is no processor that is known",
                    NearestRemedy(word, ProcessorNames()));
    }
    return processor;
}
