// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

/// One file or folder to copy.
class DB_CopyFunctionData final : public IPicoJ
{
public:
    static const ClassInfo kInfo;

    std::string SourcePath;      ///< path on the author's desktop; only its file name matters
    std::string DestinationPath; ///< target file or folder on the device
    std::string Permissions;     ///< chmod mode of a file item; empty means 777

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};

/// The items of a copy step.
class DB_CopyFunctionDatas final : public T_DB_List<DB_CopyFunctionData>
{
public:
    static const ClassInfo kInfo;

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
};

/// One script.
class DB_ScriptFunctionData final : public IPicoJ
{
public:
    static const ClassInfo kInfo;

    std::string ScriptData; ///< text of a shell script

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};

/// The hardware settings of a step.
class DB_HardSettingFunctionData final : public IPicoJ
{
public:
    static const ClassInfo kInfo;

    IPicoJ* DB_HardwareConfigs = nullptr; ///< expected: a DB_HardwareConfigs list

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};
