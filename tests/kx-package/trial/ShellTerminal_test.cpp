// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/TemporaryFile.h"
#include "support/Deadline.h"
#include "support/Streams.h"
#include "support/Thrown.h"
#include "trial/ShellTerminal.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
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

} // namespace

class ShellTerminals : public testing::Test
{
protected:
    /// What the person sees next.
    [[nodiscard]] std::string Seen() const { return ReadFrom(m_person.Screen()); }

    static std::string ReadFrom(int terminal)
    {
        std::array<char, 256> text{};
        const ssize_t count = read(terminal, text.data(), text.size());
        return count > 0 ? std::string(text.data(), static_cast<std::size_t>(count)) : "";
    }

    static bool Type(int terminal, const std::string& text)
    {
        return write(terminal, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    /// How the person's terminal is set.
    static tcflag_t Modes()
    {
        termios told{};
        return tcgetattr(STDIN_FILENO, &told) == 0 ? told.c_lflag : 0;
    }

    const Deadline m_deadline;
    const TerminalStream m_person{STDIN_FILENO};
};

TEST_F(ShellTerminals, AreAsLargeAsThePersonsWhicheverSideOfThatChanges)
{
    m_person.Resize(25, 80);
    const ShellTerminal terminal;
    EXPECT_EQ(SizeOf(terminal.PanelSide()), Size(25, 80));

    for (const Size& size : {Size(25, 132), Size(40, 132), Size(41, 133)}) {
        m_person.Resize(size.first, size.second);
        terminal.CopySize();

        EXPECT_EQ(SizeOf(terminal.PanelSide()), size);
    }
}

TEST_F(ShellTerminals, TakeEveryKeyOfThePersonAsItIsAndGiveTheTerminalBack)
{
    const tcflag_t before = Modes();
    ASSERT_NE(before & ICANON, 0U);
    {
        const ShellTerminal terminal;

        EXPECT_EQ(Modes() & (ICANON | ECHO | ISIG), 0U);
    }
    EXPECT_EQ(Modes(), before);
}

TEST_F(ShellTerminals, CarryKeysToThePanelAndItsAnswersBack)
{
    ShellTerminal terminal;
    EXPECT_FALSE(terminal.HasPending());
    ASSERT_TRUE(Type(m_person.Screen(), "ls\n"));

    EXPECT_TRUE(terminal.TakeKeys());
    EXPECT_TRUE(terminal.HasPending());
    terminal.HandOver();
    EXPECT_FALSE(terminal.HasPending());
    EXPECT_EQ(ReadFrom(terminal.PanelSide()), "ls\n");
    // The panel's side echoes what was typed, as the person's own does not.
    terminal.ShowPrinted();
    EXPECT_EQ(Seen(), "ls\r\n");
    ASSERT_TRUE(Type(terminal.PanelSide(), "a\n"));
    terminal.ShowPrinted();
    EXPECT_EQ(Seen(), "a\r\n");
}

TEST_F(ShellTerminals, SayALine)
{
    const ShellTerminal terminal;

    terminal.Say("hello");

    EXPECT_EQ(Seen(), "hello\r\n");
}

TEST_F(ShellTerminals, LeaveNeitherSideToProgramsAndDoNotWaitOnTheirOwn)
{
    ShellTerminal terminal;

    EXPECT_EQ(fcntl(terminal.OurSide(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(terminal.PanelSide(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(terminal.Keyboard(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(terminal.OurSide(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    // Nothing was printed, so there is nothing to wait for.
    terminal.ShowPrinted();
}

TEST_F(ShellTerminals, AreThereOnlyWhereStandardInputIsOne)
{
    EXPECT_TRUE(ShellTerminal::IsThere());

    const ReplacedStream file(STDIN_FILENO, io::MakeTemporaryFile());
    EXPECT_FALSE(ShellTerminal::IsThere());
    EXPECT_EQ(Thrown([] { const ShellTerminal terminal; }),
              "3: --shell: cannot use the terminal of standard input: Inappropriate ioctl for "
              "device");
}

} // namespace kx::tool
