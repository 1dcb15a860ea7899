// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx::tool
{

/// A step that failed.
struct StepFailure {
    enum class Form { kCopy, kScript, kSetting, kOther };

    int step = 0; ///< counted from 1
    Form form = Form::kOther;
    std::string why;       ///< "exit status 1"; empty when the updater told nothing
    std::string subject;   ///< of a copy "SOURCE to TARGET", of a setting its identifier
    unsigned failures = 1; ///< how many of its items failed
    bool isSkipped = true; ///< the installation went on
    std::string kind;      ///< of the step: "script"; empty when it is not known
    std::string command;   ///< the first one that failed; empty when it is not known
};

/// Follows the lines of the updater, which scripts and tools write theirs between: the step that is
/// running, and which have failed.
class StepLog
{
public:
    /// Takes a further piece of what was printed.
    void Hear(std::string_view piece);

    [[nodiscard]] int Step() const { return m_step; }   ///< counted from 1; 0 before the first
    [[nodiscard]] int Count() const { return m_count; } ///< of all steps; 0 before the first
    [[nodiscard]] const std::vector<StepFailure>& Failures() const { return m_failures; }

private:
    void TakeLine();
    void Begin(std::string_view numbers);
    void Fail(StepFailure failure);
    void End();

    std::string m_line;
    int m_step = 0;
    int m_count = 0;
    std::vector<StepFailure> m_failures; ///< one for each step
};

} // namespace kx::tool
