// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <picojson.h>

#include <string>
#include <variant>
#include <vector>

/// The package description as the tests know it: a table of its classes, written out here and
/// shared with nothing, and what follows from it for a document with one thing wrong.
namespace DescriptionTable
{

enum class Kind { Text, Flag, Child };

struct Field {
    std::string key;
    Kind kind;
    std::string expected; ///< short name of a child's class, else empty
};

struct Class {
    std::string name; ///< short name, for example "DB_StepSets"
    std::string type; ///< "$type" string
    bool isList;
    std::vector<Field> fields; ///< in the order in which they are read; empty in a list
};

/// The thirteen classes in the order in which they are registered.
[[nodiscard]] const std::vector<Class>& Classes();
[[nodiscard]] const Class& ClassNamed(const std::string& name);
[[nodiscard]] const Class& ClassOfType(const std::string& type);

/// The smallest valid object of a class: empty lists, "text" in every text, true in every flag.
[[nodiscard]] picojson::object Minimal(const Class& info);

/// A valid document that holds every class, some of them more than once.
[[nodiscard]] picojson::object WholeDocument();

/// The way from the root to an object: keys of child fields and indexes of list elements.
using Step = std::variant<std::string, std::size_t>;
using Place = std::vector<Step>;

/// Every object of @p document, the root first.
[[nodiscard]] std::vector<Place> PlacesOf(const picojson::object& document);

[[nodiscard]] picojson::object& ObjectAt(picojson::object& document, const Place& place);

/// One way of spoiling a document.
struct Damage {
    std::string name; ///< for test names: letters, digits and underlines only
    Place place;      ///< the object that is spoiled
    std::string key;  ///< the key that is changed or removed
    bool isRemoved;
    picojson::value value;    ///< what stands there instead
    std::size_t element;      ///< with kNoElement: the whole value; else this element of the list
    std::string firstMessage; ///< what the place where the damage lies says
    bool isObjectLost;        ///< true: no object could be created there, so none reports its end
};

constexpr std::size_t kNoElement = static_cast<std::size_t>(-1);

/// Every field of every object of the whole document missing and of every wrong type, every
/// problem with "$type", and list elements that are no objects.
[[nodiscard]] std::vector<Damage> AllDamages();

[[nodiscard]] picojson::object Spoiled(const Damage& damage);

/// The lines that a whole read of the spoiled document logs, from the inside out, without the
/// reader's own last line.
[[nodiscard]] std::vector<std::string> ChainOf(const Damage& damage);

/// The same for a root-only read; empty when the damage is not seen.
[[nodiscard]] std::vector<std::string> RootOnlyChainOf(const Damage& damage);

/// The line about a field.
[[nodiscard]] std::string NoField(const std::string& type, const std::string& key);

} // namespace DescriptionTable
