// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <picojson.h>

#include <map>
#include <string>
#include <vector>

namespace kx::cli
{

// What programs write with --json: tables of all fields, of which JSON Schemas (draft 2020-12) are
// made.

/// A field of an object. Its type is "text", "flag", "count" (from 0), "number" (from 1), "status"
/// (any whole number), "exitCode" (of an error), a word of the program's own, the name of a shape,
/// or words with '|' between them; "[…]" is a list of such, "{…}" an object with any names, and '?'
/// at the end allows null.
struct Field {
    const char* name; ///< with '?' at the end of one that may be missing
    const char* type;
    const char* description;
};

/// The fields of an object.
struct Shape {
    std::string name;
    std::vector<Field> fields;
};

/// A document of a command: one of the shapes `roots`, which refer to the others.
struct Document {
    std::string name;
    std::string description;
    std::vector<std::string> roots;
    std::vector<Shape> shapes;
};

using Fields = std::vector<Field>;

/// Returns the fields of both.
[[nodiscard]] Fields operator+(Fields one, const Fields& other);

/// Returns the document that tells why a command could not do its work; see WriteError.
[[nodiscard]] Document ErrorDocument();

/// Returns the names of documents.
[[nodiscard]] std::vector<std::string> NamesOf(const std::vector<Document>& documents);

/// Returns the schema of a text that is one of these words.
[[nodiscard]] picojson::object OneOfWords(const std::vector<std::string>& words);

/// Whose documents they are.
struct DocumentOwner {
    std::string program;
    std::string prefix; ///< of the names in the schemas' identifiers
    /// The schemas of the program's own words; they go before those of all programs.
    std::map<std::string, picojson::object> words;
};

/// Makes the schema of a document: it allows the fields of the tables, and no other.
/// @param name  of one of the documents
[[nodiscard]] picojson::value MakeDocumentSchema(const std::vector<Document>& documents,
                                                 const std::string& name,
                                                 const DocumentOwner& owner);

} // namespace kx::cli
