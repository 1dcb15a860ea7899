// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/IPicoJ.h"
#include "model/T_Array.h"

#include <cstddef>
#include <map>
#include <string>
#include <variant>

// The fields of the package description as tables. Each class lists its fields once; the reader
// and every tool that must know the format use the same list.

struct ClassInfo;

/// Where a field's value is kept; the kind of member is the field's JSON type.
using FieldMember = std::variant<std::string IPicoJ::*, ///< JSON string
                                 bool IPicoJ::*,        ///< JSON true or false
                                 IPicoJ * IPicoJ::*>;   ///< JSON object, created by the factory

/// One field of a class.
struct FieldInfo {
    const char* key;           ///< key in the JSON object
    FieldMember member;        ///< member that takes the value
    const ClassInfo* expected; ///< class that users of a child field expect there, else null
};

/// A constant table, seen without its length in the type.
template <class T>
struct TableView {
    const T* data = nullptr;
    std::size_t size = 0;

    [[nodiscard]] constexpr const T* begin() const { return data; }
    [[nodiscard]] constexpr const T* end() const { return data + size; }
};

template <class T, std::size_t kSize>
constexpr TableView<T> ViewOf(const T (&table)[kSize])
{
    return {table, kSize};
}

/// One class of the package description: a record with fields, or a list.
struct ClassInfo {
    const char* type;                     ///< "$type" string; null in a base class
    const ClassInfo* base;                ///< class whose fields come first, or null
    TableView<FieldInfo> fields;          ///< own fields, in reading order; children last
    TableView<const ClassInfo*> elements; ///< classes expected in "$values"; empty in a record
    /// Tells whether objects of the class are lists.
    [[nodiscard]] constexpr bool IsList() const { return elements.size != 0; }
};

/// Key of a list's array.
constexpr const char* kValuesKey = "$values";

/// Makes a table entry of a class's own member.
template <class Owner, class Member>
constexpr FieldInfo MakeField(const char* key, Member Owner::*member,
                              const ClassInfo* expected = nullptr)
{
    return {key, static_cast<Member IPicoJ::*>(member), expected};
}

/// Fills a record: its base's fields, then its own, in table order. Stops before the first child
/// field when only the root is read.
/// @return 0, or kFieldError after the field was logged
[[nodiscard]] int InitializeRecord(IPicoJ& record, const ClassInfo& info,
                                   std::map<std::string, picojson::value>& obj);

/// Fills a list from its "$values" array. Every element is filled twice from the same data.
/// @return 0, kElementError, kFieldError or an element's own code; elements added before a failure
///         stay in the list
[[nodiscard]] int InitializeList(IPicoJ& list, std::map<std::string, picojson::value>& obj);

/// What the records share: the functions that follow from the class's table.
///
/// @tparam Derived  the class; its static kInfo is the table
/// @tparam Base     IPicoJ, or a base class with fields of its own
template <class Derived, class Base = IPicoJ>
class T_DB_Record : public Base
{
public:
    [[nodiscard]] const char* ClassType() const override { return Derived::kInfo.type; }
    [[nodiscard]] IPicoJ* New() const override { return new Derived; }
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override
    {
        // Qualified, so that the JSON type may stay incomplete here.
        return ::InitializeRecord(*this, Derived::kInfo, obj);
    }
};

/// What the lists share. Any class of object is taken as an element; Record is what users expect.
///
/// Elements are kept as Record pointers without a look at their class, so items[i] must not be
/// used as a Record before ElementAt told what it is.
template <class Derived, class Record>
class T_DB_List : public IPicoJ, public T_Array<Record*, 0, 10>
{
public:
    [[nodiscard]] const char* ClassType() const override { return Derived::kInfo.type; }
    [[nodiscard]] IPicoJ* New() const override { return new Derived; }
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override
    {
        return ::InitializeList(*this, obj);
    }

    void AddJ(IPicoJ* child) override { this->AddObject(reinterpret_cast<Record*>(child)); }

    /// Elements are only met as the objects that they are.
    void begin() const = delete;
    void end() const = delete;

    /// Returns the element at @p index as the object that it is.
    [[nodiscard]] IPicoJ* ElementAt(int index) const
    {
        return reinterpret_cast<IPicoJ*>(this->items[index]);
    }
};
