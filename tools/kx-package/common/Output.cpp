// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "common/Output.h"

#include "common/Text.h"

#include <array>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include <unistd.h>

namespace
{

bool IsControl(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character[0]);
    const bool isC1 =
        character.size() == 2 && first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0;
    return first < 0x20 || first == 0x7f || isC1;
}

void AppendEscaped(std::string_view bytes, std::string& line)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            line += "\\n";
        } else {
            line += "\\x";
            line += kDigits[byte >> 4];
            line += kDigits[byte & 0xf];
        }
    }
}

} // namespace

Output StandardOutput(bool isJson)
{
    const char* const noColour = std::getenv("NO_COLOR");
    const bool mayColour = noColour == nullptr || *noColour == '\0';
    return {std::cout, std::cerr, isJson, !isJson && mayColour && isatty(STDOUT_FILENO) != 0,
            !isJson && isatty(STDERR_FILENO) != 0};
}

void WriteJson(const Output& output, const picojson::value& document)
{
    output.out << document.serialize(true);
    output.out.flush();
}

picojson::value JsonText(const std::string& text)
{
    return picojson::value(IsUtf8(text) ? text : Printable(text));
}

picojson::value JsonNumber(std::uint64_t number)
{
    return picojson::value(static_cast<double>(number));
}

void WriteError(const Output& output, const Error& error)
{
    if (!output.isJson) {
        output.err << "kx-package: " << Printable(error.Line()) << '\n';
        return;
    }
    picojson::object told;
    told["code"] = picojson::value(static_cast<double>(error.Code()));
    told["place"] = JsonText(error.Place());
    told["message"] = JsonText(error.what());
    told["remedy"] = JsonText(error.Remedy());
    WriteJson(output, picojson::value(picojson::object{{"error", picojson::value(told)}}));
}

std::string Coloured(const Output& output, Colour colour, const std::string& text)
{
    if (!output.hasColour) {
        return text;
    }
    constexpr std::array<const char*, 5> kCodes = {"1", "31", "33", "32", "90"};
    return "\x1b[" + std::string(kCodes[static_cast<std::size_t>(colour)]) + "m" + text + "\x1b[0m";
}

std::size_t Utf8Length(std::string_view text)
{
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    std::size_t length = 0;
    if (first >= 0xc2 && first <= 0xdf) {
        length = 2;
    } else if (first >= 0xe0 && first <= 0xef) {
        length = 3;
    } else if (first >= 0xf0 && first <= 0xf4) {
        length = 4;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    // Overlong forms, halves of pairs, and beyond the last character.
    const bool isRefused = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
                           (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f);
    return isRefused ? 0 : length;
}

std::string Printable(const std::string& text)
{
    std::string line;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t length = Utf8Length(rest);
        const std::string_view piece = rest.substr(0, length == 0 ? 1 : length);
        if (length == 0 || IsControl(piece)) {
            AppendEscaped(piece, line);
        } else {
            line += piece;
        }
        rest.remove_prefix(piece.size());
    }
    return line;
}
