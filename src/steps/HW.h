// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/T_PrototypeTable.h"

#include <string>

class DB_HardwareConfig;
class DB_HardwareItems;
class IPicoJ;

/// A hardware setting, made from its prototype for one configuration of a hardware step.
class IHW_ConfigSet
{
public:
    /// @param config  the configuration, not owned; null in a prototype
    explicit IHW_ConfigSet(DB_HardwareConfig* config = nullptr) : data(config) {}
    IHW_ConfigSet(const IHW_ConfigSet&) = delete;
    IHW_ConfigSet& operator=(const IHW_ConfigSet&) = delete;
    virtual ~IHW_ConfigSet() = default;

    /// Returns the kind's key, a constant; two blanks stand behind its comma.
    [[nodiscard]] virtual const char* ConfigId() const = 0;

    /// Creates a setting of the same kind for @p config, owned by the caller.
    [[nodiscard]] virtual IHW_ConfigSet* New(DB_HardwareConfig* config) const = 0;

    /// Applies the configuration's items, or appends them to @p args for the setting tool: name,
    /// equals sign, value and a blank each, without quoting.
    /// @return 0, a raw status of a command, or a result code. kFieldError, with nothing done,
    ///         when the configuration holds an object that is no item.
    [[nodiscard]] virtual int SetHWSettings(std::string& args);

protected:
    DB_HardwareConfig* data;
};

/// What the kinds share: the virtual functions that only name the class.
template <class Derived>
class T_HW_ConfigSet : public IHW_ConfigSet
{
public:
    using IHW_ConfigSet::IHW_ConfigSet;
    [[nodiscard]] const char* ConfigId() const override { return Derived::kConfigId; }
    [[nodiscard]] IHW_ConfigSet* New(DB_HardwareConfig* config) const override
    {
        return new Derived(config);
    }
};

/// Installs the start-up script /mnt/user/startup.sh; collects its other items.
class HW_AutoStartupModeConfigSet final : public T_HW_ConfigSet<HW_AutoStartupModeConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
    [[nodiscard]] int SetHWSettings(std::string& args) override;
};

/// Brightness of the screen; collects its items.
class HW_BacklightConfigSet final : public T_HW_ConfigSet<HW_BacklightConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_BacklightConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
};

/// Mouse cursor; collects its items.
class HW_CursorConfigSet final : public T_HW_ConfigSet<HW_CursorConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_CursorConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
};

/// Language of the panel; collects its items.
class HW_LanguageConfigSet final : public T_HW_ConfigSet<HW_LanguageConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_LanguageConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
};

/// Network; collects its items.
class HW_LanConfigSet final : public T_HW_ConfigSet<HW_LanConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_LanConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
};

/// Sound; collects its items.
class HW_SoundConfigSet final : public T_HW_ConfigSet<HW_SoundConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_SoundConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
};

/// Start of the panel; collects its items.
class HW_SStartConfigSet final : public T_HW_ConfigSet<HW_SStartConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_SStartConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
};

/// Beep at a touch; collects its items.
class HW_TouchBeepConfigSet final : public T_HW_ConfigSet<HW_TouchBeepConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_TouchBeepConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
};

/// Changes a login password at once; collects nothing.
class HW_UserConfigSet final : public T_HW_ConfigSet<HW_UserConfigSet>
{
public:
    static constexpr const char* kConfigId = "Zt.Plugins.HW_UserConfigSet,  Plexa";
    using T_HW_ConfigSet::T_HW_ConfigSet;
    [[nodiscard]] int SetHWSettings(std::string& args) override;
};

/// The prototypes of the nine kinds.
class HW_ConfigSetFactory : public T_PrototypeTable<IHW_ConfigSet>
{
public:
    HW_ConfigSetFactory();
};

/// Returns the items of @p config when all of them can be used.
/// @param unexpected  with a null result: what stands in the list's or an item's place, null when
///                    nothing does
[[nodiscard]] const DB_HardwareItems* HW_ItemsOf(const DB_HardwareConfig& config,
                                                 IPicoJ*& unexpected);
