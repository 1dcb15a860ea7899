// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "unpack/TomlText.h"

#include "io/Hex.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace kx::tool
{

namespace
{

/// Appends a character as it stands between quotes.
void Append(char c, std::string& toml)
{
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
        toml += '\\';
        toml += c;
    } else if (c == '\n') {
        toml += "\\n";
    } else if (c == '\r') {
        toml += "\\r";
    } else if (c == '\t') {
        toml += "\\t";
    } else if (byte < 0x20 || byte == 0x7f) {
        toml += "\\u00" + io::Hex(std::string_view(&c, 1));
    } else {
        toml += c;
    }
}

bool IsDigits(std::string_view text)
{
    return text.find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace

std::string TomlText(std::string_view text)
{
    std::string toml = "\"";
    for (const char c : text) {
        Append(c, toml);
    }
    return toml + "\"";
}

std::string TomlLines(std::string_view text)
{
    if (text.find('\n') == std::string_view::npos) {
        return TomlText(text);
    }
    std::string toml = "\"\"\"\n";
    for (std::size_t i = 0; i < text.size(); ++i) {
        // A single quote is not the end.
        const bool isLonely = text[i] == '"' && i + 1 < text.size() && text[i + 1] != '"';
        if (text[i] == '\n' || text[i] == '\t' || isLonely) {
            toml += text[i];
        } else {
            Append(text[i], toml);
        }
    }
    return toml + R"(""")";
}

std::string TomlKey(std::string_view key)
{
    const bool isBare = !key.empty() && std::all_of(key.begin(), key.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_';
    });
    return isBare ? std::string(key) : TomlText(key);
}

std::string TomlDate(const std::string& date)
{
    constexpr std::array<unsigned, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (date.size() != 10 || date[4] != '/' || date[7] != '/') {
        return TomlText(date);
    }
    const std::string year = date.substr(0, 4);
    const std::string month = date.substr(5, 2);
    const std::string day = date.substr(8, 2);
    if (!IsDigits(year + month + day) || month == "00" || month > "12" || day == "00" ||
        std::stoul(day) > kDays[std::stoul(month) - 1]) {
        return TomlText(date); // the 29th of February, too
    }
    return year + "-" + month + "-" + day;
}

} // namespace kx::tool
