// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/PanelFile.h"
#include "signature/TrustedKeys.h"

#include <string>

namespace kx::guard
{

using format::DowngradeRule;
using format::SignatureRule;

/// How much of a package a panel looks at, takes, and remembers.
using Limits = format::PanelLimits;

/// What a panel is, and what it lets in.
struct Policy {
    format::PanelModel model; ///< with models, system versions and a processor; without a root
    SignatureRule signatures = SignatureRule::kRequired;
    DowngradeRule downgrade = DowngradeRule::kRefuse;
    std::string state;   ///< plain full path of the folder of what is remembered
    std::string updater; ///< plain full path of the program that installs
    Limits limits;
};

} // namespace kx::guard
