// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Commands.h"

#include "model/DB_Fields.h"

namespace kx::checks
{

void CheckCommand(const std::string& command, const Location& place, Severity failure,
                  Findings& findings)
{
    constexpr std::size_t kDesignSize = 2048;
    constexpr std::size_t kLongest =
        131072 - 1; // the kernel's limit for one argument, with its zero
    const std::string what = "the command has " + std::to_string(command.size()) + " bytes";
    if (command.size() > kLongest) {
        findings.AddAs(failure, RuleId::kCommandTooLong, place, what);
    } else if (command.size() > kDesignSize) {
        findings.Add(RuleId::kCommandLong, place, what);
    }
}

std::vector<const format::JsonNode*> ElementsOf(const format::JsonNode* list)
{
    std::vector<const format::JsonNode*> elements;
    const format::JsonNode* const values = list != nullptr ? list->Member(kValuesKey) : nullptr;
    if (values != nullptr) {
        for (const format::JsonNode& element : values->elements) {
            elements.push_back(&element);
        }
    }
    return elements;
}

} // namespace kx::checks
