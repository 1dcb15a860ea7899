// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

#include <vector>

namespace kx::tool
{

// What the classes and fields of the package description mean, for people. The tables of the
// classes know their names; these texts are found by class and member.

/// What people are told about a class.
struct ClassText {
    const ClassInfo* info;
    const char* title;
    const char* description;
};

/// What people are told about a field.
struct FieldText {
    const ClassInfo* info; ///< class in whose own table the field stands
    FieldMember member;
    const char* title;
    const char* description;
};

/// All texts.
[[nodiscard]] const std::vector<ClassText>& ClassTexts();
[[nodiscard]] const std::vector<FieldText>& FieldTexts();

/// Finds the text of a class; null when there is none.
[[nodiscard]] const ClassText* TextOf(const ClassInfo& info);

/// Finds the text of a field that stands in the own table of @p info; null when there is none.
[[nodiscard]] const FieldText* TextOf(const ClassInfo& info, const FieldInfo& field);

} // namespace kx::tool
