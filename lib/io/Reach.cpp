// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Reach.h"

#include "io/Nearest.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace kx::io
{

namespace
{

namespace fs = std::filesystem;

/// Looks at a path, following links.
/// @return 0 or an errno
int LookAt(const std::string& path)
{
    struct stat info {
    };
    return stat(path.c_str(), &info) == 0 ? 0 : errno;
}

/// Returns the names in a folder: no more than are quickly compared, and none of a folder that
/// cannot be listed.
std::vector<std::string> SomeNames(const std::string& folder)
{
    constexpr std::size_t kMost = 10000;
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator place(folder.empty() ? "." : folder, error);
    for (; !error && place != fs::directory_iterator() && names.size() < kMost;
         place.increment(error)) {
        names.push_back(place->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool IsSameButCase(std::string_view one, std::string_view other)
{
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    return one.size() == other.size() &&
           std::equal(one.begin(), one.end(), other.begin(),
                      [&lower](char a, char b) { return lower(a) == lower(b); });
}

/// Returns the name that was probably meant, empty when none comes near. An extension that both
/// have makes no names alike.
std::string NearestName(const std::string& name, const std::vector<std::string>& names)
{
    const auto same = std::find_if(names.begin(), names.end(), [&name](const std::string& each) {
        return IsSameButCase(each, name);
    });
    if (same != names.end()) {
        return *same;
    }
    const std::string extension = fs::path(name).extension().string();
    std::vector<std::string> stems;
    std::vector<std::string> others;
    for (const std::string& each : names) {
        const fs::path path(each);
        (path.extension() == extension ? stems : others).push_back(each);
        if (path.extension() == extension) {
            stems.back() = path.stem().string();
        }
    }
    const std::string stem = Nearest(fs::path(name).stem().string(), stems);
    return stem.empty() ? Nearest(name, others) : stem + extension;
}

/// Takes the first name off a path; both kinds of marks end one.
std::string TakeName(std::string_view& path)
{
    const std::size_t end = std::min(path.find_first_of("/\\"), path.size());
    std::string name(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
    return name;
}

/// Returns the path of a name in a folder.
std::string Joined(const std::string& folder, const std::string& name)
{
    std::string path = folder;
    path += path.empty() || path.back() == '/' ? "" : "/";
    path += name;
    return path;
}

/// A list of folders that are still to be visited, by their names below the first one.
using Waiting = std::vector<std::string>;

/// Visits what is in a folder itself.
/// @param below    path of the folder below the first one, empty for that itself
/// @param waiting  gets the folders in it that are to be visited
void VisitFolder(const std::string& top, const std::string& below, const BelowVisitor& visit,
                 Waiting& waiting)
{
    const std::string path = below.empty() ? top : Joined(top, below);
    std::error_code error;
    fs::directory_iterator place(path, error);
    for (; !error && place != fs::directory_iterator(); place.increment(error)) {
        const std::string last = place->path().filename().string();
        const std::string name = below.empty() ? last : Joined(below, last);
        const std::string whole = Joined(path, last);
        struct stat info {
        };
        if (lstat(whole.c_str(), &info) != 0) {
            throw AccessError(whole, "look at", errno);
        }
        if (visit(name, whole, info) && S_ISDIR(info.st_mode)) {
            waiting.push_back(name);
        }
    }
    if (error) {
        throw ReadError(path, "list the folder", error.value());
    }
}

} // namespace

bool MeansMissing(int number)
{
    return number == ENOENT || number == ENOTDIR || number == ELOOP || number == ENAMETOOLONG;
}

bool IsThere(const std::string& path)
{
    const int error = LookAt(path);
    if (error != 0 && !MeansMissing(error)) {
        throw AccessError(path, "look at", error);
    }
    return error == 0;
}

Error ReadError(const std::string& path, const std::string& doing, int number)
{
    const Error access = AccessError(path, doing, number);
    return !MeansMissing(number)
               ? access
               : Error(ExitCode::kProblems, path, access.what(), NearestPathRemedy("", path));
}

std::string NearestPath(const std::string& folder, const std::string& path)
{
    const bool isFull = !path.empty() && path[0] == '/';
    std::string real = isFull ? "/" : ""; // what there is, as it would be written
    const std::string before = isFull || folder.empty() ? "" : folder + "/";
    std::string_view rest = path;
    while (!rest.empty()) {
        const std::string name = TakeName(rest);
        if (name.empty()) {
            continue;
        }
        std::string found = name;
        const std::string place = before + real;
        if (LookAt(Joined(place, name)) != 0) {
            found = NearestName(name, SomeNames(place));
        }
        if (found.empty() || LookAt(Joined(place, found)) != 0) {
            return {};
        }
        real += found + (rest.empty() ? "" : "/");
    }
    return real == path ? "" : real;
}

std::string NearestPathRemedy(const std::string& folder, const std::string& path)
{
    const std::string nearest = NearestPath(folder, path);
    return nearest.empty() ? "" : "there is '" + nearest + "'";
}

void ForEachBelow(const std::string& folder, const BelowVisitor& visit)
{
    Waiting waiting = {""};
    while (!waiting.empty()) {
        const std::string below = std::move(waiting.back());
        waiting.pop_back();
        VisitFolder(folder, below, visit, waiting);
    }
}

} // namespace kx::io
