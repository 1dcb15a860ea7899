// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/SourceFile.h"

#include "io/Error.h"
#include "io/Path.h"
#include "io/StandardInput.h"
#include "io/Transfer.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace kx::tool
{

namespace
{

bool IsSameMoment(const timespec& one, const timespec& other)
{
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

io::Descriptor OpenSource(const std::string& path)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (path == io::kStandardInput ||
        (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))) {
        throw io::Error(io::ExitCode::kWrongUse, path, "is no package file",
                        "kx-package build makes one");
    }
    return io::OpenFile(path);
}

} // namespace

SourceFile::SourceFile(std::string path)
    : m_path(std::move(path)), m_file(OpenSource(m_path)), m_info(Look())
{
}

std::string SourceFile::Name() const
{
    return io::LastPart(m_path);
}

struct stat SourceFile::Look() const
{
    struct stat info {
    };
    if (fstat(m_file.Number(), &info) != 0) {
        throw io::AccessError(m_path, "look at", errno);
    }
    return info;
}

void SourceFile::Read(char* bytes, std::size_t size, std::uint64_t offset) const
{
    if (io::ReadAt(m_file.Number(), bytes, size, offset, m_path) != size) {
        RefuseChanged();
        throw io::Error(io::ExitCode::kNoAccess, m_path, "ends too early");
    }
}

void SourceFile::RefuseChanged() const
{
    const struct stat now = Look();
    if (now.st_size != m_info.st_size || !IsSameMoment(now.st_mtim, m_info.st_mtim) ||
        !IsSameMoment(now.st_ctim, m_info.st_ctim)) {
        throw io::Error(io::ExitCode::kNoAccess, m_path, "was changed while it was copied",
                        "copy it when nothing writes to it");
    }
}

} // namespace kx::tool
