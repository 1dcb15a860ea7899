// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace kx::guard
{

/// Why a panel refuses a package, in the order in which packages are judged.
enum class ReasonId {
    kPanelFile,          ///< panel.toml is missing, damaged, or not only root's
    kKeyFolder,          ///< the folder of keys is missing, or not only root's
    kState,              ///< the folder of what is remembered cannot be used
    kUnread,             ///< what reads the package did not come to its end
    kSize,               ///< the file is too large
    kSignatureMissing,   ///< it is not signed, and must be
    kSignatureDamaged,   ///< the block of signatures is not as it must be
    kSignatureBad,       ///< a signature is not good
    kSignatureUntrusted, ///< no signature is by a key that counts here
    kSignatureChanged,   ///< the file is not the one that was signed
    kName,               ///< its name is none that a package can have
    kStructure,          ///< the archive is not as it must be
    kDescription,        ///< the description is not as it must be
    kModel,              ///< it is for other models
    kOsVersion,          ///< it is for other versions of the system
    kProcessor,          ///< it brings programs for another processor
    kVersionUnclear,     ///< its version cannot be compared
    kVersionOlder,       ///< a newer one was installed
    kRoom,               ///< a file system has not enough bytes
    kInodes,             ///< a file system cannot hold that many files
    kEnd
};

/// One reason, with what its texts name.
struct Reason {
    ReasonId id;
    /// What the texts have in the places {0}, {1}, …; they may hold any bytes of the package.
    std::vector<std::string> values;
};

/// Languages of texts for the people at the panel.
enum class Language { kEnglish, kJapanese };

/// Returns the language that LC_ALL, LC_MESSAGES or LANG asks for; English for any but Japanese.
[[nodiscard]] Language LanguageOfEnvironment();

/// Returns the stable word for a reason: "signature-missing".
[[nodiscard]] const char* ReasonWord(ReasonId id);

/// Returns what is wrong, a sentence, printable.
[[nodiscard]] std::string WhatText(const Reason& reason, Language language);

/// Returns what to do about it, a sentence, printable.
[[nodiscard]] std::string RemedyText(const Reason& reason, Language language);

} // namespace kx::guard
