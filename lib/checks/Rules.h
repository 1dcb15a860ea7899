// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace kx::checks
{

/// How bad a finding is.
enum class Severity {
    kNote,    ///< good to know
    kWarning, ///< works, but surprises somebody
    kError,   ///< the package cannot be installed, or the panel does something else than written
};

/// Every rule, in the order of docs/checks.md.
enum class RuleId : std::size_t {
    // the package's own name
    kNameExtension,
    kNameEmpty,
    kNameShell,
    kNameAscii,
    kNameSeparator,
    kNameTemp,
    kNameWildcard,
    kNameTwin,
    kNameNeighbour,
    kNameCopy,
    kNameVersion,
    // the archive
    kArchiveEnd,
    kArchiveEmpty,
    kArchiveParts,
    kArchiveZip64,
    kArchiveDirectory,
    kArchiveCount,
    kArchiveLeading,
    kArchiveTrailing,
    kArchiveComment,
    kArchiveTooMany,
    kArchiveGap,
    kArchiveBomb,
    kEntryLocal,
    kEntryContent,
    kEntryOverlap,
    kEntryCrc,
    kEntryHeader,
    kEntryNameDiffers,
    kEntryExtra,
    kEntryEncrypted,
    kEntryMethod,
    kEntryBzip2,
    kEntryDeflate64,
    kEntryVersion,
    kEntryLink,
    kEntryLabel,
    // signatures
    kSignatureMissing,
    kSignatureDamaged,
    kSignatureChanged,
    kSignatureBad,
    kSignatureUntrusted,
    kSignatureHidden,
    kSignatureName,
    kSignatureModels,
    kSignatureKey,
    // names in the package
    kPathEmpty,
    kPathAbsolute,
    kPathUp,
    kPathBackslash,
    kPathControl,
    kPathVersion,
    kPathLong,
    kPathConflict,
    kPathTwice,
    kPathLocale,
    kPathDesktop,
    // the updater
    kUpdaterMissing,
    kUpdaterLink,
    kUpdaterMode,
    kUpdaterProgram,
    kUpdaterScript,
    kUpdaterCut,
    kUpdaterProcessor,
    kUpdaterOther,
    // the description file
    kDescriptionMissing,
    kDescriptionLink,
    kDescriptionSize,
    kDescriptionEncoding,
    kDescriptionMark,
    kDescriptionJson,
    kDescriptionRoot,
    kDescriptionZero,
    kDescriptionTrailing,
    kDescriptionUtf8,
    kDescriptionLatin1,
    kIdentityEmpty,
    kIdentityPanel,
    kListsNested,
    // objects and fields
    kTypeMissing,
    kTypeUnknown,
    kTypePlace,
    kFieldMissing,
    kFieldType,
    kFieldTwice,
    kFieldUnknown,
    // steps
    kStepKind,
    kStepClass,
    kStepEmpty,
    kPayloadMissing,
    kPayloadName,
    kPayloadFolder,
    kPayloadEmpty,
    kPayloadLink,
    kPayloadUnused,
    kTargetEmpty,
    kTargetRelative,
    kTargetRoot,
    kTargetWhole,
    kTargetFolder,
    kTargetFolderMode,
    kTargetBelowFile,
    kTargetTwice,
    kTargetSeparator,
    kTargetShell,
    kTargetLine,
    kTargetLong,
    kTargetLost,
    kTargetRegistry,
    kTargetUp,
    kTargetSystem,
    kTargetProtected,
    kTargetSpace,
    kStartupTwice,
    kSourceShell,
    kPermissions,
    kPermissionsMask,
    kPermissionsOpen,
    kCommandLong,
    kCommandTooLong,
    // programs in the payload
    kProgramProcessor,
    kProgramFloat,
    kProgramLoader,
    kProgramLibrary,
    kProgramVersion,
    // scripts
    kScriptEmpty,
    kScriptInterpreter,
    kScriptMark,
    kScriptReturn,
    kScriptCarriage,
    kScriptZero,
    kScriptMissing,
    kScriptSyntax,
    // settings
    kSettingKind,
    kSettingShell,
    kSettingBlank,
    kSettingPattern,
    kSettingName,
    kSettingEmpty,
    kSettingTwice,
    kSettingRefused,
    kUserQuote,
    kUserEscape,
    kUserLine,
    kUserLong,
    kUserMissing,
    kUserName,
    kUserUnknown,
    kUserItem,
    kUserPassword,
    // the installation as a whole
    kInstallationFails,
    // the manifest of a package that is not built yet
    kManifestMistake,
    kManifestHint,

    kEnd, ///< how many there are
};

/// What is known about a rule.
struct Rule {
    RuleId rule;
    const char* id;      ///< the name in all output; never changes
    Severity severity;   ///< unless a finding says otherwise
    const char* meaning; ///< what is wrong
    const char* happens; ///< what happens on the panel
    const char* remedy;  ///< what to do about it
};

/// Returns what is known about a rule.
[[nodiscard]] const Rule& RuleOf(RuleId rule);

/// Returns "error", "warning" or "note".
[[nodiscard]] const char* SeverityName(Severity severity);

} // namespace kx::checks
