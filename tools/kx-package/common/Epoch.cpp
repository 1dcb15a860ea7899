// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "common/Epoch.h"

#include "io/Error.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace kx::tool
{

std::optional<std::time_t> SourceDateEpoch()
{
    const char* const text = std::getenv("SOURCE_DATE_EPOCH");
    if (text == nullptr || *text == '\0') {
        return std::nullopt;
    }
    std::int64_t seconds = 0;
    const char* const end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text, end, seconds);
    if (error != std::errc() || rest != end || seconds < 0 || seconds >= kFirstOf2108) {
        throw io::Error(io::ExitCode::kWrongUse, "SOURCE_DATE_EPOCH",
                        "is '" + std::string(text) + "', which is not a time from 1970 to 2107",
                        "set it to seconds since 1970, or unset it");
    }
    return seconds;
}

std::string DateText(std::time_t moment)
{
    std::tm day{};
    static_cast<void>(gmtime_r(&moment, &day));
    std::array<char, 32> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y/%m/%d", &day);
    return {text.data(), length};
}

} // namespace kx::tool
