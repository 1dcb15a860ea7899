// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/VersionOrder.h"

#include <algorithm>

namespace kx::guard
{

namespace
{

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool IsLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

struct VersionParts {
    std::string_view epoch; ///< "0" where none is told
    std::string_view upstream;
    std::string_view revision; ///< empty where none is told, which is as good as "0"
    bool hasRevision = false;
};

VersionParts PartsOf(std::string_view text)
{
    VersionParts parts{"0", text, {}, false};
    if (const std::size_t colon = text.find(':'); colon != std::string_view::npos) {
        parts.epoch = text.substr(0, colon);
        parts.upstream = text.substr(colon + 1);
    }
    if (const std::size_t dash = parts.upstream.rfind('-'); dash != std::string_view::npos) {
        parts.revision = parts.upstream.substr(dash + 1);
        parts.upstream = parts.upstream.substr(0, dash);
        parts.hasRevision = true;
    }
    return parts;
}

std::string_view WithoutZeros(std::string_view digits)
{
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
}

int CompareNumbers(std::string_view one, std::string_view other)
{
    one = WithoutZeros(one);
    other = WithoutZeros(other);
    if (one.size() != other.size()) {
        return one.size() < other.size() ? -1 : 1;
    }
    return one.compare(other);
}

/// Returns where a character stands in the order; a digit and the end of the text stand alike.
int RankOf(std::string_view text)
{
    constexpr int kBehindLetters = 256;
    if (text.empty() || IsDigit(text.front())) {
        return 0;
    }
    const char c = text.front();
    const int code = static_cast<unsigned char>(c);
    return c == '~' ? -1 : IsLetter(c) ? code : code + kBehindLetters;
}

/// Takes the digits off the beginning of a text.
std::string_view TakeDigits(std::string_view& text)
{
    const auto* const end =
        std::find_if(text.begin(), text.end(), [](char c) { return !IsDigit(c); });
    const std::string_view digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(digits.size());
    return digits;
}

int ComparePart(std::string_view one, std::string_view other)
{
    while (!one.empty() || !other.empty()) {
        while ((!one.empty() && !IsDigit(one.front())) ||
               (!other.empty() && !IsDigit(other.front()))) {
            if (const int difference = RankOf(one) - RankOf(other); difference != 0) {
                return difference;
            }
            // Equal ranks are those of equal characters, so that both have one.
            one.remove_prefix(1);
            other.remove_prefix(1);
        }
        if (const int difference = CompareNumbers(TakeDigits(one), TakeDigits(other));
            difference != 0) {
            return difference;
        }
    }
    return 0;
}

/// Tells whether a part holds letters, digits and some other characters only.
bool HasOnly(std::string_view part, std::string_view others)
{
    return std::all_of(part.begin(), part.end(), [others](char c) {
        return IsDigit(c) || IsLetter(c) || others.find(c) != std::string_view::npos;
    });
}

bool IsEpoch(std::string_view epoch)
{
    constexpr std::string_view kLargest = "2147483647";
    return !epoch.empty() && std::all_of(epoch.begin(), epoch.end(), IsDigit) &&
           CompareNumbers(epoch, kLargest) <= 0;
}

} // namespace

bool IsVersion(std::string_view text)
{
    const VersionParts parts = PartsOf(text);
    return text.size() <= kLongestVersion && IsEpoch(parts.epoch) && !parts.upstream.empty() &&
           IsDigit(parts.upstream.front()) && HasOnly(parts.upstream, ".+-~:") &&
           parts.hasRevision != parts.revision.empty() && HasOnly(parts.revision, ".+~");
}

int CompareVersions(std::string_view one, std::string_view other)
{
    const VersionParts left = PartsOf(one);
    const VersionParts right = PartsOf(other);
    if (const int difference = CompareNumbers(left.epoch, right.epoch); difference != 0) {
        return difference;
    }
    if (const int difference = ComparePart(left.upstream, right.upstream); difference != 0) {
        return difference;
    }
    return ComparePart(left.revision, right.revision);
}

} // namespace kx::guard
