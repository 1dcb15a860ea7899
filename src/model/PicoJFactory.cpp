// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/PicoJFactory.h"

#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_KxUserProject.h"
#include "model/DB_StepSets.h"

void PicoJFactory::RegisterProjectClasses()
{
    AddObject(new DB_CopyFunctionData);
    AddObject(new DB_CopyFunctionDatas);
    AddObject(new DB_CopyStepSet);
    AddObject(new DB_HardwareItem);
    AddObject(new DB_HardwareItems);
    AddObject(new DB_HardwareConfig);
    AddObject(new DB_HardwareConfigs);
    AddObject(new DB_HardSettingFunctionData);
    AddObject(new DB_HardSettingStepSet);
    AddObject(new DB_ScriptFunctionData);
    AddObject(new DB_ScriptStepSet);
    AddObject(new DB_StepSets);
    AddObject(new DB_KxUserProject);
}
