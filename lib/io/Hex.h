// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kx::io
{

/// Returns bytes as pairs of digits, small letters among them: "\x0a\xff" is "0aff".
[[nodiscard]] std::string Hex(std::string_view bytes);

} // namespace kx::io
