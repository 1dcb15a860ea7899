// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kx::format
{

/// A position in a text: line and column count from 1, columns in bytes.
struct TextPosition {
    std::size_t line = 1;
    std::size_t column = 1;
};

/// A JSON value with the position where it begins.
struct JsonNode {
    enum class Kind { kNull, kBool, kNumber, kString, kArray, kObject };

    Kind kind = Kind::kNull;
    bool flag = false;                                     ///< of a bool
    std::string text;                                      ///< of a string
    std::vector<JsonNode> elements;                        ///< of an array
    std::vector<std::pair<std::string, JsonNode>> members; ///< of an object, as written
    TextPosition position;

    [[nodiscard]] bool IsObject() const { return kind == Kind::kObject; }
    [[nodiscard]] bool IsString() const { return kind == Kind::kString; }

    /// Returns the member of that key, the last of several, or null.
    [[nodiscard]] const JsonNode* Member(std::string_view key) const;

    /// Returns the text of the member of that key, or an empty one when it is missing or no text.
    [[nodiscard]] const std::string& TextOf(std::string_view key) const;

    /// Returns the kind in words, with its article: "an object", "a text", "null", …
    [[nodiscard]] const char* KindName() const;
};

/// Why a text is no JSON for the updater.
struct JsonError {
    std::string what;
    TextPosition position;
};

/// How deep objects and arrays may stand in each other; the updater's own limit.
constexpr std::size_t kDeepestJson = 1000;

/// Reads the first JSON value of a text with the JSON library of the updater, by its rules: what
/// follows is ignored.
/// @param end  set to the offset behind the value
/// @throws JsonError
[[nodiscard]] JsonNode ParseJson(std::string_view text, std::size_t& end);

} // namespace kx::format
