// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "decision/Decision.h"

namespace kx::guard
{

/// Judges what is in a package whose signature was found good, or that needs none: its structure,
/// its description, the panel that it is for, its programs, its version, and the room that it
/// takes. The bytes are taken apart in the confinement; the contents of an unsigned package are all
/// unpacked there, those of a signed one are not.
/// @param place  where the package lies, which decides whether room for its copy is needed
/// @throws Error when the package cannot be read, or the confinement cannot be made
void DecideContents(const Panel& panel, IConfinement& confinement,
                    const archive::ByteSource& source, int descriptor, Place place,
                    Decision& decision);

} // namespace kx::guard
