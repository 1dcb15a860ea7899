// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/ShellText.h"

#include "io/Text.h"

#include <algorithm>

namespace kx::format
{

namespace
{

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kNameStart = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";

bool Contains(std::string_view set, char c)
{
    return set.find(c) != std::string_view::npos;
}

std::string Quoted(std::string_view text)
{
    return io::Printable(std::string(text));
}

/// Tells whether the `$` at @p at begins an expansion.
bool IsExpansion(std::string_view text, std::size_t at, bool isQuoted)
{
    if (at + 1 == text.size()) {
        return false;
    }
    const char next = text[at + 1];
    return Contains(kNameStart, next) || Contains(kDigits, next) || Contains("{(@*#?$!-", next) ||
           (!isQuoted && Contains("'\"", next));
}

/// Reads one clause of a symbolic mode: whom, then operators with what they give.
bool IsClause(std::string_view clause)
{
    clause.remove_prefix(std::min(clause.find_first_not_of("ugoa"), clause.size()));
    if (clause.empty()) {
        return false;
    }
    while (!clause.empty()) {
        if (!Contains("+-=", clause.front())) {
            return false;
        }
        clause.remove_prefix(1);
        const bool isCopy = !clause.empty() && Contains("ugo", clause.front());
        const bool isOctal = !clause.empty() && Contains("01234567", clause.front());
        const std::size_t length = isCopy    ? 1
                                   : isOctal ? clause.find_first_not_of("01234567")
                                             : clause.find_first_not_of("rwxXst");
        clause.remove_prefix(std::min(length, clause.size()));
    }
    return true;
}

} // namespace

std::string ChangedInDoubleQuotes(std::string_view text)
{
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool isLast = at + 1 == text.size();
        // At the end of the text a backslash takes the closing quotation mark.
        const bool isEscape = c == '\\' && (isLast || Contains("$`\"\\\n", text[at + 1]));
        if (c == '"' || c == '`' || isEscape || (c == '$' && IsExpansion(text, at, true))) {
            return Quoted(text.substr(at, c == '"' || c == '`' ? 1 : 2));
        }
    }
    return {};
}

std::string ChangedInSingleQuotes(std::string_view text)
{
    return Contains(text, '\'') ? "'" : "";
}

std::string ChangedBare(std::string_view text)
{
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (Contains("\"'`\\;&|<>()\n", c) || (c == '$' && IsExpansion(text, at, false))) {
            return Quoted(text.substr(at, 1));
        }
    }
    return {};
}

std::string ChangedByEcho(std::string_view text)
{
    for (std::size_t at = text.find('\\'); at != std::string_view::npos;
         at = text.find('\\', at + 1)) {
        if (at + 1 < text.size() && Contains("abcefnrtv\\0", text[at + 1])) {
            return Quoted(text.substr(at, 2));
        }
    }
    return {};
}

bool IsMode(std::string_view text)
{
    // Blanks around it only part it from the other words of the command.
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    text = text.substr(0, text.find_last_not_of(" \t") + 1);
    if (text.empty()) {
        return false;
    }
    if (text.find_first_not_of("01234567") == std::string_view::npos) {
        text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
        constexpr std::size_t kMostDigits = 4;
        return text.size() <= kMostDigits;
    }
    while (true) {
        const std::size_t comma = text.find(',');
        if (!IsClause(text.substr(0, comma))) {
            return false;
        }
        if (comma == std::string_view::npos) {
            return true;
        }
        text.remove_prefix(comma + 1);
    }
}

bool IsChmodQuestion(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    text = text.substr(0, text.find_last_not_of(" \t") + 1);
    return text == "--help" || text == "--version";
}

bool HasForeignBytes(std::string_view text)
{
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

} // namespace kx::format
