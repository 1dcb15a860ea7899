// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::format
{

/// What stands for every password.
constexpr const char* kMasked = "********";

/// What is done with the passwords of a package before it is shown.
enum class Secrets { kMask, kShow };

/// Returns one of the panel's commands with kMasked in the place of its password: that of a user,
/// or one among the settings for the setting tool. There, all that follows is masked, too: where a
/// value ends cannot be told. Any other command is returned as it is.
[[nodiscard]] std::string MaskedCommand(const std::string& command);

} // namespace kx::format
