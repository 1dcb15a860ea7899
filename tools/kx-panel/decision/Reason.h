// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kx::guard
{

/// Why a panel refuses a package, in the order in which packages are judged. Behind each stand the
/// values that its texts name.
enum class ReasonId {
    kPanelFile,          ///< panel.toml is missing, damaged, or not only root's: {what is wrong}
    kKeyFolder,          ///< the folder of keys is missing, or not only root's: {what is wrong}
    kState,              ///< the folder of what is remembered cannot be used: {what is wrong}
    kUnread,             ///< what reads the package did not come to its end: {what happened}
    kSize,               ///< the file is too large: {its bytes, the most}
    kSignatureMissing,   ///< it is not signed, and must be: {}
    kSignatureDamaged,   ///< the block of signatures is not as it must be: {what is wrong}
    kSignatureBad,       ///< a signature is not good: {its key}
    kSignatureUntrusted, ///< no signature is by a key that counts here: {what the keys are}
    kSignatureChanged,   ///< the file is not the one that was signed
    kName,               ///< its name is none that a package can have: {the name}
    kStructure,          ///< the archive is not as it must be: {rule, what is wrong}
    kDescription,        ///< the description is not as it must be: {rule, what is wrong}
    kModel,              ///< it is for other models: {its model, the panel's}
    kOsVersion,          ///< it is for other versions of the system: {its version, the panel's}
    kProcessor,          ///< it brings a program for another processor: {file, its, the panel's}
    kVersionUnclear,     ///< a version cannot be compared: {that version}
    kVersionOlder,       ///< a newer one was installed: {its version, the highest}
    kRoom,   ///< a file system has not enough bytes: {folder, needed, free, bytes needed, free}
    kInodes, ///< a file system cannot hold that many files: {folder, needed, free}
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

/// Returns how many values the texts of a reason name.
[[nodiscard]] std::size_t ReasonValueCount(ReasonId id);

/// How many bytes a value may take in a text; of a longer one the beginning is shown.
constexpr std::size_t kLongestShown = 400;

/// Returns what is wrong, a sentence, printable. A value that is not there shows as "?".
[[nodiscard]] std::string WhatText(const Reason& reason, Language language);

/// Returns what to do about it, a sentence, printable.
[[nodiscard]] std::string RemedyText(const Reason& reason, Language language);

} // namespace kx::guard
