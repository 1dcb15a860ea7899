// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/ClassChecks.h"

#include "archive/Package.h"
#include "format/Classes.h"
#include "io/Nearest.h"
#include "model/DB_Hardware.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string_view>

namespace kx::checks
{

namespace
{

/// How many lists the format has one in another.
constexpr std::size_t kFormatLists = 3;
/// From how many lists on the reader takes longer than anybody waits.
constexpr std::size_t kUnbearableLists = 16;
/// How deep objects are followed; the format itself needs 8.
constexpr std::size_t kDeepestChecked = 40;

std::vector<std::string> ClassNames()
{
    std::vector<std::string> names;
    for (const ClassInfo* const info : format::AllClasses()) {
        names.emplace_back(info->type);
    }
    return names;
}

/// All fields of a class, those of its base first.
std::vector<const FieldInfo*> FieldsOf(const ClassInfo& info)
{
    std::vector<const FieldInfo*> fields;
    for (const ClassInfo* part : {info.base, &info}) {
        if (part != nullptr) {
            for (const FieldInfo& field : part->fields) {
                fields.push_back(&field);
            }
        }
    }
    return fields;
}

/// The kind of JSON that a field takes.
format::JsonNode::Kind KindOf(const FieldInfo& field)
{
    constexpr format::JsonNode::Kind kKinds[] = {format::JsonNode::Kind::kString,
                                                 format::JsonNode::Kind::kBool,
                                                 format::JsonNode::Kind::kObject};
    return kKinds[field.member.index()];
}

const char* KindName(format::JsonNode::Kind kind)
{
    format::JsonNode node;
    node.kind = kind;
    return node.KindName();
}

/// What is expected in a place, for people: one class or several.
std::string Names(TableView<const ClassInfo*> expected)
{
    std::string names;
    for (const ClassInfo* const info : expected) {
        names += (names.empty() ? "'" : " or '") + std::string(info->type) + "'";
    }
    return names;
}

class ClassCheck
{
public:
    explicit ClassCheck(Findings& findings) : m_findings(findings) {}

    /// @param isUsed  false below what no step looks at: another class does no harm there
    void CheckObject(const format::JsonNode& node, TableView<const ClassInfo*> expected,
                     const std::string& path, bool isUsed)
    {
        if (m_depth == kDeepestChecked) {
            m_findings.AddAs(Severity::kError, RuleId::kListsNested, LocationIn(node, path),
                             "is nested too deeply in other objects");
            return;
        }
        ++m_depth;
        CheckFields(node, expected, path, isUsed);
        --m_depth;
    }

private:
    void CheckFields(const format::JsonNode& node, TableView<const ClassInfo*> expected,
                     const std::string& path, bool isUsed)
    {
        CheckKeys(node, path);
        const ClassInfo* const info = CheckType(node, expected, path, isUsed);
        if (info == nullptr) {
            return;
        }
        if (info->IsList()) {
            CheckList(node, *info, path, isUsed);
        } else {
            CheckRecord(node, *info, path, isUsed);
        }
        ReportUnknownKeys(node, *info, path);
    }

    void Add(RuleId rule, const format::JsonNode& node, const std::string& path,
             const std::string& what)
    {
        m_findings.Add(rule, LocationIn(node, path), what);
    }

    void CheckKeys(const format::JsonNode& node, const std::string& path)
    {
        std::set<std::string_view> keys;
        for (const auto& [key, value] : node.members) {
            if (!keys.insert(key).second) {
                Add(RuleId::kFieldTwice, value, Below(path, key), "appears twice in one object");
            }
        }
    }

    static std::string Below(const std::string& path, std::string_view key)
    {
        return (path.empty() ? "" : path + ".") + std::string(key);
    }

    const ClassInfo* CheckType(const format::JsonNode& node, TableView<const ClassInfo*> expected,
                               const std::string& path, bool isUsed)
    {
        const format::JsonNode* const type = node.Member(format::kTypeKey);
        if (type == nullptr || !type->IsString() || type->text.empty()) {
            Add(RuleId::kTypeMissing, type != nullptr ? *type : node, path,
                std::string("the object has no \"$type\"; it should be ") + Names(expected));
            return nullptr;
        }
        const ClassInfo* const info = format::ClassOf(node);
        if (info == nullptr) {
            Add(RuleId::kTypeUnknown, *type, Below(path, format::kTypeKey),
                "'" + type->text +
                    "' is not a known class: " + io::NearestRemedy(type->text, ClassNames()));
            return nullptr;
        }
        if (std::find(expected.begin(), expected.end(), info) == expected.end()) {
            m_findings.AddAs(isUsed ? Severity::kError : Severity::kWarning, RuleId::kTypePlace,
                             LocationIn(*type, Below(path, format::kTypeKey)),
                             "'" + type->text + "' is here instead of " + Names(expected));
        }
        return info;
    }

    void CheckRecord(const format::JsonNode& node, const ClassInfo& info, const std::string& path,
                     bool isUsed)
    {
        for (const FieldInfo* const field : FieldsOf(info)) {
            const std::string place = Below(path, field->key);
            const format::JsonNode* const value = node.Member(field->key);
            if (value == nullptr) {
                Add(RuleId::kFieldMissing, node, place, "is missing");
            } else if (value->kind != KindOf(*field)) {
                Add(RuleId::kFieldType, *value, place,
                    std::string("is ") + value->KindName() + ", not " + KindName(KindOf(*field)));
            } else if (field->expected != nullptr) {
                const ClassInfo* const expected = field->expected;
                CheckObject(*value, {&expected, 1}, place, isUsed && IsUsed(node, info, *field));
            }
        }
    }

    /// Tells whether the installation looks at a child.
    static bool IsUsed(const format::JsonNode& node, const ClassInfo& info, const FieldInfo& field)
    {
        if (&info == &DB_ScriptStepSet::kInfo) {
            return std::strcmp(field.key, "UninstallScriptFunctionData") != 0;
        }
        if (&info == &DB_HardwareConfig::kInfo) {
            const format::JsonNode* const isUsed = node.Member("IsUsed");
            return isUsed == nullptr || isUsed->flag;
        }
        return true;
    }

    void CheckList(const format::JsonNode& node, const ClassInfo& info, const std::string& path,
                   bool isUsed)
    {
        const std::string place = Below(path, kValuesKey);
        const format::JsonNode* const values = node.Member(kValuesKey);
        if (values == nullptr) {
            Add(RuleId::kFieldMissing, node, place, "is missing");
            return;
        }
        if (values->kind != format::JsonNode::Kind::kArray) {
            Add(RuleId::kFieldType, *values, place,
                std::string("is ") + values->KindName() + ", not an array");
            return;
        }
        ++m_lists;
        ReportNesting(*values, place);
        for (std::size_t i = 0; i < values->elements.size(); ++i) {
            const format::JsonNode& element = values->elements[i];
            const std::string at = place + "[" + std::to_string(i) + "]";
            if (element.IsObject()) {
                CheckObject(element, info.elements, at, isUsed);
            } else {
                Add(RuleId::kFieldType, element, at,
                    std::string("is ") + element.KindName() + ", not an object");
            }
        }
        --m_lists;
    }

    void ReportNesting(const format::JsonNode& values, const std::string& place)
    {
        if (m_lists <= kFormatLists || values.elements.empty()) {
            return;
        }
        m_findings.AddAs(m_lists >= kUnbearableLists ? Severity::kError : Severity::kWarning,
                         RuleId::kListsNested, LocationIn(values, place),
                         "is list " + std::to_string(m_lists) + " of nested lists");
    }

    void ReportUnknownKeys(const format::JsonNode& node, const ClassInfo& info,
                           const std::string& path)
    {
        std::set<std::string_view> known = {format::kTypeKey};
        for (const FieldInfo* const field : FieldsOf(info)) {
            known.insert(field->key);
        }
        if (info.IsList()) {
            known.insert(kValuesKey);
        }
        for (const auto& [key, value] : node.members) {
            if (known.count(key) == 0) {
                Add(RuleId::kFieldUnknown, value, Below(path, key), "is not a field of this class");
            }
        }
    }

    Findings& m_findings;
    std::size_t m_depth = 0; ///< how many objects stand around the present one
    std::size_t m_lists = 0; ///< how many stand around the present object
};

} // namespace

Location LocationIn(const format::JsonNode& node, const std::string& path)
{
    return {archive::kDescriptionName, path, node.position};
}

void CheckClasses(const format::JsonNode& root, Findings& findings)
{
    const ClassInfo* const expected = &DB_KxUserProject::kInfo;
    ClassCheck(findings).CheckObject(root, {&expected, 1}, "", true);
}

} // namespace kx::checks
