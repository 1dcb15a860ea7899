// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ByteSource.h"

#include "io/Error.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::archive
{

FileBytes::FileBytes(std::string path)
    : m_path(std::move(path)), m_file(open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    struct stat info {
    };
    if (m_file < 0 || fstat(m_file, &info) != 0) {
        const int number = errno;
        if (m_file >= 0) {
            close(m_file);
        }
        throw io::AccessError(m_path, "open", number);
    }
    if (!S_ISREG(info.st_mode)) {
        close(m_file);
        throw io::Error(io::ExitCode::kNoAccess, m_path, "is no file");
    }
    m_size = static_cast<std::uint64_t>(info.st_size);
}

FileBytes::~FileBytes()
{
    close(m_file);
}

std::string FileBytes::Read(std::uint64_t offset, std::size_t count) const
{
    if (offset >= m_size) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(std::min<std::uint64_t>(count, m_size - offset)),
                      '\0');
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = pread(m_file, bytes.data() + done, bytes.size() - done,
                                  static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw io::AccessError(m_path, "read", errno);
        }
        if (got == 0) {
            break; // the file became shorter
        }
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

std::string MemoryBytes::Read(std::uint64_t offset, std::size_t count) const
{
    return offset >= m_bytes.size()
               ? std::string()
               : std::string(m_bytes.substr(static_cast<std::size_t>(offset), count));
}

} // namespace kx::archive
