// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "format/Json.h"
#include "format/Kinds.h"
#include "format/Processor.h"
#include "io/Error.h"
#include "io/Mistakes.h"

#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kx::tool
{

/// The name of the manifest in its folder.
using archive::kManifestName;

using io::Mistakes;

/// Files to copy: one, or all that a pattern fits.
struct ManifestFiles {
    std::string source; ///< path or pattern below the manifest's folder, or an absolute one
    std::string target; ///< file on the panel, or folder when it ends in '/'
    std::string mode;   ///< three or four octal digits
    // File, line and column of these three.
    std::string where;
    std::string targetWhere;
    std::string modeWhere;
    std::string origin; ///< what the description says instead of `source`, and the package's name
                        ///< of the file; empty for the source itself
};

/// A folder whose contents are to be copied, or go into the package for other reasons.
struct ManifestFolder {
    std::string source;
    std::string target;
    std::vector<std::string> exclude;    ///< patterns of what stays out, below the folder
    std::vector<std::string> executable; ///< patterns of files that are programs
    std::string where;                   ///< file, line and column of `source`
    std::string targetWhere;
    std::string excludeWhere;
    std::string origin; ///< what the description says instead of `source`; empty for that itself
    std::map<std::string, unsigned> modes;    ///< of files, by their path below the folder
    std::map<std::string, std::string> names; ///< in the package, of files and of empty folders
    std::string archive;      ///< of a fast folder: path of its archive on the panel
    std::string archiveWhere; ///< file, line and column
};

/// One hardware setting.
struct ManifestSetting {
    const format::SettingKind* kind = nullptr;
    bool isUsed = true;
    std::vector<std::pair<std::string, std::string>> values; ///< as written
    std::string where;                                       ///< file, line and column of `kind`
    std::vector<std::string> valuesWhere;                    ///< of the values, in their order
};

/// An object of the description that is taken as it is.
struct ManifestObject {
    std::string path;                             ///< its file
    std::shared_ptr<const format::JsonNode> node; ///< null where there is none
};

/// The kind of steps that are taken as they are: the panel knows none of that name.
extern const format::StepKind kVerbatimKind;

/// One step; which members are used depends on its kind.
struct ManifestStep {
    const format::StepKind* kind = nullptr;
    std::string comment;
    bool canSkip = false;
    bool isRecorded = true;
    bool isFast = false; ///< its folders travel in one archive each
    std::vector<ManifestFiles> files;
    std::vector<ManifestFolder> folders;
    std::string install;   ///< text of the script
    std::string uninstall; ///< text of its counterpart
    std::vector<ManifestSetting> settings;
    ManifestObject verbatim; ///< the step itself, of the kind kVerbatimKind
    std::optional<ManifestFolder>
        payload;       ///< likewise: what is in the package's folder of the step
    std::string where; ///< file, line and column
    std::string installWhere;
    std::string uninstallWhere;
};

/// What an author wrote about a package. Texts are UTF-8 without zero characters; those that were
/// read from files have line feeds as line ends.
struct Manifest {
    std::string path;   ///< of the manifest
    std::string folder; ///< in which it lies, without a '/' at its end
    std::string name;   ///< of the package's file, without extension
    std::string title;
    std::string version;
    std::string comment;
    std::string model;
    std::string osVersion;
    std::string date;
    const format::Processor* processor = nullptr; ///< null only beside an updater of its own
    format::FloatAbi floatAbi = format::FloatAbi::kUnknown; ///< as the word for the processor says
    std::string panel;                    ///< path of the panel's description; may be empty
    std::string updater;                  ///< path of the packed updater; may be empty
    std::optional<std::time_t> timestamp; ///< of everything in the package
    ManifestObject texts;                 ///< the root with title and so on, if it is one
    std::optional<ManifestFolder> extra;  ///< what is in the package besides
    std::vector<ManifestStep> steps;
    std::map<std::string, std::string> where; ///< file, line and column of the identity's keys
};

/// Reads a manifest.
/// @param path  the manifest, or the folder in which it lies as kManifestName
/// @throws Errors for all that is wrong, each with its place and what to do
[[nodiscard]] Manifest ReadManifest(const std::string& path);

/// Reads a manifest as far as that is possible.
/// @param mistakes  gets all that is wrong. Steps and items with a mistake are left out; the
///                  processor is null when it has one
/// @throws Error when the file cannot be read
[[nodiscard]] Manifest ReadManifest(const std::string& path, Mistakes& mistakes);

/// Makes a name for a package's file, without the extension, that panels take well of any other.
[[nodiscard]] std::string AcceptedPackageName(std::string name);

/// Refuses a name for a package's file that the panel would not take well.
/// @param name  without the extension
/// @throws Error at @p where
void RefuseBadPackageName(const std::string& name, io::ExitCode code, const std::string& where,
                          const std::string& remedy);

} // namespace kx::tool
