// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Descriptor.h"
#include "trial/ShellTerminal.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

/// Rows and columns.
using Size = std::pair<int, int>;

Size SizeOf(int terminal)
{
    winsize size{};
    return ioctl(terminal, TIOCGWINSZ, &size) == 0 ? Size(size.ws_row, size.ws_col) : Size(-1, -1);
}

/// A person's terminal, which is standard input for the life of the object.
class Person
{
public:
    Person() : m_input(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        int screen = -1;
        int keyboard = -1;
        if (openpty(&screen, &keyboard, nullptr, nullptr, nullptr) != 0) {
            throw std::runtime_error("there is no terminal");
        }
        m_screen = io::Descriptor(screen);
        const io::Descriptor opened(keyboard);
        dup2(keyboard, STDIN_FILENO);
    }
    Person(const Person&) = delete;
    Person& operator=(const Person&) = delete;
    ~Person()
    {
        if (m_input.IsOpen()) {
            dup2(m_input.Number(), STDIN_FILENO);
        } else {
            close(STDIN_FILENO);
        }
    }

    void Resize(Size size) const
    {
        winsize told{};
        told.ws_row = static_cast<unsigned short>(size.first);
        told.ws_col = static_cast<unsigned short>(size.second);
        static_cast<void>(ioctl(m_screen.Number(), TIOCSWINSZ, &told));
    }

private:
    io::Descriptor m_input; ///< what standard input was before
    io::Descriptor m_screen;
};

} // namespace

TEST(ShellTerminal, IsAsLargeAsThePersonsWhicheverSideOfThatChanges)
{
    const Person person;
    person.Resize({25, 80});
    const ShellTerminal terminal;
    EXPECT_EQ(SizeOf(terminal.PanelSide()), Size(25, 80));

    for (const Size& size : {Size(25, 132), Size(40, 132), Size(41, 133)}) {
        person.Resize(size);
        terminal.CopySize();

        EXPECT_EQ(SizeOf(terminal.PanelSide()), size);
    }
}

} // namespace kx::tool
