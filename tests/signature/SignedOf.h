// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "signature/Judgement.h"
#include "signature/PrivateKey.h"
#include "signature/SignedFile.h"

#include <string>
#include <vector>

namespace kx::signature
{

/// Keys that a test signs with; made once in each run, and never written down.
const PrivateKey& EdKey();
const PrivateKey& OtherEdKey();
const PrivateKey& P256Key();

/// Returns a small archive with two files.
std::string SmallZip();

/// Gives an archive end records of zip64, as large ones have them.
std::string WithZip64End(const std::string& zip);

/// Returns an archive with its block, which is the one of a statement about it by these keys.
std::string SignedBytes(const std::string& zip, const std::vector<const PrivateKey*>& keys,
                        const std::string& name = "demo");

/// Returns an archive with any block in front of its directory.
std::string WithBlock(const std::string& zip, const Block& block);

/// Returns the block of a statement about an archive.
Block BlockFor(const std::string& zip, const std::vector<const PrivateKey*>& keys,
               const std::string& name = "demo");

/// Returns a folder's keys, as if each lay there without limits.
TrustedKeys Trusting(const std::vector<const PrivateKey*>& keys);

/// Tells what a panel that trusts these keys says to a file: "" when it takes it, otherwise why
/// not.
std::string WhyRefused(const std::string& file, const TrustedKeys& trusted);

} // namespace kx::signature
