// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Classes.h"

#include "model/DB_KxUserProject.h"

#include <algorithm>
#include <cstring>

namespace kx::format
{

namespace
{

void CollectClasses(const ClassInfo& info, std::vector<const ClassInfo*>& classes)
{
    if (std::find(classes.begin(), classes.end(), &info) != classes.end()) {
        return;
    }
    classes.push_back(&info);
    for (const FieldInfo& field : info.fields) {
        if (field.expected != nullptr) {
            CollectClasses(*field.expected, classes);
        }
    }
    for (const ClassInfo* const element : info.elements) {
        CollectClasses(*element, classes);
    }
}

} // namespace

const std::vector<const ClassInfo*>& AllClasses()
{
    static const std::vector<const ClassInfo*> kClasses = [] {
        std::vector<const ClassInfo*> classes;
        CollectClasses(DB_KxUserProject::kInfo, classes);
        return classes;
    }();
    return kClasses;
}

const ClassInfo* ClassOf(const JsonNode& object)
{
    const std::string& type = object.TextOf(kTypeKey);
    for (const ClassInfo* const info : AllClasses()) {
        // The reader compares up to a zero byte.
        if (std::strcmp(type.c_str(), info->type) == 0) {
            return info;
        }
    }
    return nullptr;
}

} // namespace kx::format
