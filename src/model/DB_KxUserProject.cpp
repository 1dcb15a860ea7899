// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/DB_KxUserProject.h"

#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"

namespace
{

constexpr FieldInfo kKxUserProjectFields[] = {
    MakeField("ModelName", &DB_KxUserProject::ModelName),
    MakeField("OsVersion", &DB_KxUserProject::OsVersion),
    MakeField("PackageVersion", &DB_KxUserProject::PackageVersion),
    MakeField("Title", &DB_KxUserProject::Title),
    MakeField("Comment", &DB_KxUserProject::Comment),
    MakeField("Date", &DB_KxUserProject::Date),
    MakeField("DB_StepSets", &DB_KxUserProject::DB_StepSets, &::DB_StepSets::kInfo),
};

} // namespace

const ClassInfo DB_KxUserProject::kInfo = {
    "Zt.Plugins.DB_KxUserProject, Plexa", nullptr, ViewOf(kKxUserProjectFields), {}};
