// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compare/LineDifference.h"

#include <algorithm>
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

/// One side of a hunk's head: the first line, and how many there are.
std::string RangeText(std::size_t first, std::size_t count)
{
    // The line before it stands for none.
    return std::to_string(count == 0 ? first : first + 1) + "," + std::to_string(count);
}

/// Writes the hunks of two lists of lines.
class Hunks
{
public:
    Hunks(const Lines& before, const Lines& after)
        : m_before(before), m_after(after), m_places(MatchLists(before, after))
    {
    }

    std::string Text()
    {
        for (std::size_t i = 0; i < m_places.size(); ++i) {
            if (IsChange(i)) {
                i = Add(i);
            }
        }
        return std::move(m_text);
    }

private:
    static constexpr std::size_t kAround = 3;

    [[nodiscard]] bool IsChange(std::size_t place) const
    {
        return !m_places[place].first.has_value() || !m_places[place].second.has_value();
    }

    /// Adds the hunk that begins with a change; returns the last place in it.
    std::size_t Add(std::size_t change)
    {
        std::size_t last = change;
        for (std::size_t i = change; i < m_places.size() && i <= last + 2 * kAround + 1; ++i) {
            last = IsChange(i) ? i : last;
        }
        const std::size_t begin = change - std::min(change, kAround);
        const std::size_t end = std::min(last + kAround + 1, m_places.size());
        std::string lines;
        std::size_t one = 0;
        std::size_t other = 0;
        for (std::size_t i = begin; i < end; ++i) {
            const auto& [before, after] = m_places[i];
            one += before.has_value() ? 1 : 0;
            other += after.has_value() ? 1 : 0;
            lines += before.has_value() && after.has_value() ? ' ' : before.has_value() ? '-' : '+';
            lines += (before.has_value() ? m_before[*before] : m_after[*after]) + "\n";
        }
        m_text += "@@ -" + RangeText(CountBefore(begin, true), one) + " +" +
                  RangeText(CountBefore(begin, false), other) + " @@\n" + lines;
        return end - 1;
    }

    /// Counts the lines of one side before a place; asked in growing order.
    [[nodiscard]] std::size_t CountBefore(std::size_t place, bool isBefore)
    {
        std::size_t& count = isBefore ? m_countBefore : m_countAfter;
        std::size_t& counted = isBefore ? m_countedBefore : m_countedAfter;
        for (; counted < place; ++counted) {
            const auto& side = isBefore ? m_places[counted].first : m_places[counted].second;
            count += side.has_value() ? 1 : 0;
        }
        return count;
    }

    const Lines& m_before;
    const Lines& m_after;
    std::vector<MatchedPlaces> m_places;
    std::string m_text;
    std::size_t m_countBefore = 0;
    std::size_t m_countAfter = 0;
    std::size_t m_countedBefore = 0;
    std::size_t m_countedAfter = 0;
};

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
    return Hunks(one, other).Text();
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
