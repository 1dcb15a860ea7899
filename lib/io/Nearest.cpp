// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Nearest.h"

#include <algorithm>
#include <numeric>

namespace kx::io
{

namespace
{

/// Longer words are not compared: the work grows with the product of the lengths.
constexpr std::size_t kLongestWord = 200;

/// Counts the letters to insert, remove or replace to make one word of the other.
std::size_t Distance(std::string_view one, std::string_view other)
{
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

} // namespace

std::string Nearest(std::string_view word, const std::vector<std::string>& known)
{
    std::string nearest;
    if (word.size() > kLongestWord) {
        return nearest;
    }
    std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string& candidate : known) {
        const std::size_t distance = Distance(word, candidate);
        if (distance < least && distance < candidate.size()) {
            least = distance;
            nearest = candidate;
        }
    }
    return nearest;
}

std::string NearestRemedy(std::string_view word, const std::vector<std::string>& known)
{
    if (const std::string nearest = Nearest(word, known); !nearest.empty()) {
        return "did you mean '" + nearest + "'?";
    }
    std::string remedy = "there are ";
    for (std::size_t i = 0; i < known.size(); ++i) {
        remedy += (i == 0 ? "" : i + 1 == known.size() ? " and " : ", ") + known[i];
    }
    return remedy;
}

} // namespace kx::io
