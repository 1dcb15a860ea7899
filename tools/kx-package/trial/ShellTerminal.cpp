// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/ShellTerminal.h"

#include "io/Error.h"
#include "io/Transfer.h"

#include <array>
#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

using Piece = std::array<char, 4096>;

/// Shows a text to the person. When the person's terminal is gone, reading it tells.
void Show(const io::Descriptor& terminal, std::string_view text)
{
    static_cast<void>(io::TryWriteAll(terminal.Number(), text));
}

} // namespace

bool ShellTerminal::IsThere()
{
    return isatty(STDIN_FILENO) != 0;
}

ShellTerminal::ShellTerminal()
{
    int error = TakePerson();
    if (error == 0) {
        error = OpenPanelSide();
    }
    if (error != 0) {
        throw io::AccessError("--shell", "use the terminal of standard input", error);
    }
    termios raw = m_before;
    cfmakeraw(&raw);
    static_cast<void>(tcsetattr(m_person.Number(), TCSADRAIN, &raw));
}

ShellTerminal::~ShellTerminal()
{
    static_cast<void>(tcsetattr(m_person.Number(), TCSADRAIN, &m_before));
}

/// Opens the person's terminal once more, under its own name, and notes how it is set.
/// @return 0 or an errno
int ShellTerminal::TakePerson()
{
    std::array<char, 256> name{};
    if (const int error = ttyname_r(STDIN_FILENO, name.data(), name.size()); error != 0) {
        return error;
    }
    m_person = io::Descriptor(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    return m_person.IsOpen() && tcgetattr(m_person.Number(), &m_before) == 0 ? 0 : errno;
}

/// Makes the shell's terminal, set and as large as the person's.
/// @return 0 or an errno
int ShellTerminal::OpenPanelSide()
{
    winsize size{};
    static_cast<void>(ioctl(m_person.Number(), TIOCGWINSZ, &size));
    int ours = -1;
    int panels = -1;
    if (openpty(&ours, &panels, nullptr, &m_before, &size) != 0) {
        return errno;
    }
    m_ourSide = io::Descriptor(ours);
    m_panelSide = io::Descriptor(panels);
    // The panel's processes get the one side as their streams, and nothing else of it.
    const bool isSet = fcntl(ours, F_SETFD, FD_CLOEXEC) == 0 &&
                       fcntl(panels, F_SETFD, FD_CLOEXEC) == 0 &&
                       fcntl(ours, F_SETFL, O_RDWR | O_NONBLOCK) == 0;
    return isSet ? 0 : errno;
}

bool ShellTerminal::TakeKeys()
{
    Piece piece{};
    const io::Transferred taken = io::ReadSome(m_person.Number(), piece.data(), piece.size());
    m_pending.append(piece.data(), taken.count);
    return taken.count > 0 || taken.error == EINTR || taken.error == EAGAIN;
}

void ShellTerminal::HandOver()
{
    m_pending.erase(0, io::WriteSome(m_ourSide.Number(), m_pending).count);
}

void ShellTerminal::ShowPrinted()
{
    Piece piece{};
    const io::Transferred printed = io::ReadSome(m_ourSide.Number(), piece.data(), piece.size());
    Show(m_person, {piece.data(), printed.count});
}

void ShellTerminal::CopySize() const
{
    winsize size{};
    winsize known{};
    if (ioctl(m_person.Number(), TIOCGWINSZ, &size) == 0 &&
        ioctl(m_ourSide.Number(), TIOCGWINSZ, &known) == 0 &&
        (size.ws_row != known.ws_row || size.ws_col != known.ws_col)) {
        static_cast<void>(ioctl(m_ourSide.Number(), TIOCSWINSZ, &size));
    }
}

void ShellTerminal::Say(const std::string& line) const
{
    Show(m_person, line + "\r\n");
}

} // namespace kx::tool
