// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "cli/Output.h"

#include "io/Hex.h"
#include "io/Text.h"
#include "io/Utf8.h"

#include <array>
#include <cstdlib>
#include <iostream>
#include <string_view>
#include <vector>

#include <unistd.h>

namespace kx::cli
{

Output StandardOutput(const std::string& program, bool isJson)
{
    const char* const noColour = std::getenv("NO_COLOR");
    const bool mayColour = noColour == nullptr || *noColour == '\0';
    return {std::cout,
            std::cerr,
            isJson,
            !isJson && mayColour && isatty(STDOUT_FILENO) != 0,
            !isJson && isatty(STDERR_FILENO) != 0,
            program};
}

void WriteJson(const Output& output, picojson::value document)
{
    document.get<picojson::object>()["formatVersion"] = JsonNumber(kJsonFormatVersion);
    output.out << SerializedJson(document);
    output.out.flush();
}

std::string SerializedJson(const picojson::value& value)
{
    // The library leaves the control characters from U+0080 on, which stand in texts alone.
    constexpr char kLead = '\xc2';
    constexpr unsigned char kFirstOther = 0xa0;
    const std::string plain = value.serialize(true);
    std::string safe;
    for (std::size_t i = 0; i < plain.size(); ++i) {
        const bool isControl = plain[i] == kLead && i + 1 < plain.size() &&
                               static_cast<unsigned char>(plain[i + 1]) < kFirstOther;
        if (isControl) {
            safe += "\\u00" + io::Hex(plain.substr(i + 1, 1));
            ++i;
        } else {
            safe += plain[i];
        }
    }
    return safe;
}

picojson::value JsonText(const std::string& text)
{
    std::string told;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t length = io::Utf8Prefix(rest);
        told += rest.substr(0, length);
        rest.remove_prefix(length);
        if (!rest.empty()) {
            told += "\\x" + io::Hex(rest.substr(0, 1));
            rest.remove_prefix(1);
        }
    }
    return picojson::value(told);
}

picojson::value JsonTextOrNull(const std::string& text)
{
    return text.empty() ? picojson::value() : JsonText(text);
}

picojson::value JsonTexts(const std::vector<std::string>& texts)
{
    picojson::array list;
    list.reserve(texts.size());
    for (const std::string& text : texts) {
        list.push_back(JsonText(text));
    }
    return picojson::value(list);
}

picojson::value JsonNumber(std::uint64_t number)
{
    return picojson::value(static_cast<double>(number));
}

namespace
{

picojson::value JsonOf(const io::Error& error)
{
    picojson::object told;
    told["code"] = picojson::value(static_cast<double>(error.Code()));
    told["place"] = JsonText(error.Where());
    told["message"] = JsonText(error.what());
    told["remedy"] = JsonText(error.Remedy());
    return picojson::value(told);
}

} // namespace

void WriteError(const Output& output, const io::Error& error)
{
    const auto* const several = dynamic_cast<const io::Errors*>(&error);
    const std::vector<io::Error> all =
        several == nullptr ? std::vector<io::Error>{error} : several->All();
    picojson::array list;
    for (const io::Error& each : all) {
        if (!output.isJson) {
            output.err << output.program << ": " << io::Printable(each.Line()) << '\n';
        }
        list.push_back(JsonOf(each));
    }
    if (!output.isJson) {
        return;
    }
    picojson::object told = {{"error", JsonOf(error)}};
    if (all.size() > 1) {
        told["errors"] = picojson::value(list);
    }
    WriteJson(output, picojson::value(told));
}

std::string Coloured(const Output& output, Colour colour, const std::string& text)
{
    if (!output.hasColour) {
        return text;
    }
    constexpr std::array<const char*, 5> kCodes = {"1", "31", "33", "32", "90"};
    return "\x1b[" + std::string(kCodes[static_cast<std::size_t>(colour)]) + "m" + text + "\x1b[0m";
}

} // namespace kx::cli
