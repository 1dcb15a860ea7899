// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

/// The root of a package description.
class DB_KxUserProject final : public T_DB_Record<DB_KxUserProject>
{
public:
    static const ClassInfo kInfo; ///< type string and fields

    std::string ModelName;
    std::string OsVersion;
    std::string PackageVersion; ///< shown to the user
    std::string Title;          ///< shown to the user
    std::string Comment;        ///< shown to the user
    std::string Date;
    IPicoJ* DB_StepSets = nullptr; ///< expected: a DB_StepSets list; null after a root-only read
};
