// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Path.h"

#include <string_view>

namespace kx::io
{

std::string PlainPath(const std::string& path)
{
    std::string plain;
    std::string_view rest = path;
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        const std::string_view part = rest.substr(0, slash);
        rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
        if (part == "..") {
            plain.resize(plain.empty() ? 0 : plain.rfind('/'));
        } else if (!part.empty() && part != ".") {
            plain.append("/").append(part);
        }
    }
    return plain.empty() ? "/" : plain;
}

std::string LastPart(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string FolderAbove(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

bool IsIn(const std::string& path, const std::string& folder)
{
    return path.compare(0, folder.size(), folder) == 0 &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

} // namespace kx::io
