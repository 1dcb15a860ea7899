// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/StandardInput.h"

#include "io/Error.h"

#include <array>
#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

/// Makes a file that has no name, or has it no longer.
int MakeFile()
{
    const char* const named = std::getenv("TMPDIR");
    const std::string folder = named != nullptr && *named != '\0' ? named : "/tmp";
    int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (file < 0 && (errno == EOPNOTSUPP || errno == EISDIR)) {
        std::string name = folder + "/kx-package.XXXXXX";
        file = mkostemp(name.data(), O_CLOEXEC);
        if (file >= 0) {
            unlink(name.c_str());
        }
    }
    if (file < 0) {
        throw AccessError(folder, "make a temporary file", errno);
    }
    return file;
}

} // namespace

StandardInput::StandardInput()
{
    if (isatty(STDIN_FILENO) != 0) {
        throw Error(ExitCode::kWrongUse, kStandardInput, "standard input is a terminal",
                    "name a package, or pipe one in");
    }
    m_file = MakeFile();
    m_path = "/proc/self/fd/" + std::to_string(m_file);
    try {
        Read();
    } catch (const Error&) {
        close(m_file);
        throw;
    }
}

StandardInput::~StandardInput()
{
    close(m_file);
}

void StandardInput::Read()
{
    std::array<char, 1 << 16> piece{};
    while (true) {
        const ssize_t count = read(STDIN_FILENO, piece.data(), piece.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw AccessError("standard input", "read", errno);
        }
        if (count == 0) {
            return;
        }
        for (ssize_t done = 0; done < count;) {
            const ssize_t written =
                write(m_file, piece.data() + done, static_cast<std::size_t>(count - done));
            if (written < 0) {
                throw AccessError("a temporary file", "write", errno);
            }
            done += written;
        }
    }
}

} // namespace kx::io
