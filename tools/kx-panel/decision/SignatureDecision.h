// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "decision/Decision.h"

#include <string>

namespace kx::guard
{

// The bytes of the file are taken apart in the confinement, and only for the end records and the
// block; the digest is taken and the signature verified here, from fields that were checked.
//
// Where signatures are not required, the file's own name counts for an unsigned package.

/// Judges who signed a package, and reads nothing of it but the end records and the block: whoever
/// is going to copy the file need not do so before. Whether it is the one that was signed is not
/// judged. Fills in the name, the signer and the size of the block.
/// @return false when a reason was added
/// @throws Unread, Error as ReadProposal
[[nodiscard]] bool DecideSigner(const Panel& panel, IConfinement& confinement,
                                const archive::ByteSource& source, int descriptor,
                                const std::string& fileName, Decision& decision);

/// Judges that, and whether the file is the one that was signed, for which it reads all of it.
/// @return false when no more of the package may be looked at: a reason was added
/// @throws Error when the package cannot be read, or the confinement cannot be made
[[nodiscard]] bool DecideSignature(const Panel& panel, IConfinement& confinement,
                                   const archive::ByteSource& source, int descriptor,
                                   const std::string& fileName, Decision& decision);

} // namespace kx::guard
