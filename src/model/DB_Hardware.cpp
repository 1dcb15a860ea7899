// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/DB_Hardware.h"

namespace
{

constexpr FieldInfo kHardwareItemFields[] = {
    MakeField("ItemName", &DB_HardwareItem::ItemName),
    MakeField("Value", &DB_HardwareItem::Value),
};

constexpr const ClassInfo* kHardwareItemsElements[] = {&DB_HardwareItem::kInfo};

constexpr FieldInfo kHardwareConfigFields[] = {
    MakeField("ConfigId", &DB_HardwareConfig::ConfigId),
    MakeField("IsUsed", &DB_HardwareConfig::IsUsed),
    MakeField("HardwareItems", &DB_HardwareConfig::HardwareItems, &::DB_HardwareItems::kInfo),
};

constexpr const ClassInfo* kHardwareConfigsElements[] = {&DB_HardwareConfig::kInfo};

} // namespace

const ClassInfo DB_HardwareItem::kInfo = {
    "Zt.DB_HardwareItem, Drovic", nullptr, ViewOf(kHardwareItemFields), {}};

const ClassInfo DB_HardwareItems::kInfo = {
    "Zt.DB_HardwareItems, Drovic", nullptr, {}, ViewOf(kHardwareItemsElements)};

const ClassInfo DB_HardwareConfig::kInfo = {
    "Zt.DB_HardwareConfig, Ruvelo", nullptr, ViewOf(kHardwareConfigFields), {}};

const ClassInfo DB_HardwareConfigs::kInfo = {
    "Zt.DB_HardwareConfigs, Ruvelo", nullptr, {}, ViewOf(kHardwareConfigsElements)};
