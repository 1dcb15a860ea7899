// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/KeptPanel.h"

#include "io/Error.h"
#include "io/Path.h"
#include "io/TemporaryFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

constexpr const char* kOption = "--keep";

io::Error NotNew(const std::string& place)
{
    return {io::ExitCode::kWrongUse, place, "is there already",
            "name a folder that is not there yet"};
}

} // namespace

std::string PlaceToKeep(const std::string& named, const std::vector<std::string>& apart)
{
    std::string plain = named;
    while (plain.size() > 1 && plain.back() == '/') {
        plain.pop_back();
    }
    if (plain.empty()) {
        throw io::Error(io::ExitCode::kWrongUse, kOption, "has no name",
                        "name a folder that is not there yet");
    }
    std::error_code error;
    if (fs::symlink_status(plain, error).type() != fs::file_type::not_found) {
        throw NotNew(named);
    }
    const fs::path path(plain);
    const fs::path above =
        fs::canonical(path.has_parent_path() ? path.parent_path() : fs::path("."), error);
    if (!error && !fs::is_directory(above, error)) {
        error = std::make_error_code(std::errc::not_a_directory);
    }
    if (error) {
        throw io::AccessError(named, "make the folder", error.value());
    }
    std::string place = io::PlainPath((above / path.filename()).string());
    for (const std::string& other : apart) {
        const std::string real = fs::canonical(other, error).string();
        if (!error && io::IsIn(place, real)) {
            throw io::Error(io::ExitCode::kWrongUse, named, "lies in " + other,
                            "name a folder elsewhere");
        }
    }
    return place;
}

std::string MakeFolderBeside(const std::string& place)
{
    const fs::path path(place);
    const io::NewFolder made =
        io::MakeFolderIn(path.parent_path().string(), path.filename().string());
    if (made.error != 0) {
        throw io::AccessError(place, "make the folder", made.error);
    }
    // Nobody else looks into it, as the device has it.
    if (chmod(made.path.c_str(), S_IRWXU) != 0) {
        throw io::AccessError(made.path, "change the mode of the folder", errno);
    }
    return made.path;
}

bool GivePlace(const std::string& folder, const std::string& place)
{
    std::error_code error;
    if (fs::is_empty(folder, error)) {
        return false;
    }
    if (std::rename(folder.c_str(), place.c_str()) == 0) {
        return true;
    }
    if (errno == EEXIST || errno == ENOTEMPTY || errno == ENOTDIR) {
        throw NotNew(place);
    }
    throw io::AccessError(place, "write", errno);
}

} // namespace kx::tool
