// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::tool
{

/// How many bytes a passphrase may have.
constexpr std::size_t kLongestPassphrase = 1000;

/// Asks for the passphrase of a key: on the terminal, where it is not shown, or else by reading the
/// first line of standard input.
/// @param key      what it is for
/// @param isNew    it is asked for twice on a terminal
/// @throws Error kWrongUse when it is empty, too long, or the second one differs
[[nodiscard]] std::string AskPassphrase(const std::string& key, bool isNew);

} // namespace kx::tool
