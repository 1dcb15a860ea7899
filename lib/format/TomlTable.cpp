// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/TomlTable.h"

#include "io/Nearest.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>
#include <string_view>
#include <utility>

namespace kx::format
{

namespace
{

/// The word for what stands where something else was wanted.
const char* WordFor(const toml::node& node)
{
    switch (node.type()) {
    case toml::node_type::table:
        return "a table";
    case toml::node_type::array:
        return "an array";
    case toml::node_type::string:
        return "a text";
    case toml::node_type::integer:
    case toml::node_type::floating_point:
        return "a number";
    case toml::node_type::boolean:
        return "a flag";
    default:
        return "a date or time";
    }
}

std::string QuotedKey(const std::string& table, const std::string& key)
{
    return "'" + (table.empty() ? key : table + "." + key) + "'";
}

} // namespace

toml::table ParseToml(const std::string& text, const std::string& file)
{
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        throw io::Error(io::ExitCode::kProblems, WhereOf(file, error.source().begin),
                        "is not valid TOML: " + std::string(error.description()));
    }
}

std::string WhereOf(const std::string& file, const toml::source_position& position)
{
    // Line 0 is what the library has for tables that only show as parts of other names.
    return position.line == 0
               ? file
               : file + ":" + std::to_string(position.line) + ":" + std::to_string(position.column);
}

std::vector<std::string> KeysAsWritten(const toml::table& table)
{
    std::vector<std::pair<std::pair<std::size_t, std::size_t>, std::string>> found;
    for (const auto& [key, node] : table) {
        found.emplace_back(
            std::pair<std::size_t, std::size_t>(key.source().begin.line, key.source().begin.column),
            std::string(key.str()));
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> keys;
    keys.reserve(found.size());
    for (auto& [place, key] : found) {
        keys.push_back(std::move(key));
    }
    return keys;
}

std::string TomlTable::Where() const
{
    return WhereOf(m_file, m_table.source().begin);
}

std::string TomlTable::Where(const char* key) const
{
    const toml::node* const node = m_table.get(key);
    return node == nullptr ? Where() : WhereOf(m_file, node->source().begin);
}

io::Error TomlTable::Wrong(const char* key, const std::string& what,
                           const std::string& remedy) const
{
    return {io::ExitCode::kProblems, Where(key), QuotedKey(m_name, key) + " " + what, remedy};
}

io::Error TomlTable::WrongType(const toml::node& node, const std::string& key,
                               const char* wanted) const
{
    const bool isQuotable = std::string_view(wanted) == "a text" && node.is_value();
    return {io::ExitCode::kProblems, WhereOf(m_file, node.source().begin),
            QuotedKey(m_name, key) + " must be " + wanted + ", not " + WordFor(node),
            isQuotable ? "put it in quotes" : std::string("write ") + wanted};
}

std::string TomlTable::CheckedText(const toml::node& node, const std::string& key) const
{
    const auto* const text = node.as_string();
    if (text == nullptr) {
        throw WrongType(node, key, "a text");
    }
    if (text->get().find('\0') != std::string::npos) {
        throw io::Error(io::ExitCode::kProblems, WhereOf(m_file, node.source().begin),
                        QuotedKey(m_name, key) + " contains a zero character",
                        "the panel would read the text up to it; remove it");
    }
    return text->get();
}

std::string TomlTable::Text(const char* key, const std::string& remedy) const
{
    if (std::optional<std::string> text = OptionalText(key)) {
        return *std::move(text);
    }
    throw io::Error(io::ExitCode::kProblems, Where(), QuotedKey(m_name, key) + " is missing",
                    remedy);
}

std::optional<std::string> TomlTable::OptionalText(const char* key) const
{
    const toml::node* const node = m_table.get(key);
    return node == nullptr ? std::nullopt : std::optional(CheckedText(*node, key));
}

std::string TomlTable::Word(const char* key, const std::vector<std::string>& known) const
{
    std::string word = OptionalText(key).value_or("");
    if (Has(key) && std::find(known.begin(), known.end(), word) == known.end()) {
        throw Wrong(key, "is '" + word + "', which is not known", io::NearestRemedy(word, known));
    }
    return word;
}

bool TomlTable::Flag(const char* key, bool otherwise) const
{
    const toml::node* const node = m_table.get(key);
    if (node == nullptr) {
        return otherwise;
    }
    if (!node->is_boolean()) {
        throw WrongType(*node, key, "true or false");
    }
    return node->as_boolean()->get();
}

std::vector<std::string> TomlTable::Texts(const char* key) const
{
    std::vector<std::string> texts;
    if (const toml::node* const node = m_table.get(key)) {
        if (!node->is_array()) {
            throw WrongType(*node, key, "an array of texts");
        }
        for (const toml::node& element : *node->as_array()) {
            texts.push_back(CheckedText(element, key));
        }
    }
    return texts;
}

std::vector<std::string> TomlTable::DistinctTexts(const char* key, bool isEmptyRefused) const
{
    std::vector<std::string> texts = Texts(key);
    std::set<std::string_view> known;
    for (const std::string& text : texts) {
        if (!known.insert(text).second) {
            throw Wrong(key, "contains '" + text + "' twice", "remove one of them");
        }
    }
    if (isEmptyRefused && known.count("") != 0) {
        throw Wrong(key, "contains an empty text", "remove it");
    }
    return texts;
}

std::vector<std::int64_t> TomlTable::Numbers(const char* key) const
{
    std::vector<std::int64_t> numbers;
    const toml::node* const node = m_table.get(key);
    if (node == nullptr) {
        return numbers;
    }
    if (!node->is_array()) {
        throw WrongType(*node, key, "an array of whole numbers");
    }
    for (const toml::node& element : *node->as_array()) {
        if (!element.is_integer()) {
            throw WrongType(element, key, "an array of whole numbers");
        }
        numbers.push_back(element.as_integer()->get());
    }
    return numbers;
}

std::vector<std::pair<std::string, std::string>> TomlTable::TextsByKey(const char* key) const
{
    std::vector<std::pair<std::string, std::string>> texts;
    if (const toml::table* const table = Table(key)) {
        const TomlTable named(*table, m_file, (m_name.empty() ? "" : m_name + ".") + key);
        for (const std::string& name : KeysAsWritten(*table)) {
            texts.emplace_back(name, named.Text(name.c_str(), ""));
        }
    }
    return texts;
}

std::optional<std::time_t> TomlTable::OptionalMoment(const char* key) const
{
    const toml::node* const node = m_table.get(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    const toml::date_time told =
        node->is_date_time() ? node->as_date_time()->get() : toml::date_time();
    if (!told.offset.has_value()) {
        throw WrongType(*node, key, "a date-time with an offset, like 2026-11-21T10:20:30Z");
    }
    std::tm parts{};
    parts.tm_year = static_cast<int>(told.date.year) - 1900;
    parts.tm_mon = static_cast<int>(told.date.month) - 1;
    parts.tm_mday = told.date.day;
    parts.tm_hour = told.time.hour;
    parts.tm_min = told.time.minute - told.offset->minutes;
    parts.tm_sec = told.time.second;
    return timegm(&parts);
}

const toml::table* TomlTable::Table(const char* key) const
{
    const toml::node* const node = m_table.get(key);
    if (node != nullptr && !node->is_table()) {
        throw WrongType(*node, key, "a table");
    }
    return node == nullptr ? nullptr : node->as_table();
}

std::vector<TomlTable> TomlTable::Tables(const char* key) const
{
    std::vector<TomlTable> tables;
    const toml::node* const node = m_table.get(key);
    if (node == nullptr) {
        return tables;
    }
    if (!node->is_array()) {
        throw WrongType(*node, key, "an array of tables");
    }
    for (const toml::node& element : *node->as_array()) {
        if (!element.is_table()) {
            throw WrongType(element, key, "an array of tables");
        }
        const std::string number = "[" + std::to_string(tables.size()) + "]";
        tables.emplace_back(*element.as_table(), m_file,
                            (m_name.empty() ? "" : m_name + ".") + key + number);
    }
    return tables;
}

std::optional<std::int64_t> TomlTable::OptionalNumber(const char* key, std::int64_t least,
                                                      std::int64_t most) const
{
    const toml::node* const node = m_table.get(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_integer()) {
        throw WrongType(*node, key, "a whole number");
    }
    const std::int64_t number = node->as_integer()->get();
    if (number < least || number > most) {
        throw Wrong(key, "is " + std::to_string(number),
                    "write a number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return number;
}

std::vector<std::string> TomlTable::Keys() const
{
    return KeysAsWritten(m_table);
}

std::optional<std::string> TomlTable::OptionalDate(const char* key) const
{
    const toml::node* const node = m_table.get(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_date()) {
        return CheckedText(*node, key);
    }
    const toml::date date = node->as_date()->get();
    std::array<char, 32> text{};
    static_cast<void>(
        std::snprintf(text.data(), text.size(), "%04u/%02u/%02u", static_cast<unsigned>(date.year),
                      static_cast<unsigned>(date.month), static_cast<unsigned>(date.day)));
    return text.data();
}

std::vector<io::Error> TomlTable::OtherKeysThan(const std::vector<std::string>& known) const
{
    std::vector<io::Error> others;
    for (const std::string& key : KeysAsWritten(m_table)) {
        if (std::find(known.begin(), known.end(), key) == known.end()) {
            const auto place = m_table.find(key)->first.source().begin;
            others.emplace_back(io::ExitCode::kProblems, WhereOf(m_file, place),
                                QuotedKey(m_name, key) + " is not known here",
                                io::NearestRemedy(key, known));
        }
    }
    return others;
}

void TomlTable::RefuseOtherKeysThan(const std::vector<std::string>& known) const
{
    if (const std::vector<io::Error> others = OtherKeysThan(known); !others.empty()) {
        throw io::Errors(others);
    }
}

} // namespace kx::format
