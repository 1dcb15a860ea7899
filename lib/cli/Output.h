// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"

#include <picojson.h>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace kx::cli
{

/// Where and how a command tells its results.
struct Output {
    std::ostream& out;      ///< results
    std::ostream& err;      ///< errors, and remarks for people
    bool isJson = false;    ///< one JSON document and nothing else on `out`
    bool hasColour = false; ///< `out` is a terminal that may be coloured
    bool isWatched = false; ///< a person watches `err`: progress may be shown
    std::string program{};  ///< its name, as it is typed: errors begin with it
};

/// Makes the output of this process: colour only on a terminal and without NO_COLOR, progress only
/// on a terminal.
/// @param program  its name
[[nodiscard]] Output StandardOutput(const std::string& program, bool isJson);

/// The version of all JSON documents: another one when a field goes or means something else.
constexpr int kJsonFormatVersion = 1;

/// Writes one JSON document, indented, with a line feed at its end. Keys are sorted. It gets
/// "formatVersion".
/// @param document  an object
void WriteJson(const Output& output, picojson::value document);

/// Returns a JSON value as it is written: indented, with a line feed at its end, and nothing in it
/// that a terminal takes for more than a text.
[[nodiscard]] std::string SerializedJson(const picojson::value& value);

/// Makes a JSON text: bytes that are no UTF-8 become \xHH, everything else stays as it is.
[[nodiscard]] picojson::value JsonText(const std::string& text);

/// Makes a JSON text, or null of an empty one.
[[nodiscard]] picojson::value JsonTextOrNull(const std::string& text);

/// Makes a JSON list of texts.
[[nodiscard]] picojson::value JsonTexts(const std::vector<std::string>& texts);

/// Makes a JSON number; beyond 2^53 the nearest that JSON readers know.
[[nodiscard]] picojson::value JsonNumber(std::uint64_t number);

/// Tells the error: as a line "PROGRAM: …" on `err`, or as {"error": {…}} on `out` with isJson.
/// Of io::Errors each has a line; in JSON the list "errors" holds all of them besides.
void WriteError(const Output& output, const io::Error& error);

/// The colours of the terminal.
enum class Colour { kBold, kRed, kYellow, kGreen, kGrey };

/// Returns the text in colour where the output has it, else as it is.
[[nodiscard]] std::string Coloured(const Output& output, Colour colour, const std::string& text);

} // namespace kx::cli
