// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

class DB_KxUserProject;
class IPicoJ;

namespace kx::tool
{

/// Writes a description as the updater reads it: a byte order mark, then the JSON text, indented,
/// with a line feed at its end. Every object has its "$type" first, then its fields in the order
/// of the classes' tables.
/// @throws std::invalid_argument when an object is of a class that stands in no table, or a child
///         object is missing
[[nodiscard]] std::string WriteDescription(const DB_KxUserProject& root);

/// Writes one object of a description, without the mark.
/// @throws std::invalid_argument likewise
[[nodiscard]] std::string WriteObject(const IPicoJ& object);

} // namespace kx::tool
