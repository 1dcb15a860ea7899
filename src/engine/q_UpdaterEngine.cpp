// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "engine/q_UpdaterEngine.h"

#include "engine/ILogger.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"
#include "model/PicoJFactory.h"
#include "osa/OSA_Abandon.h"
#include "osa/PathList.h"
#include "steps/HW.h"
#include "steps/SS.h"

#include <picojson.h>

#include <memory>
#include <stdexcept>

// Created before `main`, in this order, and never freed: they serve until the process ends.
PicoJFactory* q_UpdaterEngine::PicoJTbl = new PicoJFactory;
SS_StepSetFactory* q_UpdaterEngine::SSTbl = new SS_StepSetFactory;
HW_ConfigSetFactory* q_UpdaterEngine::HW_ConfigSetTbl = new HW_ConfigSetFactory;
PathList* q_UpdaterEngine::CopyFileList = new PathList;
PathList* q_UpdaterEngine::CopyFolderList = new PathList;

ILogger* q_UpdaterEngine::SysLogger = nullptr;
const std::string* q_UpdaterEngine::CurrentPackage = nullptr;
int q_UpdaterEngine::ChildlenMode = q_UpdaterEngine::kReadAll;

namespace
{

/// Finds the prototype whose identity string is @p id and lets @p create make an object of it.
/// @return the object, owned by the caller, or null after the reason was logged
template <class T, class Create>
T* CreateFrom(const T_PrototypeTable<T>& table, const char* id, const char* (T::*identity)() const,
              const Create& create)
{
    const T* const prototype = table.Find(id, identity);
    if (prototype == nullptr) {
        q_UpdaterEngine::SysLogger->OutLine("%s is unknown class.", id);
        return nullptr;
    }
    T* const object = create(*prototype);
    if (object == nullptr) {
        q_UpdaterEngine::SysLogger->OutLine("%s class can not create.", (prototype->*identity)());
    }
    return object;
}

/// Returns the "$type" string of a JSON object; empty after a message when there is none.
std::string TypeOf(picojson::object& obj)
{
    try {
        std::string type = obj["$type"].get<std::string>();
        if (type.empty()) {
            q_UpdaterEngine::SysLogger->OutLine("$type is empty");
        }
        return type;
    } catch (const std::runtime_error&) {
        q_UpdaterEngine::SysLogger->OutLine("$type is nothing");
        return {};
    }
}

} // namespace

void q_UpdaterEngine::InitSystem(ILogger* logger)
{
    SysLogger = logger;
    PicoJTbl->RegisterProjectClasses();
}

IPicoJ* q_UpdaterEngine::CreatePicoJObject(picojson::object& obj)
{
    const std::string type = TypeOf(obj);
    if (type.empty()) {
        return nullptr;
    }
    std::unique_ptr<IPicoJ> object(CreateFrom(*PicoJTbl, type.c_str(), &IPicoJ::ClassType,
                                              [](const IPicoJ& p) { return p.New(); }));
    if (object != nullptr && object->Initialize(obj) != 0) {
        SysLogger->OutLine("Initialized error in %s class.", object->ClassType());
        return nullptr;
    }
    // A list element is filled twice: what the first filling built below it is abandoned, and a
    // root or element that is given up leaves what stands below it.
    OSA_Abandon(object.get());
    return object.release();
}

ISS_StepSet* q_UpdaterEngine::CreateSS_StepSetObject(DB_StepSet* record)
{
    return CreateFrom(*SSTbl, record->SS_StepSetId.c_str(), &ISS_StepSet::SS_StepSetId,
                      [record](const ISS_StepSet& p) { return p.New(record); });
}

IHW_ConfigSet* q_UpdaterEngine::CreateHW_ConfigSet(DB_HardwareConfig* record)
{
    IHW_ConfigSet* const setting =
        CreateFrom(*HW_ConfigSetTbl, record->ConfigId.c_str(), &IHW_ConfigSet::ConfigId,
                   [record](const IHW_ConfigSet& p) { return p.New(record); });
    // A hardware step does not destroy its settings.
    OSA_Abandon(setting);
    return setting;
}
