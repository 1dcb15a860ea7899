// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/AtomicFile.h"

#include "io/Error.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

constexpr mode_t kMode = 0666; // less the umask
constexpr unsigned kMostAttempts = 1000;

std::string FolderOf(const std::string& path)
{
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

/// Tells whether an error of open means that the file system knows no files without names.
bool IsUnknownToFileSystem(int number)
{
    return number == EOPNOTSUPP || number == EISDIR || number == EINVAL || number == ENOENT;
}

/// Makes what happened in a folder last, as far as the file system can.
void SyncFolder(const std::string& folder)
{
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        // The file is whole and in its place already, so a refusal is no failure.
        static_cast<void>(fsync(descriptor));
        static_cast<void>(close(descriptor));
    }
}

} // namespace

AtomicFile::AtomicFile(std::string path) : m_path(std::move(path))
{
    if (m_path == kStandardOutput) {
        std::error_code error;
        const std::string folder = std::filesystem::temp_directory_path(error).string();
        m_path = folder + "/kx-package";
        Begin(folder);
        m_path = kStandardOutput;
        return;
    }
    struct stat info {
    };
    if (lstat(m_path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISLNK(info.st_mode)) {
        throw Error(ExitCode::kNoAccess, m_path, "is there already, and is not a file",
                    "choose another name");
    }
    Begin(FolderOf(m_path));
}

AtomicFile::~AtomicFile()
{
    if (m_descriptor >= 0) {
        static_cast<void>(close(m_descriptor));
    }
    if (!m_temporary.empty()) {
        static_cast<void>(unlink(m_temporary.c_str()));
    }
}

void AtomicFile::Begin(const std::string& folder)
{
    m_descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kMode);
    if (m_descriptor < 0 && !IsUnknownToFileSystem(errno)) {
        throw AccessError(m_path, "write", errno);
    }
    for (unsigned number = 0; m_descriptor < 0; ++number) {
        const std::string name = Beside(number);
        m_descriptor = open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, kMode);
        if (m_descriptor >= 0) {
            m_temporary = name;
        } else if (errno != EEXIST || number == kMostAttempts) {
            throw AccessError(m_path, "write", errno);
        }
    }
}

std::string AtomicFile::Beside(unsigned number) const
{
    const std::filesystem::path path(m_path);
    const std::string name = "." + path.filename().string() + "." + std::to_string(getpid()) + "-" +
                             std::to_string(number);
    return (path.parent_path() / name).string();
}

void AtomicFile::GiveName()
{
    const std::string nameless = "/proc/self/fd/" + std::to_string(m_descriptor);
    for (unsigned number = 0; m_temporary.empty(); ++number) {
        std::string name = Beside(number);
        if (linkat(AT_FDCWD, nameless.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
            m_temporary = std::move(name);
        } else if (errno != EEXIST || number == kMostAttempts) {
            throw AccessError(m_path, "write", errno);
        }
    }
}

void AtomicFile::CopyToStandardOutput() const
{
    std::array<char, 1 << 16> piece{};
    off_t offset = 0;
    for (;;) {
        const ssize_t count = pread(m_descriptor, piece.data(), piece.size(), offset);
        if (count < 0) {
            throw AccessError("the temporary file", "read", errno);
        }
        if (count == 0) {
            break;
        }
        if (std::fwrite(piece.data(), 1, static_cast<std::size_t>(count), stdout) !=
            static_cast<std::size_t>(count)) {
            throw AccessError("standard output", "write", errno);
        }
        offset += count;
    }
    if (std::fflush(stdout) != 0) {
        throw AccessError("standard output", "write", errno);
    }
}

void AtomicFile::Commit()
{
    if (m_path == kStandardOutput) {
        CopyToStandardOutput();
        return;
    }
    if (fsync(m_descriptor) != 0) {
        throw AccessError(m_path, "write", errno);
    }
    GiveName();
    if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0) {
        throw AccessError(m_path, "write", errno);
    }
    m_temporary.clear();
    SyncFolder(FolderOf(m_path));
}

} // namespace kx::io
