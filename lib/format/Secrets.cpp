// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Secrets.h"

#include "format/Kinds.h"
#include "panel/Names.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace kx::format
{

namespace
{

bool HasEnds(const std::string& text, std::string_view begin, std::string_view end)
{
    return text.size() >= begin.size() + end.size() && text.compare(0, begin.size(), begin) == 0 &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Masks the settings `Name=Value Name=Value ` of a command from the first password on.
std::string MaskedSettings(const std::string& command, std::size_t from)
{
    for (std::size_t name = from; name < command.size();) {
        const std::size_t sign = command.find('=', name);
        if (sign != std::string::npos && IsSecret(command.substr(name, sign - name))) {
            return command.substr(0, sign + 1) + kMasked;
        }
        // A value may hold blanks: whatever stands behind one could be a name.
        const std::size_t blank = command.find(' ', name);
        name = blank == std::string::npos ? command.size() : blank + 1;
    }
    return command;
}

} // namespace

std::string MaskedCommand(const std::string& command)
{
    constexpr std::string_view kUserBegin = "echo '";
    constexpr std::string_view kUserEnd = "' | chpasswd";
    const std::string settings = std::string(panel::kSettingTool) + " set ";
    if (HasEnds(command, kUserBegin, kUserEnd)) {
        const std::size_t colon = std::min(command.find(':'), command.size() - kUserEnd.size());
        return command.substr(0, colon) + ":" + kMasked + std::string(kUserEnd);
    }
    return HasEnds(command, settings, "") ? MaskedSettings(command, settings.size()) : command;
}

} // namespace kx::format
