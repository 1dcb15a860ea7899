// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/DB_Hardware.h"

#include <picojson.h>

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

const char* DB_HardwareItem::ClassType() const
{
    return kInfo.type;
}

IPicoJ* DB_HardwareItem::New() const
{
    return new DB_HardwareItem;
}

int DB_HardwareItem::Initialize(picojson::object& obj)
{
    return InitializeRecord(*this, kInfo, obj);
}

const ClassInfo DB_HardwareItems::kInfo = {
    "Zt.DB_HardwareItems, Drovic", nullptr, {}, ViewOf(kHardwareItemsElements)};

const char* DB_HardwareItems::ClassType() const
{
    return kInfo.type;
}

IPicoJ* DB_HardwareItems::New() const
{
    return new DB_HardwareItems;
}

const ClassInfo DB_HardwareConfig::kInfo = {
    "Zt.DB_HardwareConfig, Ruvelo", nullptr, ViewOf(kHardwareConfigFields), {}};

const char* DB_HardwareConfig::ClassType() const
{
    return kInfo.type;
}

IPicoJ* DB_HardwareConfig::New() const
{
    return new DB_HardwareConfig;
}

int DB_HardwareConfig::Initialize(picojson::object& obj)
{
    return InitializeRecord(*this, kInfo, obj);
}

const ClassInfo DB_HardwareConfigs::kInfo = {
    "Zt.DB_HardwareConfigs, Ruvelo", nullptr, {}, ViewOf(kHardwareConfigsElements)};

const char* DB_HardwareConfigs::ClassType() const
{
    return kInfo.type;
}

IPicoJ* DB_HardwareConfigs::New() const
{
    return new DB_HardwareConfigs;
}
