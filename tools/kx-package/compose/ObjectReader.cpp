// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/ObjectReader.h"

#include "format/Classes.h"
#include "io/Error.h"
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"

#include <variant>

namespace kx::tool
{

namespace
{

using format::JsonNode;

/// Makes an empty object of that one of the classes which a table belongs to.
template <class... Classes>
IPicoJ* MakeOneOf(const ClassInfo* info, ProjectModel& model)
{
    IPicoJ* made = nullptr;
    static_cast<void>(
        ((info == &Classes::kInfo && (made = &model.Make<Classes>()) != nullptr) || ...));
    return made;
}

class ObjectReader
{
public:
    ObjectReader(const std::string& file, ProjectModel& model) : m_file(file), m_model(model) {}

    IPicoJ& Make(const JsonNode& node)
    {
        const ClassInfo* const info = format::ClassOf(node);
        IPicoJ* const object =
            MakeOneOf<DB_CopyFunctionData, DB_CopyFunctionDatas, DB_CopyStepSet, DB_HardwareItem,
                      DB_HardwareItems, DB_HardwareConfig, DB_HardwareConfigs,
                      DB_HardSettingFunctionData, DB_HardSettingStepSet, DB_ScriptFunctionData,
                      DB_ScriptStepSet, DB_StepSets, DB_KxUserProject>(info, m_model);
        if (object == nullptr) {
            Refuse(node, "is no object of a class that panels know");
        }
        if (info->IsList()) {
            FillList(node, *object);
        } else {
            FillRecord(node, *info, *object, false);
        }
        return *object;
    }

    void FillRoot(const JsonNode& node, bool isTextOnly)
    {
        if (format::ClassOf(node) != &DB_KxUserProject::kInfo) {
            Refuse(node, std::string("is no ") + DB_KxUserProject::kInfo.type);
        }
        FillRecord(node, DB_KxUserProject::kInfo, m_model.root, isTextOnly);
    }

private:
    [[noreturn]] void Refuse(const JsonNode& node, const std::string& what) const
    {
        throw io::Error(io::ExitCode::kProblems,
                        m_file + ":" + std::to_string(node.position.line) + ":" +
                            std::to_string(node.position.column),
                        what, "no panel reads such a description");
    }

    /// Returns the member of a kind that must be there.
    const JsonNode& Wanted(const JsonNode& node, const char* key, JsonNode::Kind kind) const
    {
        const JsonNode* const member = node.Member(key);
        if (member == nullptr) {
            Refuse(node, std::string("has no ") + key);
        }
        if (member->kind != kind) {
            Refuse(*member,
                   std::string("is ") + member->KindName() + ", which " + key + " must not be");
        }
        return *member;
    }

    void FillRecord(const JsonNode& node, const ClassInfo& info, IPicoJ& object, bool isTextOnly)
    {
        if (info.base != nullptr) {
            FillRecord(node, *info.base, object, isTextOnly);
        }
        for (const FieldInfo& field : info.fields) {
            if (const auto* const text = std::get_if<std::string IPicoJ::*>(&field.member)) {
                object.** text = Wanted(node, field.key, JsonNode::Kind::kString).text;
            } else if (const auto* const flag = std::get_if<bool IPicoJ::*>(&field.member)) {
                object.** flag = Wanted(node, field.key, JsonNode::Kind::kBool).flag;
            } else if (!isTextOnly) {
                object.*std::get<IPicoJ * IPicoJ::*>(field.member) =
                    &Make(Wanted(node, field.key, JsonNode::Kind::kObject));
            }
        }
    }

    void FillList(const JsonNode& node, IPicoJ& list)
    {
        for (const JsonNode& element : Wanted(node, kValuesKey, JsonNode::Kind::kArray).elements) {
            list.AddJ(&Make(element));
        }
    }

    const std::string& m_file;
    ProjectModel& m_model;
};

} // namespace

IPicoJ& MakeObject(const format::JsonNode& node, const std::string& file, ProjectModel& model)
{
    return ObjectReader(file, model).Make(node);
}

void FillRoot(const format::JsonNode& node, const std::string& file, ProjectModel& model)
{
    ObjectReader(file, model).FillRoot(node, false);
}

void FillRootTexts(const format::JsonNode& node, const std::string& file, ProjectModel& model)
{
    ObjectReader(file, model).FillRoot(node, true);
}

} // namespace kx::tool
