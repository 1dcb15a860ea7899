// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/ShellRecorder.h"

#include "osa/OSA_System.h"
#include "support/DeviceFixture.h"
#include "support/TempDir.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
int __real_system(const char* command);
int __wrap_system(const char* command);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace
{

ShellRecorder* currentShell = nullptr;

[[noreturn]] void Refuse(const char* reason, const char* command)
{
    std::fprintf(stderr, "ShellRecorder: %s: %s\n", reason, command);
    std::abort();
}

bool StartsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

/// Tells whether a command may run: anything on the sandboxed device; elsewhere only a known tool
/// with every quoted path inside a TempDir.
bool IsHarmless(const std::string& command)
{
    if (DeviceFixture::IsOnDevice()) {
        return true;
    }
    bool isKnownTool = false;
    for (const char* const tool :
         {"cp -f \"", "mkdir -p \"", "rm -r \"", "chmod ", "unzip -o \""}) {
        isKnownTool = isKnownTool || StartsWith(command, tool);
    }
    if (!isKnownTool || command.find_first_of("$`\\;|&<>\n") != std::string::npos) {
        return false;
    }
    std::size_t paths = 0;
    for (auto open = command.find('"'); open != std::string::npos; ++paths) {
        const auto close = command.find('"', open + 1);
        if (close == std::string::npos ||
            !TempDir::Holds(command.substr(open + 1, close - open - 1))) {
            return false;
        }
        open = command.find('"', close + 1);
    }
    return paths > 0;
}

} // namespace

int __wrap_system(const char* command)
{
    Refuse("a command past the recorder", command);
}

int OSA_SystemRun(const char* command)
{
    if (currentShell == nullptr) {
        Refuse("a command outside the life of a recorder", command);
    }
    return currentShell->Run(command);
}

ShellRecorder::ShellRecorder(Mode mode) : m_mode(mode)
{
    if (currentShell != nullptr) {
        Refuse("a second recorder", "");
    }
    currentShell = this;
}

ShellRecorder::~ShellRecorder()
{
    currentShell = nullptr;
}

void ShellRecorder::Answer(const std::string& command, int status)
{
    m_answers[command] = status;
}

void ShellRecorder::AnswerNth(int nth, int status)
{
    m_nthAnswers[nth] = status;
}

void ShellRecorder::On(const std::string& command, std::function<void()> action)
{
    m_actions[command] = std::move(action);
}

int ShellRecorder::Run(const char* command)
{
    m_commands.emplace_back(command);
    if (const auto action = m_actions.find(command); action != m_actions.end()) {
        action->second();
    }
    if (const auto answer = m_nthAnswers.find(static_cast<int>(m_commands.size()));
        answer != m_nthAnswers.end()) {
        return answer->second;
    }
    if (const auto answer = m_answers.find(command); answer != m_answers.end()) {
        return answer->second;
    }
    if (m_mode == Mode::Answer) {
        return 0;
    }
    if (!IsHarmless(command)) {
        Refuse("will not run outside a test folder", command);
    }
    return __real_system(command);
}
