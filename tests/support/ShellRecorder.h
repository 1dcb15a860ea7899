// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

/// Takes the place of the shell while it lives: records every command that the code under test
/// hands to the shell, and answers it.
///
/// One recorder lives at a time. A command outside the life of a recorder ends the test binary, and
/// so does a call of `system` anywhere, so no test can reach the machine's shell by accident.
class ShellRecorder
{
public:
    enum class Mode {
        Answer,      ///< no command runs; each gets its answer, 0 by default
        PassThrough, ///< allowed commands on paths in a TempDir run for real
    };

    explicit ShellRecorder(Mode mode = Mode::Answer);
    ShellRecorder(const ShellRecorder&) = delete;
    ShellRecorder& operator=(const ShellRecorder&) = delete;
    ~ShellRecorder();

    /// Answers each call of exactly @p command with the raw status @p status; nothing runs.
    void Answer(const std::string& command, int status);

    /// Answers the @p nth command (from 1) with the raw status @p status; nothing runs.
    void AnswerNth(int nth, int status);

    /// Calls @p action before the answer to @p command, to play what the command would do.
    void On(const std::string& command, std::function<void()> action);

    /// The commands so far, oldest first.
    [[nodiscard]] const std::vector<std::string>& Commands() const { return m_commands; }

    /// Plays OSA_SystemRun, which calls it.
    int Run(const char* command);

private:
    Mode m_mode;
    std::vector<std::string> m_commands;
    std::map<std::string, int> m_answers;
    std::map<int, int> m_nthAnswers;
    std::map<std::string, std::function<void()>> m_actions;
};
