// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/T_PrototypeTable.h"

class DB_StepSet;
class IPicoJ;

/// An install step: made from its prototype, executed once, deleted.
class ISS_StepSet
{
public:
    ISS_StepSet() = default;
    ISS_StepSet(const ISS_StepSet&) = delete;
    ISS_StepSet& operator=(const ISS_StepSet&) = delete;
    virtual ~ISS_StepSet() = default;

    /// Returns the kind's key, a constant; two blanks stand behind its comma.
    [[nodiscard]] virtual const char* SS_StepSetId() const = 0;

    /// Creates a step of the same kind for @p data, owned by the caller.
    [[nodiscard]] virtual ISS_StepSet* New(DB_StepSet* data) const = 0;

    /// Performs the step; a failing item is reported once.
    ///
    /// With CanSkip in the record a failing item is passed over, but not an object of a class
    /// that the step cannot use.
    /// @param stepIndex  index of the step in the package, from 0; names its payload folder
    /// @return 0, a raw status of a command, or a result code
    [[nodiscard]] virtual int ExecuteInstallStep(int stepIndex) = 0;
};

/// What the kinds share: the record, not owned and null in a prototype, and the virtual functions
/// that only name the class.
template <class Derived>
class T_SS_StepSet : public ISS_StepSet
{
public:
    explicit T_SS_StepSet(DB_StepSet* record = nullptr) : data(record) {}

    [[nodiscard]] const char* SS_StepSetId() const override { return Derived::kStepSetId; }
    [[nodiscard]] ISS_StepSet* New(DB_StepSet* record) const override
    {
        return new Derived(record);
    }

protected:
    DB_StepSet* data;
};

/// Copies files, each to its own target.
class SS_CopyFileStepSet final : public T_SS_StepSet<SS_CopyFileStepSet>
{
public:
    static constexpr const char* kStepSetId = "Zt.Plugins.SS_CopyFileStepSet,  Plexa";
    using T_SS_StepSet::T_SS_StepSet;
    [[nodiscard]] int ExecuteInstallStep(int stepIndex) override;
};

/// Copies the contents of folders.
class SS_CopyFolderStepSet final : public T_SS_StepSet<SS_CopyFolderStepSet>
{
public:
    static constexpr const char* kStepSetId = "Zt.Plugins.SS_CopyFolderStepSet,  Plexa";
    using T_SS_StepSet::T_SS_StepSet;
    [[nodiscard]] int ExecuteInstallStep(int stepIndex) override;
};

/// Writes a script to /tmp/Zt/temp.sh and runs it; the file stays.
class SS_ScriptStepSet final : public T_SS_StepSet<SS_ScriptStepSet>
{
public:
    static constexpr const char* kStepSetId = "Zt.Plugins.SS_ScriptStepSet,  Plexa";
    using T_SS_StepSet::T_SS_StepSet;
    [[nodiscard]] int ExecuteInstallStep(int stepIndex) override;
};

/// Applies hardware settings; what they collect goes to the setting tool in one command.
class SS_HardSettingStepSet final : public T_SS_StepSet<SS_HardSettingStepSet>
{
public:
    static constexpr const char* kStepSetId = "Zt.Plugins.SS_HardSettingStepSet,  Plexa";
    using T_SS_StepSet::T_SS_StepSet;
    [[nodiscard]] int ExecuteInstallStep(int stepIndex) override;
};

/// The prototypes of the four kinds.
class SS_StepSetFactory : public T_PrototypeTable<ISS_StepSet>
{
public:
    SS_StepSetFactory();
};

/// Reports an object whose class the step at @p stepIndex cannot use. A child that is not there at
/// all, as after a root-only read, has no class to report.
/// @return kFieldError
[[nodiscard]] int SS_ReportUnexpected(const IPicoJ* found, int stepIndex);
