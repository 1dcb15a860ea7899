// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/MountTable.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace kx::tool
{

namespace
{

std::vector<std::string_view> SplitAt(std::string_view text, char mark)
{
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t end = std::min(text.find(mark), text.size());
        parts.push_back(text.substr(0, end));
        if (end == text.size()) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

/// Returns a field as it was meant: blanks and the like stand as three octal digits behind '\'.
std::string Unescaped(std::string_view field)
{
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        unsigned char byte = 0;
        const char* const digits = field.data() + i + 1;
        if (field[i] == '\\' && field.size() - i > 3 &&
            std::from_chars(digits, digits + 3, byte, 8).ptr == digits + 3) {
            text += static_cast<char>(byte);
            i += 3;
        } else {
            text += field[i];
        }
    }
    return text;
}

/// "36 35 98:0 /root /folder rw,noatime shared:1 - type source rw": how many fields stand before
/// the lonely '-' differs.
std::optional<Mount> ReadMount(std::string_view line)
{
    constexpr std::ptrdiff_t kFirstOptional = 6;
    const std::vector<std::string_view> fields = SplitAt(line, ' ');
    if (fields.size() <= static_cast<std::size_t>(kFirstOptional)) {
        return {};
    }
    const auto mark = std::find(fields.begin() + kFirstOptional, fields.end(), "-");
    Mount mount;
    const std::string_view id = fields[0];
    if (fields.end() - mark < 3 ||
        std::from_chars(id.data(), id.data() + id.size(), mount.id).ptr != id.data() + id.size()) {
        return {};
    }
    mount.root = Unescaped(fields[3]);
    mount.folder = Unescaped(fields[4]);
    mount.type = Unescaped(mark[1]);
    mount.source = Unescaped(mark[2]);
    return mount;
}

} // namespace

std::vector<Mount> ReadMounts(std::string_view table)
{
    std::vector<Mount> mounts;
    for (const std::string_view line : SplitAt(table, '\n')) {
        if (std::optional<Mount> mount = ReadMount(line); mount.has_value()) {
            mounts.push_back(std::move(*mount));
        }
    }
    return mounts;
}

} // namespace kx::tool
