// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>

namespace picojson
{
class value;
} // namespace picojson

class DB_HardwareConfig;
class DB_StepSet;
class HW_ConfigSetFactory;
class IHW_ConfigSet;
class ILogger;
class IPicoJ;
class ISS_StepSet;
class PathList;
class PicoJFactory;
class SS_StepSetFactory;

/// The process-wide tables and state that reader, installer and install steps share.
///
/// The tables and lists are created before `main` and live until the process ends; there is one
/// thread and no lock. Every message goes through SysLogger.
class q_UpdaterEngine
{
public:
    q_UpdaterEngine() = delete;

    static ILogger* SysLogger;                   ///< set by InitSystem, owned by the run mode
    static PicoJFactory* PicoJTbl;               ///< project classes, filled by InitSystem
    static SS_StepSetFactory* SSTbl;             ///< install steps, filled before `main`
    static HW_ConfigSetFactory* HW_ConfigSetTbl; ///< hardware settings, filled before `main`
    static PathList* CopyFileList;               ///< files recorded in this run, oldest first
    static PathList* CopyFolderList;             ///< folders recorded in this run, oldest first
    static const std::string* CurrentPackage;    ///< unpacked folder while steps run, else null
    static int ChildlenMode;                     ///< kReadAll or kReadRootOnly

    static constexpr int kReadAll = 0;      ///< the reader reads every object
    static constexpr int kReadRootOnly = 1; ///< the reader stops at the root's first child object

    /// Stores the logger and registers the thirteen project classes. Called once per process,
    /// before a project is read.
    static void InitSystem(ILogger* logger);

    /// Creates the object that @p obj describes by its "$type" and fills it.
    ///
    /// A missing "$type" is added to @p obj as null.
    /// @return the object, owned by the caller, or null after the reason was logged
    [[nodiscard]] static IPicoJ* CreatePicoJObject(std::map<std::string, picojson::value>& obj);

    /// Creates the install step that @p record names in SS_StepSetId.
    /// @return the step, owned by the caller, or null after the reason was logged
    [[nodiscard]] static ISS_StepSet* CreateSS_StepSetObject(DB_StepSet* record);

    /// Creates the hardware setting that @p record names in ConfigId.
    /// @return the setting, owned by the caller, or null after the reason was logged
    [[nodiscard]] static IHW_ConfigSet* CreateHW_ConfigSet(DB_HardwareConfig* record);
};
