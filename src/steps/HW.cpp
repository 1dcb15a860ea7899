// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "steps/HW.h"

#include "model/DB_Hardware.h"
#include "osa/OSA.h"
#include "osa/PanelNames.h"
#include "osa/ResultCodes.h"

#include <string>

namespace
{

void Collect(const DB_HardwareItem& item, std::string& args)
{
    args.append(item.ItemName).append("=").append(item.Value).append(" ");
}

/// Calls @p visit with every item of a configuration, in order.
/// @return 0, or kFieldError without a call when the configuration holds an object that is no item
template <class Visit>
int ForEachItem(const DB_HardwareConfig& config, const Visit& visit)
{
    IPicoJ* unexpected = nullptr;
    const DB_HardwareItems* const items = HW_ItemsOf(config, unexpected);
    if (items == nullptr) {
        return kFieldError;
    }
    for (int index = 0; index < items->count; ++index) {
        visit(static_cast<const DB_HardwareItem&>(*items->ElementAt(index)));
    }
    return 0;
}

/// Writes the start-up script and makes it executable for everybody.
int InstallStartupScript(std::string script)
{
    if (const int result = OSA_WriteStringToFile(script, PanelNames::kStartupScript); result != 0) {
        return result;
    }
    return OSA_Attr(PanelNames::kStartupScript, "777");
}

} // namespace

HW_ConfigSetFactory::HW_ConfigSetFactory()
{
    AddObject(new HW_AutoStartupModeConfigSet);
    AddObject(new HW_BacklightConfigSet);
    AddObject(new HW_CursorConfigSet);
    AddObject(new HW_LanguageConfigSet);
    AddObject(new HW_LanConfigSet);
    AddObject(new HW_SoundConfigSet);
    AddObject(new HW_SStartConfigSet);
    AddObject(new HW_TouchBeepConfigSet);
    AddObject(new HW_UserConfigSet);
}

const DB_HardwareItems* HW_ItemsOf(const DB_HardwareConfig& config, IPicoJ*& unexpected)
{
    unexpected = config.HardwareItems;
    const auto* const items = ObjectAs<DB_HardwareItems>(unexpected);
    for (int index = 0; items != nullptr && index < items->count; ++index) {
        unexpected = items->ElementAt(index);
        if (ObjectAs<DB_HardwareItem>(unexpected) == nullptr) {
            return nullptr;
        }
    }
    return items;
}

int IHW_ConfigSet::SetHWSettings(std::string& args)
{
    return ForEachItem(*data, [&args](const DB_HardwareItem& item) { Collect(item, args); });
}

int HW_AutoStartupModeConfigSet::SetHWSettings(std::string& args)
{
    int lastFailure = 0;
    const auto apply = [&](const DB_HardwareItem& item) {
        if (item.ItemName != "CustomScript") {
            Collect(item, args);
            return;
        }
        if (const int result = InstallStartupScript(item.Value); result != 0) {
            lastFailure = result;
        }
    };
    const int result = ForEachItem(*data, apply);
    return result != 0 ? result : lastFailure;
}

int HW_UserConfigSet::SetHWSettings(std::string& /*args*/)
{
    std::string user;
    std::string password;
    const auto pick = [&](const DB_HardwareItem& item) {
        if (item.ItemName == "User") {
            user = item.Value;
        } else if (item.ItemName == "Password") {
            password = item.Value;
        }
    };
    if (const int result = ForEachItem(*data, pick); result != 0) {
        return result;
    }
    return OSA_Shell("echo '%s:%s' | chpasswd", user.c_str(), password.c_str());
}
