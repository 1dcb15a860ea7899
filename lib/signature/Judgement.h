// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "signature/Block.h"
#include "signature/TrustedKeys.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::signature
{

/// What is to be said about one signature.
enum class SignerState {
    kGood,    ///< it suffices
    kLimited, ///< good, but the key does not count for this panel or this package
    kUnknown, ///< no key of the folder: passed over
    kRevoked, ///< passed over
    kDamaged, ///< what limits the key cannot be read: passed over
    kBad,     ///< it is no signature of the statement by this key: the package is refused
};

/// A signature, and what is to be said about it.
struct Signer {
    std::string keyId;
    std::string name; ///< of the key; empty when it is not known
    SignerState state = SignerState::kUnknown;
    /// The key counts on some models of panel only, and the panel's is not known.
    bool needsModel = false;
};

/// What is to be said about all of a block.
struct Judgement {
    std::vector<Signer> signers; ///< in the order of the block

    /// Tells whether a panel takes the statement for true: one signature suffices, and none is bad.
    [[nodiscard]] bool IsTrusted() const;
    [[nodiscard]] bool Has(SignerState state) const;
};

/// Tells whether a signature is a good one of these bytes by a key.
using Verifier =
    std::function<bool(const PublicKey& key, std::string_view signature, std::string_view bytes)>;

/// The one that is meant wherever no other is named: see PublicKey::IsGood.
[[nodiscard]] bool IsGoodSignature(const PublicKey& key, std::string_view signature,
                                   std::string_view bytes);

/// Judges a block's signatures by the block and the keys alone: the file is not looked at.
/// @param models  of the panel; nothing when not known, then limits to models do not count
/// @param verify  another one in tests of what comes behind good signatures
[[nodiscard]] Judgement Judge(const Block& block, const TrustedKeys& trusted,
                              const std::optional<std::vector<std::string>>& models,
                              const Verifier& verify = IsGoodSignature);

/// Returns a state's word, which never changes: "good", "unknown".
[[nodiscard]] const char* SignerStateName(SignerState state);

} // namespace kx::signature
