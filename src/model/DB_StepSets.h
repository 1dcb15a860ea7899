// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

/// What every step record holds.
class DB_StepSet : public IPicoJ
{
public:
    static const ClassInfo kBaseInfo;

    std::string SS_StepSetId; ///< names the kind of step
    std::string Comment;
    bool CanSkip = false; ///< true: a failing item is reported and the step goes on
};

/// Record of a step that copies files or folders.
class DB_CopyStepSet final : public DB_StepSet
{
public:
    static const ClassInfo kInfo;

    bool IsRelativePath = false;
    bool IsRemove = false;          ///< true: what the step creates is recorded
    IPicoJ* PathSetDatas = nullptr; ///< expected: a DB_CopyFunctionDatas list

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};

/// Record of a step that runs a script.
class DB_ScriptStepSet final : public DB_StepSet
{
public:
    static const ClassInfo kInfo;

    IPicoJ* InstallScriptFunctionData = nullptr;   ///< expected: a DB_ScriptFunctionData
    IPicoJ* UninstallScriptFunctionData = nullptr; ///< expected: a DB_ScriptFunctionData

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};

/// Record of a step that changes hardware settings.
class DB_HardSettingStepSet final : public DB_StepSet
{
public:
    static const ClassInfo kInfo;

    IPicoJ* HardSettingDatas = nullptr; ///< expected: a DB_HardSettingFunctionData

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};

/// The steps of a package, in the order in which they are executed.
class DB_StepSets final : public T_DB_List<DB_StepSet>
{
public:
    static const ClassInfo kInfo;

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
};
