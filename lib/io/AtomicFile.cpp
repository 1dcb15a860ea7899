// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/AtomicFile.h"

#include "io/Error.h"
#include "io/Transfer.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

constexpr mode_t kMode = 0666; // less the umask

std::string FolderOf(const std::string& path)
{
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

std::string NameOf(const std::string& path)
{
    return std::filesystem::path(path).filename().string();
}

/// Makes what happened in a folder last, as far as the file system can.
void SyncFolder(const std::string& path)
{
    const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsOpen()) {
        // The file is whole and in its place already, so a refusal is no failure.
        static_cast<void>(fsync(folder.Number()));
    }
}

} // namespace

AtomicFile::AtomicFile(std::string path) : m_path(std::move(path))
{
    if (m_path == kStandardOutput) {
        m_new.file = MakeTemporaryFile();
        return;
    }
    struct stat info {
    };
    if (lstat(m_path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISLNK(info.st_mode)) {
        throw Error(ExitCode::kNoAccess, m_path, "is there already, and is not a file",
                    "choose another name");
    }
    m_new = MakeFileIn(FolderOf(m_path), NameOf(m_path), kMode);
    if (!m_new.file.IsOpen()) {
        throw AccessError(m_path, "write", m_new.error);
    }
}

AtomicFile::~AtomicFile()
{
    if (!m_new.path.empty()) {
        static_cast<void>(unlink(m_new.path.c_str()));
    }
}

void AtomicFile::CopyToStandardOutput() const
{
    // What the program itself has written comes first.
    if (std::fflush(stdout) != 0) {
        throw AccessError("standard output", "write", errno);
    }
    constexpr const char* kShown = "the temporary file";
    if (lseek(m_new.file.Number(), 0, SEEK_SET) < 0) {
        throw AccessError(kShown, "read", errno);
    }
    CopyAll(m_new.file.Number(), kShown, STDOUT_FILENO, "standard output", UINT64_MAX);
}

void AtomicFile::Commit()
{
    if (m_path == kStandardOutput) {
        CopyToStandardOutput();
        return;
    }
    if (fsync(m_new.file.Number()) != 0) {
        throw AccessError(m_path, "write", errno);
    }
    if (const int error = NameFileIn(FolderOf(m_path), NameOf(m_path), m_new); error != 0) {
        throw AccessError(m_path, "write", error);
    }
    if (std::rename(m_new.path.c_str(), m_path.c_str()) != 0) {
        throw AccessError(m_path, "write", errno);
    }
    m_new.path.clear();
    SyncFolder(FolderOf(m_path));
}

void WriteNewFile(const std::string& path, std::string_view bytes, mode_t mode)
{
    const Descriptor file = CreateFile(path, mode);
    try {
        WriteAll(file.Number(), bytes, path);
        if (fsync(file.Number()) != 0) {
            throw AccessError(path, "write", errno);
        }
    } catch (const Error&) {
        static_cast<void>(unlink(path.c_str())); // the error says enough
        throw;
    }
    SyncFolder(FolderOf(path));
}

} // namespace kx::io
