// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <toml++/toml.h>

namespace kx::format
{

/// A table of a TOML file: hands out the values of keys as the types that are wanted. Everything
/// that is wrong is an Error with file, line and column.
class TomlTable
{
public:
    /// @param file  the path, for messages
    /// @param name  what messages call the table: "package", "steps[2]"
    TomlTable(const toml::table& table, const std::string& file, std::string name)
        : m_table(table), m_file(file), m_name(std::move(name))
    {
    }

    /// Returns a text, which must be there.
    /// @param remedy  what to do when it is missing
    [[nodiscard]] std::string Text(const char* key, const std::string& remedy) const;

    /// Returns a text, or nothing when the key is missing.
    [[nodiscard]] std::optional<std::string> OptionalText(const char* key) const;

    /// Returns one of some words; empty when the key is missing.
    /// @throws Error when it is none of them
    [[nodiscard]] std::string Word(const char* key, const std::vector<std::string>& known) const;

    /// Returns a flag, or @p otherwise when the key is missing.
    [[nodiscard]] bool Flag(const char* key, bool otherwise) const;

    /// Returns an array of texts; empty when the key is missing.
    [[nodiscard]] std::vector<std::string> Texts(const char* key) const;

    /// Returns an array of texts of which no two are the same.
    /// @param isEmptyRefused  whether none of them may be ""
    [[nodiscard]] std::vector<std::string> DistinctTexts(const char* key,
                                                         bool isEmptyRefused = false) const;

    /// Returns an array of whole numbers; empty when the key is missing.
    [[nodiscard]] std::vector<std::int64_t> Numbers(const char* key) const;

    /// Returns the texts of a table with their keys, as written; empty when the key is missing.
    [[nodiscard]] std::vector<std::pair<std::string, std::string>>
    TextsByKey(const char* key) const;

    /// Returns the moment that a TOML date-time with an offset tells.
    [[nodiscard]] std::optional<std::time_t> OptionalMoment(const char* key) const;

    /// Returns a table, or null when the key is missing.
    [[nodiscard]] const toml::table* Table(const char* key) const;

    /// Returns the tables of an array of tables; empty when the key is missing.
    [[nodiscard]] std::vector<TomlTable> Tables(const char* key) const;

    /// Returns a whole number, or nothing when the key is missing.
    /// @throws Error when it is none, or not between @p least and @p most
    [[nodiscard]] std::optional<std::int64_t> OptionalNumber(const char* key, std::int64_t least,
                                                             std::int64_t most) const;

    /// Returns a date as "2026/11/21", from a text as it stands or a TOML date.
    [[nodiscard]] std::optional<std::string> OptionalDate(const char* key) const;

    /// Returns an error for every key that is not among the known ones.
    [[nodiscard]] std::vector<io::Error> OtherKeysThan(const std::vector<std::string>& known) const;

    /// Refuses every key that is not among the known ones.
    /// @throws Errors
    void RefuseOtherKeysThan(const std::vector<std::string>& known) const;

    [[nodiscard]] bool Has(const char* key) const { return m_table.contains(key); }

    /// Returns the keys in the order in which they are written.
    [[nodiscard]] std::vector<std::string> Keys() const;

    /// Returns file, line and column of the value of a key, or of the table itself.
    [[nodiscard]] std::string Where(const char* key) const;
    [[nodiscard]] std::string Where() const;

    /// Makes the error of a value.
    [[nodiscard]] io::Error Wrong(const char* key, const std::string& what,
                                  const std::string& remedy) const;

    [[nodiscard]] const std::string& Name() const { return m_name; }
    [[nodiscard]] const std::string& File() const { return m_file; }

private:
    [[nodiscard]] io::Error WrongType(const toml::node& node, const std::string& key,
                                      const char* wanted) const;
    [[nodiscard]] std::string CheckedText(const toml::node& node, const std::string& key) const;

    const toml::table& m_table;
    const std::string& m_file;
    std::string m_name;
};

/// Reads the text of a TOML file.
/// @param file  the path, for messages
/// @throws Error "is not valid TOML: …", with line and column
[[nodiscard]] toml::table ParseToml(const std::string& text, const std::string& file);

/// Returns "file:line:column" of a node.
[[nodiscard]] std::string WhereOf(const std::string& file, const toml::source_position& position);

/// Returns the keys of a table in the order in which they are written.
[[nodiscard]] std::vector<std::string> KeysAsWritten(const toml::table& table);

} // namespace kx::format
