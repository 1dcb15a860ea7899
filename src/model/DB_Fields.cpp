// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/DB_Fields.h"

#include "engine/ILogger.h"
#include "engine/q_UpdaterEngine.h"
#include "osa/ResultCodes.h"

#include <picojson.h>

#include <exception>
#include <memory>
#include <string>

void IPicoJ::AddJ(IPicoJ* /*child*/) {}

namespace
{

/// Stores a field's JSON value in the member that takes it. JSON of another type throws; false
/// says that a child object could not be created.
class FieldStore
{
public:
    FieldStore(IPicoJ& record, picojson::value& value) : target(record), json(value) {}

    bool operator()(std::string IPicoJ::*member) const
    {
        target.*member = json.get<std::string>();
        return true;
    }

    bool operator()(bool IPicoJ::*member) const
    {
        target.*member = json.get<bool>();
        return true;
    }

    bool operator()(IPicoJ* IPicoJ::*member) const
    {
        target.*member = q_UpdaterEngine::CreatePicoJObject(json.get<picojson::object>());
        return target.*member != nullptr;
    }

private:
    IPicoJ& target;
    picojson::value& json;
};

/// Reads one field; a missing key reads as null.
/// @return false when the value is of another type, or a child object that could not be created
bool ReadField(IPicoJ& record, const FieldInfo& field, picojson::object& obj)
{
    try {
        return std::visit(FieldStore(record, obj[field.key]), field.member);
    } catch (const std::exception&) {
        return false;
    }
}

bool IsChild(const FieldInfo& field)
{
    return std::holds_alternative<IPicoJ * IPicoJ::*>(field.member);
}

/// Creates one list element from a private copy of its JSON object and hands it to the list.
int AddElement(IPicoJ& list, picojson::value& json)
{
    picojson::object copy = json.get<picojson::object>();
    std::unique_ptr<IPicoJ> child(q_UpdaterEngine::CreatePicoJObject(copy));
    if (child == nullptr) {
        return kElementError;
    }
    // The second filling is part of the format's contract: what the first one built below this
    // element is abandoned.
    if (const int result = child->Initialize(copy); result != 0) {
        q_UpdaterEngine::SysLogger->OutLine("Initialized error in %s class.", child->ClassType());
        return result;
    }
    list.AddJ(child.release());
    return 0;
}

} // namespace

int InitializeRecord(IPicoJ& record, const ClassInfo& info, picojson::object& obj)
{
    if (info.base != nullptr) {
        if (const int result = InitializeRecord(record, *info.base, obj); result != 0) {
            return result;
        }
    }
    for (const FieldInfo& field : info.fields) {
        if (IsChild(field) && q_UpdaterEngine::ChildlenMode == q_UpdaterEngine::kReadRootOnly) {
            return 0;
        }
        if (!ReadField(record, field, obj)) {
            q_UpdaterEngine::SysLogger->OutLine("No %s.%s field specified in .kx-project .",
                                                record.ClassType(), field.key);
            return kFieldError;
        }
    }
    return 0;
}

int InitializeList(IPicoJ& list, picojson::object& obj)
{
    try {
        for (picojson::value& element : obj[kValuesKey].get<picojson::array>()) {
            if (const int result = AddElement(list, element); result != 0) {
                return result;
            }
        }
        return 0;
    } catch (const std::exception&) {
        q_UpdaterEngine::SysLogger->OutLine("Initialized array error in %s class.",
                                            list.ClassType());
        return kFieldError;
    }
}
