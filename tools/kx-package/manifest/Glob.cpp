// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "manifest/Glob.h"

#include "io/Error.h"
#include "io/Reach.h"
#include "io/Utf8.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

std::vector<std::string_view> Parts(std::string_view path)
{
    std::vector<std::string_view> parts;
    while (!path.empty()) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        if (slash != 0) {
            parts.push_back(path.substr(0, slash));
        }
        path.remove_prefix(std::min(slash + 1, path.size()));
    }
    return parts;
}

/// The length of the character that a name begins with. Bytes that are none count one by one.
std::size_t CharacterLength(std::string_view name)
{
    return std::max<std::size_t>(1, io::Utf8Length(name));
}

/// Matches what stands in one part; the last star takes what is needed, so nothing is tried twice
/// but from there.
bool MatchesName(std::string_view pattern, std::string_view name)
{
    if (!name.empty() && name[0] == '.' && (pattern.empty() || pattern[0] != '.')) {
        return false;
    }
    std::size_t p = 0;
    std::size_t n = 0;
    std::size_t star = std::string_view::npos;
    std::size_t taken = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            taken = n;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
            // One question mark is one character, however many bytes it has.
            n += pattern[p] == '?' ? CharacterLength(name.substr(n)) : 1;
            ++p;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            taken += CharacterLength(name.substr(taken));
            n = taken;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

/// Tells for every beginning of the pattern, counted in parts, whether it fits the whole path.
std::vector<bool> FittingBeginnings(const std::vector<std::string_view>& wanted,
                                    const std::vector<std::string_view>& given)
{
    std::vector<bool> beginnings = {given.empty()};
    // fits[j]: the parts of the pattern so far fit the first j parts of the path.
    std::vector<bool> fits(given.size() + 1, false);
    fits[0] = true;
    for (const std::string_view part : wanted) {
        std::vector<bool> next(given.size() + 1, false);
        const bool isAnyDepth = part == "**";
        next[0] = isAnyDepth && fits[0];
        for (std::size_t j = 1; j <= given.size(); ++j) {
            next[j] = isAnyDepth ? fits[j] || (next[j - 1] && given[j - 1][0] != '.')
                                 : fits[j - 1] && MatchesName(part, given[j - 1]);
        }
        fits = std::move(next);
        beginnings.push_back(fits.back());
    }
    return beginnings;
}

/// Tells whether the pattern may fit something in the folder.
bool MayFitBelow(std::string_view pattern, std::string_view folder)
{
    const std::vector<std::string_view> wanted = Parts(pattern);
    const std::vector<bool> beginnings = FittingBeginnings(wanted, Parts(folder));
    return std::find(beginnings.begin(), beginnings.end() - 1, true) != beginnings.end() - 1 ||
           (beginnings.back() && !wanted.empty() && wanted.back() == "**");
}

/// Tells what stands at a place, following links to files.
/// @param info  what lstat told about it
void RefuseUnlessFileOrFolder(const std::string& path, struct stat info)
{
    constexpr const char* kRemedy = "remove it, or list it in 'exclude'";
    const bool isLink = S_ISLNK(info.st_mode);
    if (isLink && !io::IsThere(path)) {
        throw io::Error(io::ExitCode::kProblems, path, "is a link that leads nowhere", kRemedy);
    }
    if (isLink && stat(path.c_str(), &info) != 0) {
        throw io::AccessError(path, "look at", errno);
    }
    if (isLink && S_ISDIR(info.st_mode)) {
        throw io::Error(io::ExitCode::kProblems, path, "is a link to a folder",
                        "put the folder itself there, or list the link in 'exclude'");
    }
    if (!S_ISDIR(info.st_mode) && !S_ISREG(info.st_mode)) {
        throw io::Error(io::ExitCode::kProblems, path, "is neither a file nor a folder", kRemedy);
    }
}

} // namespace

bool HasWildcard(std::string_view text)
{
    return text.find_first_of("*?") != std::string_view::npos;
}

bool MatchesPath(std::string_view pattern, std::string_view path)
{
    return FittingBeginnings(Parts(pattern), Parts(path)).back();
}

std::string FixedFolder(std::string_view pattern)
{
    const std::size_t wildcard = std::min(pattern.find_first_of("*?"), pattern.size());
    const std::size_t slash = pattern.substr(0, wildcard).rfind('/');
    if (slash == std::string_view::npos) {
        return {};
    }
    return slash == 0 ? "/" : std::string(pattern.substr(0, slash));
}

TreeFilter FilterOf(const std::string& pattern)
{
    return {[pattern](const std::string& name) { return MatchesPath(pattern, name); },
            [pattern](const std::string& folder) { return MayFitBelow(pattern, folder); }};
}

TreeFilter FilterWithout(const std::vector<std::string>& patterns)
{
    const auto isKept = [patterns](const std::string& name) {
        return std::none_of(patterns.begin(), patterns.end(), [&name](const std::string& pattern) {
            return MatchesPath(pattern, name);
        });
    };
    return {isKept, isKept};
}

std::vector<std::string> IdlePatterns(const std::string& folder, std::vector<std::string> patterns)
{
    std::error_code error;
    fs::recursive_directory_iterator place(folder, fs::directory_options::skip_permission_denied,
                                           error);
    for (; !error && !patterns.empty() && place != fs::recursive_directory_iterator();
         place.increment(error)) {
        const std::string name = place->path().lexically_relative(folder).string();
        patterns.erase(std::remove_if(patterns.begin(), patterns.end(),
                                      [&name](const std::string& pattern) {
                                          return MatchesPath(pattern, name);
                                      }),
                       patterns.end());
    }
    return patterns;
}

std::vector<FoundFile> ListTree(const std::string& folder, const TreeFilter& filter)
{
    std::vector<FoundFile> found;
    io::ForEachBelow(
        folder, [&](const std::string& name, const std::string& path, const struct stat& info) {
            const bool isFolder = S_ISDIR(info.st_mode);
            if (filter.isWanted(name)) {
                RefuseUnlessFileOrFolder(path, info);
                found.push_back({name, path, isFolder});
            }
            return isFolder && filter.isEntered(name);
        });
    std::sort(found.begin(), found.end(),
              [](const FoundFile& one, const FoundFile& other) { return one.name < other.name; });
    return found;
}

} // namespace kx::tool
