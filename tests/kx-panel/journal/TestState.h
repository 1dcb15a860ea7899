// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "journal/State.h"
#include "support/TempDir.h"

#include <string>

namespace kx::guard
{

/// A place for what is remembered in a temporary folder, whose own folders anybody may change.
inline StatePlace PlaceIn(const TempDir& dir)
{
    return {dir / "state", dir / "wprotect_off", [](const std::string& /*path*/) {}};
}

} // namespace kx::guard
