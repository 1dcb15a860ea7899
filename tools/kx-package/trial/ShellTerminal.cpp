// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/ShellTerminal.h"

#include "io/Error.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

using Piece = std::array<char, 4096>;

void WriteAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return; // the person's terminal is gone, which reading tells
        }
        text.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

} // namespace

bool ShellTerminal::IsThere()
{
    return isatty(STDIN_FILENO) != 0;
}

ShellTerminal::ShellTerminal()
{
    constexpr int kFlags = O_RDWR | O_NOCTTY | O_CLOEXEC;
    std::array<char, 256> name{};
    int error = ttyname_r(STDIN_FILENO, name.data(), name.size());
    if (error == 0) {
        m_person = open(name.data(), kFlags);
        m_ourSide = posix_openpt(kFlags | O_NONBLOCK);
        const bool isOpen = m_person >= 0 && m_ourSide >= 0 && grantpt(m_ourSide) == 0 &&
                            unlockpt(m_ourSide) == 0 &&
                            ptsname_r(m_ourSide, name.data(), name.size()) == 0;
        m_panelSide = isOpen ? open(name.data(), kFlags) : -1;
        error = m_panelSide >= 0 && tcgetattr(m_person, &m_before) == 0 ? 0 : errno;
    }
    if (error != 0) {
        Close();
        throw io::AccessError("--shell", "use the terminal of standard input", error);
    }
    CopySize();
    static_cast<void>(tcsetattr(m_panelSide, TCSANOW, &m_before));
    termios raw = m_before;
    cfmakeraw(&raw);
    static_cast<void>(tcsetattr(m_person, TCSADRAIN, &raw));
}

ShellTerminal::~ShellTerminal()
{
    static_cast<void>(tcsetattr(m_person, TCSADRAIN, &m_before));
    Close();
}

void ShellTerminal::Close()
{
    for (const int descriptor : {m_person, m_ourSide, m_panelSide}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

bool ShellTerminal::TakeKeys()
{
    Piece piece{};
    const ssize_t count = read(m_person, piece.data(), piece.size());
    if (count > 0) {
        m_pending.append(piece.data(), static_cast<std::size_t>(count));
    }
    return count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
}

void ShellTerminal::HandOver()
{
    const ssize_t count = write(m_ourSide, m_pending.data(), m_pending.size());
    if (count > 0) {
        m_pending.erase(0, static_cast<std::size_t>(count));
    }
}

void ShellTerminal::ShowPrinted()
{
    Piece piece{};
    const ssize_t count = read(m_ourSide, piece.data(), piece.size());
    if (count > 0) {
        WriteAll(m_person, {piece.data(), static_cast<std::size_t>(count)});
    }
}

void ShellTerminal::CopySize() const
{
    winsize size{};
    winsize known{};
    if (ioctl(m_person, TIOCGWINSZ, &size) == 0 && ioctl(m_ourSide, TIOCGWINSZ, &known) == 0 &&
        (size.ws_row != known.ws_row || size.ws_col != known.ws_col)) {
        static_cast<void>(ioctl(m_ourSide, TIOCSWINSZ, &size));
    }
}

void ShellTerminal::Say(const std::string& line) const
{
    WriteAll(m_person, line + "\r\n");
}

} // namespace kx::tool
