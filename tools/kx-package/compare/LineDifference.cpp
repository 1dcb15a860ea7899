// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compare/LineDifference.h"

#include <algorithm>
#include <sstream>
#include <string_view>

// The library counts on these.
#include <iostream>
#include <list>
#include <map>

#include <dtl/dtl.hpp>

namespace kx::tool
{

namespace
{

using Lines = std::vector<std::string>;

Lines LinesOf(std::string_view text)
{
    Lines lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            lines.push_back(std::string(text) + "\n\\ No newline at end of file");
            break;
        }
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return lines;
}

} // namespace

std::string UnifiedDifference(const std::string& before, const std::string& after)
{
    constexpr std::size_t kMostLines = 20000;
    if (before == after) {
        return {};
    }
    const Lines one = LinesOf(before);
    const Lines other = LinesOf(after);
    if (one.size() + other.size() > kMostLines) {
        return "(too long to be compared line by line)\n";
    }
    dtl::Diff<std::string, Lines> difference(one, other);
    difference.compose();
    difference.composeUnifiedHunks();
    std::ostringstream text;
    difference.printUnifiedFormat(text);
    return text.str();
}

std::vector<MatchedPlaces> MatchLists(const std::vector<std::string>& before,
                                      const std::vector<std::string>& after)
{
    dtl::Diff<std::string, Lines> difference(before, after);
    difference.compose();
    std::vector<MatchedPlaces> places;
    std::size_t one = 0;
    std::size_t other = 0;
    for (const auto& [text, info] : difference.getSes().getSequence()) {
        const bool isBefore = info.type != dtl::SES_ADD;
        const bool isAfter = info.type != dtl::SES_DELETE;
        places.emplace_back(isBefore ? std::optional(one++) : std::nullopt,
                            isAfter ? std::optional(other++) : std::nullopt);
    }
    return places;
}

} // namespace kx::tool
