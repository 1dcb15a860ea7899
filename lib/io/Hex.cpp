// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Hex.h"

namespace kx::io
{

std::string Hex(std::string_view bytes)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        hex += kDigits[byte >> 4U];
        hex += kDigits[byte & 0xfU];
    }
    return hex;
}

} // namespace kx::io
