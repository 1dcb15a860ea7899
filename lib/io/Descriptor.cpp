// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Descriptor.h"

#include "io/Error.h"
#include "io/Reach.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

Error NoFile(const std::string& path)
{
    return {ExitCode::kProblems, path, "is not a file"};
}

} // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : m_number(other.Release()) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    Descriptor taken(std::move(other));
    std::swap(m_number, taken.m_number);
    return *this;
}

Descriptor::~Descriptor()
{
    Close();
}

int Descriptor::Release()
{
    return std::exchange(m_number, -1);
}

void Descriptor::Close()
{
    if (m_number >= 0) {
        const int number = errno;
        // Linux has closed it even when a signal cuts the call short.
        static_cast<void>(close(Release()));
        errno = number;
    }
}

std::string Descriptor::Path() const
{
    return "/proc/self/fd/" + std::to_string(m_number);
}

Descriptor OpenFile(const std::string& path, const std::string& doing)
{
    struct stat info {
    };
    if (stat(path.c_str(), &info) != 0) {
        throw ReadError(path, doing, errno);
    }
    if (!S_ISREG(info.st_mode)) {
        throw NoFile(path);
    }
    // The name may have come to stand for something else since: it must not be waited for.
    Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.IsOpen() || fstat(file.Number(), &info) != 0) {
        throw ReadError(path, doing, errno);
    }
    if (!S_ISREG(info.st_mode)) {
        throw NoFile(path);
    }
    return file;
}

Descriptor CreateFile(const std::string& path, mode_t mode)
{
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file.IsOpen()) {
        throw AccessError(path, "write", errno);
    }
    return file;
}

std::uint64_t SizeOf(const Descriptor& file, const std::string& shown)
{
    struct stat info {
    };
    if (fstat(file.Number(), &info) != 0) {
        throw AccessError(shown, "look at", errno);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

} // namespace kx::io
