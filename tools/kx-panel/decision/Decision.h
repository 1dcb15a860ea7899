// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "decision/FileSystems.h"
#include "decision/Reason.h"
#include "policy/Policy.h"
#include "signature/Judgement.h"
#include "signature/TrustedKeys.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kx::guard
{

/// What a package says about itself, once it may be believed.
struct PackageFacts {
    std::string name;   ///< signed; of an unsigned package that of the file
    std::string signer; ///< name of the key whose signature counts; empty of an unsigned package
    std::string title;
    std::string version;
    std::string model;
    std::string osVersion;
    std::uint64_t entries = 0;
    std::uint64_t unpackedBytes = 0;
    std::uint64_t blockSize = 0; ///< bytes of the block of signatures
};

/// Whether a panel installs a package.
struct Decision {
    std::vector<Reason> reasons; ///< in order; empty: it does
    PackageFacts facts;          ///< as far as the package was looked at

    [[nodiscard]] bool IsAccepted() const { return reasons.empty(); }
};

/// The panel that decides.
struct Panel {
    const Policy& policy;
    const signature::TrustedKeys& keys;
    const IFileSystems& fileSystems;
    /// Returns the highest version that was ever installed of a package; nothing when none was.
    std::function<std::optional<std::string>(const std::string& name)> highestVersion;
    /// Tells whether a signature is good; another one in tests of what comes behind signatures.
    signature::Verifier verify = signature::IsGoodSignature;
};

/// Whether the package is still to be copied into the folder of what is remembered.
enum class Place { kElsewhere, kInState };

/// Decides. Changes nothing.
/// @param source       the package; all of its bytes are read once for the digest
/// @param descriptor   the file of @p source, for the process that reads it
/// @param fileName     the file's own name, without its folder
/// @throws Error when the package cannot be read, or the confinement cannot be made
[[nodiscard]] Decision Decide(const Panel& panel, IConfinement& confinement,
                              const archive::ByteSource& source, int descriptor,
                              const std::string& fileName, Place place);

} // namespace kx::guard
