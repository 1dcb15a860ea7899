// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "unpack/LocalNames.h"

#include "io/Utf8.h"

#include <algorithm>
#include <array>

namespace kx::tool
{

namespace
{

/// Letters beyond ASCII stay: where a disk takes two of them for one, making the file fails.
std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return lower;
}

bool IsHarmful(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f ||
           std::string_view("/\\:*?\"<>|$`").find(c) != std::string_view::npos;
}

/// Tells whether some system takes the name for a device.
bool IsDeviceName(const std::string& lower)
{
    constexpr std::array<std::string_view, 6> kDevices = {"con", "prn", "aux", "nul", "com", "lpt"};
    const std::string stem = lower.substr(0, lower.find('.'));
    const bool isNumbered = stem.size() == 4 && stem[3] >= '0' && stem[3] <= '9';
    const std::string_view word = std::string_view(stem).substr(0, 3);
    const auto* const found = std::find(kDevices.begin(), kDevices.end(), word);
    return found != kDevices.end() && (isNumbered ? found >= kDevices.end() - 2
                                                  : stem.size() == 3 && found < kDevices.end() - 2);
}

std::string Numbered(const std::string& name, unsigned number)
{
    return name + "~" + std::to_string(number);
}

} // namespace

std::string HarmlessName(std::string_view part)
{
    std::string name;
    for (std::string_view rest = part; !rest.empty();) {
        const std::size_t length = io::Utf8Length(rest);
        const bool isKept = length > 1 || (length == 1 && !IsHarmful(rest[0]));
        name += isKept ? std::string(rest.substr(0, length)) : "_";
        rest.remove_prefix(std::max<std::size_t>(length, 1));
    }
    const std::string lower = Lower(name);
    if (name.empty() || name.front() == '-' || name.front() == ' ' || name == "." || name == ".." ||
        lower == ".git" || IsDeviceName(lower)) {
        const bool isReplaced = lower == ".git" || lower.substr(0, 1) == "-";
        name = "_" + name.substr(isReplaced ? 1 : 0);
    }
    if (name.back() == '.' || name.back() == ' ') {
        name.back() = '_';
    }
    return name;
}

bool IsHarmlessPath(std::string_view path)
{
    constexpr std::size_t kLongest = 1000;
    if (path.empty() || path.size() > kLongest || path.front() == '.') {
        return false;
    }
    while (true) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        const std::string_view part = path.substr(0, slash);
        if (part.empty() || HarmlessName(part) != part) {
            return false;
        }
        if (slash == path.size()) {
            return true;
        }
        path.remove_prefix(slash + 1);
    }
}

std::string LocalNames::Of(const std::string& path)
{
    const auto known = m_paths.find(path);
    if (known != m_paths.end()) {
        return known->second;
    }
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : Of(path.substr(0, slash)) + "/";
    const std::string name =
        HarmlessName(std::string_view(path).substr(slash == std::string::npos ? 0 : slash + 1));
    std::string local = folder + name;
    for (unsigned number = 2; !m_taken.insert(Lower(local)).second; ++number) {
        local = folder + Numbered(name, number);
    }
    m_paths[path] = local;
    return local;
}

bool LocalPlaces::Take(const std::string& path, bool isTree)
{
    const std::string lower = Lower(path);
    if (m_taken.count(lower) != 0) {
        return false;
    }
    for (std::size_t slash = lower.find('/'); slash != std::string::npos;
         slash = lower.find('/', slash + 1)) {
        if (m_taken.count(lower.substr(0, slash)) != 0) {
            return false; // a tree, or a file, which can be no folder
        }
    }
    const std::string below = lower + "/";
    const auto next = m_taken.lower_bound(below);
    if (next != m_taken.end() && next->first.compare(0, below.size(), below) == 0) {
        return false;
    }
    m_taken[lower] = isTree;
    return true;
}

std::string LocalPlaces::TakeNear(const std::string& path, bool isTree)
{
    std::string place = path;
    for (unsigned number = 2; !Take(place, isTree); ++number) {
        place = Numbered(path, number);
    }
    return place;
}

bool LocalPlaces::TakeFile(const std::string& path)
{
    return Take(path, false);
}

bool LocalPlaces::TakeTree(const std::string& path)
{
    return Take(path, true);
}

std::string LocalPlaces::TakeFileNear(const std::string& path)
{
    return TakeNear(path, false);
}

std::string LocalPlaces::TakeTreeNear(const std::string& path)
{
    return TakeNear(path, true);
}

} // namespace kx::tool
