// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <string>

#include <termios.h>

namespace kx::tool
{

/// The person's terminal while a shell on the panel has it. The shell gets a terminal of its own,
/// and what is typed and printed is carried between the two: keys like Ctrl-C reach the shell's
/// commands and nothing else, and the panel never holds the person's terminal.
class ShellTerminal
{
public:
    /// Tells whether standard input is a terminal.
    [[nodiscard]] static bool IsThere();

    /// Takes the terminal of standard input.
    /// @throws Error when there is none, or no further one can be made
    ShellTerminal();
    ShellTerminal(const ShellTerminal&) = delete;
    ShellTerminal& operator=(const ShellTerminal&) = delete;
    /// Gives the terminal back as it was.
    ~ShellTerminal();

    /// The shell's end of its terminal, for its standard input and output.
    [[nodiscard]] int PanelSide() const { return m_panelSide.Number(); }

    /// The descriptors to wait for, and whether typed keys wait for the shell to take them.
    [[nodiscard]] int Keyboard() const { return m_person.Number(); }
    [[nodiscard]] int OurSide() const { return m_ourSide.Number(); }
    [[nodiscard]] bool HasPending() const { return !m_pending.empty(); }

    /// Takes what was typed.
    /// @return false when the terminal is gone
    bool TakeKeys();

    /// Hands what was typed to the shell, as far as it takes it.
    void HandOver();

    /// Shows what the shell printed so far.
    void ShowPrinted();

    /// Tells the shell's terminal the size of the person's.
    void CopySize() const;

    /// Writes a line for the person.
    void Say(const std::string& line) const;

private:
    [[nodiscard]] int TakePerson();
    [[nodiscard]] int OpenPanelSide();

    io::Descriptor m_person;
    io::Descriptor m_ourSide;
    io::Descriptor m_panelSide;
    termios m_before{};
    std::string m_pending;
};

} // namespace kx::tool
