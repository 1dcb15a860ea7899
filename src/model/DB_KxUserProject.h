// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_Fields.h"

/// The root of a package description.
class DB_KxUserProject final : public IPicoJ
{
public:
    static const ClassInfo kInfo;

    std::string ModelName;
    std::string OsVersion;
    std::string PackageVersion; ///< shown to the user
    std::string Title;          ///< shown to the user
    std::string Comment;        ///< shown to the user
    std::string Date;
    IPicoJ* DB_StepSets = nullptr; ///< expected: a DB_StepSets list; null after a root-only read

    [[nodiscard]] const char* ClassType() const override;
    [[nodiscard]] IPicoJ* New() const override;
    [[nodiscard]] int Initialize(std::map<std::string, picojson::value>& obj) override;
};
