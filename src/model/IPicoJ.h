// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string> // the key of a JSON object

namespace picojson
{
class value;
} // namespace picojson

/// An object of the package description.
///
/// Objects own their strings and list buffers only; the objects below them are never destroyed,
/// because a list element is filled twice and abandons what the first filling made.
class IPicoJ
{
public:
    IPicoJ() = default;
    IPicoJ(const IPicoJ&) = delete;
    IPicoJ& operator=(const IPicoJ&) = delete;
    virtual ~IPicoJ() = default;

    /// Returns the "$type" string of the object's class, a constant.
    [[nodiscard]] virtual const char* ClassType() const = 0;

    /// Creates an empty object of the same class, owned by the caller.
    [[nodiscard]] virtual IPicoJ* New() const = 0;

    /// Fills the object from a JSON object. Keys that are missing are added to @p obj as null.
    ///
    /// A failure is logged; fields read before it stay set.
    /// @return 0; kFieldError for a field that is missing or of another type, or a list that is
    ///         none; kElementError for a list element that could not be created
    [[nodiscard]] virtual int Initialize(std::map<std::string, picojson::value>& obj) = 0;

    /// Appends @p child to a list; does nothing in a class that is no list.
    virtual void AddJ(IPicoJ* child);
};

/// Returns @p object as a T, or null when it is of another class or null itself.
///
/// The reader stores whatever class it finds, so whoever uses a child or a list element asks
/// here first.
template <class T>
[[nodiscard]] T* ObjectAs(IPicoJ* object)
{
    return dynamic_cast<T*>(object);
}
