// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "decision/Reason.h"
#include "policy/Policy.h"
#include "signature/TrustedKeys.h"

#include <functional>
#include <optional>
#include <vector>

namespace kx::guard
{

/// What a panel says about itself and whom it trusts. Where that cannot be told, no package gets
/// in.
struct Door {
    std::optional<Policy> policy; ///< nothing when it is closed for that reason
    signature::TrustedKeys keys;
    std::vector<Reason> reasons; ///< why it is closed; empty: it is open

    [[nodiscard]] bool IsOpen() const { return reasons.empty(); }
};

/// Where that is read; a test hands in others.
struct DoorFiles {
    std::function<Policy()> readPolicy;
    std::function<signature::TrustedKeys(SignatureRule rule)> readKeys;
};

/// The files of this panel.
[[nodiscard]] DoorFiles PanelDoorFiles();

/// Reads both. Whatever is wrong with them is among the reasons.
[[nodiscard]] Door OpenDoor(const DoorFiles& files);

} // namespace kx::guard
