// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

/// One name and value of a hardware setting.
class DB_HardwareItem final : public IPicoJ
{
public:
    static const ClassInfo kInfo;

    std::string ItemName;
    std::string Value;

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};

/// The names and values of one hardware setting.
class DB_HardwareItems final : public T_DB_List<DB_HardwareItem>
{
public:
    static const ClassInfo kInfo;

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
};

/// One hardware setting.
class DB_HardwareConfig final : public IPicoJ
{
public:
    static const ClassInfo kInfo;

    std::string ConfigId;            ///< names the kind of setting
    bool IsUsed = false;             ///< false: the setting is passed over
    IPicoJ* HardwareItems = nullptr; ///< expected: a DB_HardwareItems list

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};

/// The settings of a hardware step.
class DB_HardwareConfigs final : public T_DB_List<DB_HardwareConfig>
{
public:
    static const ClassInfo kInfo;

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
};
