// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signing/Passphrase.h"

#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Text.h"
#include "io/Transfer.h"

#include <algorithm>

#include <termios.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

constexpr const char* kShown = "standard input";

/// While one lives, the terminal does not show what is typed.
class SilentTerminal
{
public:
    SilentTerminal()
    {
        m_isTerminal = tcgetattr(STDIN_FILENO, &m_before) == 0;
        termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        Set(silent);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;
    ~SilentTerminal() { Set(m_before); }

private:
    void Set(const termios& settings) const
    {
        if (m_isTerminal) {
            static_cast<void>(tcsetattr(STDIN_FILENO, TCSAFLUSH, &settings));
        }
    }

    termios m_before{};
    bool m_isTerminal = false;
};

io::Error Refused(const std::string& why, const std::string& remedy)
{
    return {io::ExitCode::kWrongUse, "", "the passphrase " + why, remedy};
}

/// Reads one line; what follows it is left.
std::string ReadLine()
{
    std::string line;
    char c = '\0';
    while (line.size() <= kLongestPassphrase && io::ReadUpTo(STDIN_FILENO, &c, 1, kShown) == 1 &&
           c != '\n') {
        line += c;
    }
    return line;
}

std::string AskOnTerminal(const std::string& question)
{
    // Whoever ends the program while it asks gets the terminal back as it was.
    const io::Interruption interruption;
    const SilentTerminal silent;
    static_cast<void>(io::TryWriteAll(STDERR_FILENO, question + ": "));
    std::string answer = ReadLine();
    static_cast<void>(io::TryWriteAll(STDERR_FILENO, "\n"));
    return answer;
}

} // namespace

std::string AskPassphrase(const std::string& key, bool isNew)
{
    const bool isTerminal = isatty(STDIN_FILENO) != 0;
    const std::string question = "Passphrase of " + io::Printable(key);
    std::string passphrase = isTerminal ? AskOnTerminal(question) : ReadLine();
    if (passphrase.empty()) {
        throw Refused("is empty",
                      isTerminal ? "type one" : "write it to standard input, as a line");
    }
    if (passphrase.size() > kLongestPassphrase) {
        throw Refused("is longer than " + std::to_string(kLongestPassphrase) + " bytes",
                      "take a shorter one");
    }
    if (isTerminal && isNew && AskOnTerminal("The same again") != passphrase) {
        throw Refused("was typed in two ways", "try again");
    }
    return passphrase;
}

} // namespace kx::tool
