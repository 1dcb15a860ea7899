// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::tool
{

/// Refuses a file for the payload that is a private key, or has one in its first 64 KiB. What
/// cannot be read is left to whoever packs it.
/// @param shown  what an error calls the file
/// @param where  in the manifest
/// @throws Error kProblems
void RefusePrivateKey(const std::string& path, const std::string& shown, const std::string& where);

} // namespace kx::tool
