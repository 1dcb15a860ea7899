// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

/// One file or folder to copy.
class DB_CopyFunctionData final : public T_DB_Record<DB_CopyFunctionData>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    std::string SourcePath;      ///< path on the author's desktop; only its file name matters
    std::string DestinationPath; ///< target file or folder on the device
    std::string Permissions;     ///< chmod mode of a file item; empty means 777
};

/// The items of a copy step.
class DB_CopyFunctionDatas final : public T_DB_List<DB_CopyFunctionDatas, DB_CopyFunctionData>
{
public:
    static const ClassInfo kInfo; ///< type string and fields
};

/// One script.
class DB_ScriptFunctionData final : public T_DB_Record<DB_ScriptFunctionData>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    std::string ScriptData; ///< text of a shell script
};

/// The hardware settings of a step.
class DB_HardSettingFunctionData final : public T_DB_Record<DB_HardSettingFunctionData>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    IPicoJ* DB_HardwareConfigs = nullptr; ///< expected: a DB_HardwareConfigs list
};
