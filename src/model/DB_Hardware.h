// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

/// One name and value of a hardware setting.
class DB_HardwareItem final : public T_DB_Record<DB_HardwareItem>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    std::string ItemName;
    std::string Value;
};

/// The names and values of one hardware setting.
class DB_HardwareItems final : public T_DB_List<DB_HardwareItems, DB_HardwareItem>
{
public:
    static const ClassInfo kInfo; ///< type string and fields
};

/// One hardware setting.
class DB_HardwareConfig final : public T_DB_Record<DB_HardwareConfig>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    std::string ConfigId;            ///< names the kind of setting
    bool IsUsed = false;             ///< false: the setting is passed over
    IPicoJ* HardwareItems = nullptr; ///< expected: a DB_HardwareItems list
};

/// The settings of a hardware step.
class DB_HardwareConfigs final : public T_DB_List<DB_HardwareConfigs, DB_HardwareConfig>
{
public:
    static const ClassInfo kInfo; ///< type string and fields
};
