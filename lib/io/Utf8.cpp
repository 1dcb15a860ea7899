// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Utf8.h"

#include <utf8.h>

namespace kx::io
{

bool IsUtf8(std::string_view text)
{
    return utf8::is_valid(text.begin(), text.end());
}

std::size_t Utf8Prefix(std::string_view text)
{
    return static_cast<std::size_t>(utf8::find_invalid(text.begin(), text.end()) - text.begin());
}

std::size_t Utf8Length(std::string_view text)
{
    constexpr std::size_t kLongest = 4;
    std::string_view rest = text.substr(0, Utf8Prefix(text.substr(0, kLongest)));
    const std::size_t size = rest.size();
    if (size != 0) {
        static_cast<void>(TakeCharacter(rest));
    }
    return size - rest.size();
}

char32_t TakeCharacter(std::string_view& text)
{
    const char* at = text.data();
    const char32_t character = utf8::unchecked::next(at);
    text.remove_prefix(static_cast<std::size_t>(at - text.data()));
    return character;
}

} // namespace kx::io
