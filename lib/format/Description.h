// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "format/Json.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kx::format
{

/// How many bytes a description may have; real ones have some kilobytes.
constexpr std::uint64_t kLargestDescription = std::uint64_t{256} << 20;

/// The package description as the updater meets it: bytes, and the JSON in them.
struct Description {
    std::string bytes;            ///< the whole file
    std::string text;             ///< what the updater reads: behind the mark, up to a zero byte
    std::optional<JsonNode> root; ///< absent when the text is no JSON
    JsonError error;              ///< why it is absent
    std::size_t end = 0;          ///< offset in `text` behind the JSON value

    [[nodiscard]] bool HasByteOrderMark() const;
};

/// Reads the description of a package.
/// @throws Error when the package has none, it cannot be read, or it is larger than
///         kLargestDescription
[[nodiscard]] Description ReadDescription(const archive::Package& package);

/// Takes the bytes of a description apart; what is wrong with them stands in the result.
[[nodiscard]] Description ParseDescription(std::string bytes);

/// How many objects the updater may have to fill when it reads a description: with more it takes
/// longer than anybody waits.
constexpr std::uint64_t kMostFilledObjects = std::uint64_t{1} << 22;

/// Tells how many objects the updater fills when it reads a description: it fills each element of a
/// list twice, so that each list doubles what stands in it.
/// @param text  JSON, or anything else
/// @param most  the largest answer: there may be more
[[nodiscard]] std::uint64_t FilledObjects(std::string_view text, std::uint64_t most);

/// Returns the name under which the panel records a package that comes as the file or folder
/// @p path, by the updater's own rule; empty when none is left.
[[nodiscard]] std::string RecordName(const std::string& path);

} // namespace kx::format
