// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/AtomicFolder.h"

#include "io/Error.h"
#include "io/TemporaryFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

namespace kx::io
{

namespace
{

namespace fs = std::filesystem;

std::string WithoutMarks(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

Error NotNew(const std::string& path)
{
    return {ExitCode::kWrongUse, path, "is there already, and is no empty folder",
            "name a folder that is not there yet"};
}

/// Tells whether an empty folder stands at the path.
/// @throws Error when anything else does
bool IsEmptyFolder(const std::string& path)
{
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (status.type() == fs::file_type::not_found) {
        return false;
    }
    if (status.type() == fs::file_type::none) {
        throw AccessError(path, "look at", error.value());
    }
    const bool isEmpty = fs::is_directory(path, error) && fs::is_empty(path, error);
    if (error) {
        throw AccessError(path, "look into the folder", error.value());
    }
    if (!isEmpty) {
        throw NotNew(path);
    }
    return true;
}

} // namespace

AtomicFolder::AtomicFolder(const std::string& path)
    : m_path(WithoutMarks(path)), m_isInside(IsEmptyFolder(m_path))
{
    const fs::path place(m_path);
    const std::string above = place.parent_path().string();
    const NewFolder made = MakeFolderIn(m_isInside ? m_path : (above.empty() ? "." : above),
                                        place.filename().string());
    if (made.error != 0) {
        throw AccessError(m_path, "make the folder", made.error);
    }
    m_made = made.path;
}

AtomicFolder::~AtomicFolder()
{
    if (!m_made.empty()) {
        std::error_code error;
        static_cast<void>(fs::remove_all(m_made, error)); // nobody is left to be told
    }
}

void AtomicFolder::MoveUp() const
{
    std::error_code error;
    std::vector<fs::path> moved;
    for (const auto& entry : fs::directory_iterator(m_made, error)) {
        moved.push_back(entry.path());
    }
    for (std::size_t i = 0; i < moved.size() && !error; ++i) {
        const fs::path place = fs::path(m_path) / moved[i].filename();
        // Whoever has put something there in the meantime keeps it.
        if (fs::exists(fs::symlink_status(place, error))) {
            error = std::make_error_code(std::errc::file_exists);
        } else {
            fs::rename(moved[i], place, error);
        }
        if (error) {
            std::error_code ignored;
            for (std::size_t back = 0; back < i; ++back) {
                fs::rename(fs::path(m_path) / moved[back].filename(), moved[back], ignored);
            }
        }
    }
    if (error) {
        throw AccessError(m_path, "write", error.value());
    }
    static_cast<void>(fs::remove(m_made, error)); // empty by now
}

void AtomicFolder::Commit()
{
    if (m_isInside) {
        MoveUp();
    } else if (std::rename(m_made.c_str(), m_path.c_str()) != 0) {
        if (errno == ENOTEMPTY || errno == EEXIST || errno == ENOTDIR) {
            throw NotNew(m_path);
        }
        throw AccessError(m_path, "write", errno);
    }
    m_made.clear();
}

} // namespace kx::io
