// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

/// What every step record holds. Which class it is and how one is made stays with the records.
class DB_StepSet : public IPicoJ
{
public:
    static const ClassInfo kBaseInfo; ///< the fields that come first in every step record

    /// Fills the three fields below, and none of a derived record.
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;

    std::string SS_StepSetId; ///< names the kind of step
    std::string Comment;
    bool CanSkip = false; ///< true: a failing item is reported and the step goes on
};

/// Record of a step that copies files or folders.
class DB_CopyStepSet final : public T_DB_Record<DB_CopyStepSet, DB_StepSet>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    bool IsRelativePath = false;
    bool IsRemove = false;          ///< true: what the step creates is recorded
    IPicoJ* PathSetDatas = nullptr; ///< expected: a DB_CopyFunctionDatas list
};

/// Record of a step that runs a script.
class DB_ScriptStepSet final : public T_DB_Record<DB_ScriptStepSet, DB_StepSet>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    IPicoJ* InstallScriptFunctionData = nullptr;   ///< expected: a DB_ScriptFunctionData
    IPicoJ* UninstallScriptFunctionData = nullptr; ///< expected: a DB_ScriptFunctionData
};

/// Record of a step that changes hardware settings.
class DB_HardSettingStepSet final : public T_DB_Record<DB_HardSettingStepSet, DB_StepSet>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    IPicoJ* HardSettingDatas = nullptr; ///< expected: a DB_HardSettingFunctionData
};

/// The steps of a package, in the order in which they are executed.
class DB_StepSets final : public T_DB_List<DB_StepSets, DB_StepSet>
{
public:
    static const ClassInfo kInfo; ///< type string and fields
};
