// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "common/Output.h"
#include "signature/Judgement.h"

#include <optional>
#include <string>

namespace kx::tool
{

/// What is known about a package's signatures.
struct SignerReport {
    std::optional<signature::Statement> statement; ///< nothing when none can be read
    std::vector<signature::Signer> signers;
    std::string problem; ///< why the package is not what was signed; empty when it is
};

/// Looks at a package's signatures.
/// @param folder  of keys that are known; empty: none is
/// @return nothing when the package is not signed
/// @throws Error when package or folder cannot be read
[[nodiscard]] std::optional<SignerReport> SignersOf(const archive::Package& package,
                                                    const std::string& folder);

/// Makes the JSON of it; null of a package that is not signed.
[[nodiscard]] picojson::value SignersAsJson(const std::optional<SignerReport>& report);

/// Tells it in lines of "show"; nothing of a package that is not signed.
void TellSigners(const Output& output, const std::optional<SignerReport>& report);

} // namespace kx::tool
