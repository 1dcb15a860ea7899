// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/PanelChanges.h"

#include <picojson.h>

#include <cctype>
#include <stdexcept>
#include <string_view>

namespace kx::tool
{

namespace
{

/// Returns the number of the \uXXXX that a text begins with, or -1.
int EscapedUnit(std::string_view text)
{
    constexpr std::size_t kLength = 6;
    constexpr int kBase = 16;
    if (text.size() < kLength || text[0] != '\\' || text[1] != 'u') {
        return -1;
    }
    int unit = 0;
    for (const char c : text.substr(2, kLength - 2)) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) {
            return -1;
        }
        const int letter = std::tolower(static_cast<unsigned char>(c));
        unit = unit * kBase + (letter <= '9' ? letter - '0' : letter - 'a' + 10);
    }
    return unit;
}

/// Turns what stands for single bytes that are no UTF-8, \udc80 to \udcff, into these bytes. As
/// the second half of a pair these codes are part of a character and stay.
std::string WithBytes(std::string_view json)
{
    std::string result;
    bool isSecondHalf = false;
    while (!json.empty()) {
        const int unit = EscapedUnit(json);
        const bool isByte = unit >= 0xdc80 && unit <= 0xdcff && !isSecondHalf;
        isSecondHalf = unit >= 0xd800 && unit <= 0xdbff;
        const std::size_t length = unit >= 0 ? 6 : json[0] == '\\' && json.size() > 1 ? 2 : 1;
        if (isByte) {
            result += static_cast<char>(unit & 0xff);
        } else {
            result += json.substr(0, length);
        }
        json.remove_prefix(length);
    }
    return result;
}

const picojson::object& ObjectOf(const picojson::value& value)
{
    if (!value.is<picojson::object>()) {
        throw std::runtime_error("an object is missing");
    }
    return value.get<picojson::object>();
}

const picojson::array& ListOf(const picojson::value& value, const char* key)
{
    const picojson::value& list = value.get(key);
    if (!list.is<picojson::array>()) {
        throw std::runtime_error(std::string("the list '") + key + "' is missing");
    }
    return list.get<picojson::array>();
}

std::optional<std::string> MaybeText(const picojson::value& value, const char* key)
{
    const picojson::object& object = ObjectOf(value);
    const auto place = object.find(key);
    if (place == object.end() || !place->second.is<std::string>()) {
        return std::nullopt;
    }
    return place->second.get<std::string>();
}

std::string Text(const picojson::value& value, const char* key)
{
    return MaybeText(value, key).value_or("");
}

FileChange FileOf(const picojson::value& value)
{
    FileChange file;
    file.change = Text(value, "change");
    file.path = Text(value, "path");
    file.mode = Text(value, "mode");
    file.octal = Text(value, "octal");
    file.owner = Text(value, "owner");
    file.group = Text(value, "group");
    file.target = Text(value, "target");
    const picojson::value& size = value.get("size");
    if (Text(value, "kind") != "d" && size.is<double>()) {
        file.size = static_cast<std::uint64_t>(size.get<double>());
    }
    return file;
}

std::vector<NamedChange> NamedOf(const picojson::array& list)
{
    std::vector<NamedChange> changes;
    for (const picojson::value& value : list) {
        changes.push_back({Text(value, "name"), Text(value, "change")});
    }
    return changes;
}

} // namespace

PanelChanges ReadPanelChanges(const std::string& json)
{
    picojson::value document;
    if (const std::string error = picojson::parse(document, WithBytes(json)); !error.empty()) {
        throw std::runtime_error(error);
    }
    static_cast<void>(ObjectOf(document));
    PanelChanges changes;
    for (const picojson::value& value : ListOf(document, "files")) {
        changes.files.push_back(FileOf(value));
    }
    for (const picojson::value& value : ListOf(document, "settings")) {
        changes.settings.push_back(
            {Text(value, "name"), MaybeText(value, "before"), MaybeText(value, "after")});
    }
    changes.users = NamedOf(ListOf(document, "users"));
    changes.packages = NamedOf(ListOf(document, "packages"));
    const picojson::value& reboot = document.get("reboot");
    changes.isRebootAsked = reboot.is<bool>() && reboot.get<bool>();
    return changes;
}

} // namespace kx::tool
