// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "policy/Policy.h"

#include <string>
#include <vector>

namespace kx::guard
{

/// Returns the passwords among the settings of a package, so that they can be masked wherever they
/// are printed. They are found in the confinement.
/// @param source  reads from @p descriptor
/// @return nothing of a description that cannot be read
/// @throws Unread, Error as IConfinement
[[nodiscard]] std::vector<std::string> SecretsOf(IConfinement& confinement,
                                                 const archive::ByteSource& source, int descriptor,
                                                 const Limits& limits);

} // namespace kx::guard
