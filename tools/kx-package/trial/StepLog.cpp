// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/StepLog.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include <sys/wait.h>

namespace kx::tool
{

namespace
{

// What a script printed without a line's end stands before the updater's words; nothing behind.
constexpr std::string_view kBegins = "**** Installation step ";
constexpr std::string_view kFails = "Installation failed in step ";
constexpr std::string_view kScript = "Script execution returned an error(=";
constexpr std::string_view kScriptStep = ") in step no ";
constexpr std::string_view kCopy = "File copy error(";
constexpr std::string_view kCopied = ") is corrupted. From ";
constexpr std::string_view kPermissions = "  (Permissions=";
constexpr std::string_view kSetting = "H/W setting failed in ";
constexpr std::string_view kSettingEnd = " in.";

// Longer than two paths and the words around them.
constexpr std::size_t kLongestLine = 16384;

/// Returns what stands behind the last occurrence of words in a line.
std::optional<std::string_view> Behind(std::string_view line, std::string_view words)
{
    const std::size_t at = line.rfind(words);
    return at == std::string_view::npos ? std::nullopt
                                        : std::optional(line.substr(at + words.size()));
}

/// Returns the number that a text is, or -1.
int NumberOf(std::string_view text)
{
    int number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? number : -1;
}

/// Splits a text at the first occurrence of words.
/// @return false when they are not there
bool Split(std::string_view text, std::string_view words, std::string_view& left,
           std::string_view& right)
{
    const std::size_t at = text.find(words);
    if (at == std::string_view::npos) {
        return false;
    }
    left = text.substr(0, at);
    right = text.substr(at + words.size());
    return true;
}

/// Removes an end.
/// @return false when the text has another one
bool CutEnd(std::string_view& text, std::string_view end)
{
    if (text.size() < end.size() || text.substr(text.size() - end.size()) != end) {
        return false;
    }
    text.remove_suffix(end.size());
    return true;
}

/// What a result of the updater tells: most are wait statuses.
std::string ResultText(std::string_view digits)
{
    const int result = NumberOf(digits);
    constexpr int kLargestWaitStatus = 0xff00;
    constexpr int kSignals = 0x80;
    if (result > 0 && result <= kLargestWaitStatus && WIFEXITED(result)) {
        return "exit status " + std::to_string(WEXITSTATUS(result));
    }
    if (result > 0 && result < kSignals) {
        return "ended by signal " + std::to_string(result);
    }
    return "result " + std::string(digits);
}

/// Reads "(=256) in step no 2".
std::optional<StepFailure> ScriptFailure(std::string_view line, int step)
{
    const auto behind = Behind(line, kScript);
    std::string_view result;
    std::string_view number;
    if (!behind || !Split(*behind, kScriptStep, result, number) || NumberOf(number) != step) {
        return std::nullopt;
    }
    StepFailure failure;
    failure.form = StepFailure::Form::kScript;
    failure.why = ResultText(result);
    return failure;
}

/// Reads "(= 256) is corrupted. From A to B  (Permissions=755)".
std::optional<StepFailure> CopyFailure(std::string_view line)
{
    const auto behind = Behind(line, kCopy);
    std::string_view result;
    std::string_view paths;
    if (!behind || !Split(*behind, kCopied, result, paths) || !CutEnd(paths, ")")) {
        return std::nullopt;
    }
    const std::size_t end = paths.rfind(kPermissions);
    const std::size_t digits = result.find_first_not_of("= ");
    if (end == std::string_view::npos || digits == std::string_view::npos) {
        return std::nullopt;
    }
    StepFailure failure;
    failure.form = StepFailure::Form::kCopy;
    failure.why = ResultText(result.substr(digits));
    failure.subject = paths.substr(0, end);
    return failure;
}

/// Reads "User in.".
std::optional<StepFailure> SettingFailure(std::string_view line)
{
    auto behind = Behind(line, kSetting);
    if (!behind || !CutEnd(*behind, kSettingEnd)) {
        return std::nullopt;
    }
    StepFailure failure;
    failure.form = StepFailure::Form::kSetting;
    failure.subject = *behind;
    failure.why = "the setting " + failure.subject + " failed";
    return failure;
}

} // namespace

void StepLog::Hear(std::string_view piece)
{
    while (!piece.empty()) {
        const std::size_t end = std::min(piece.find('\n'), piece.size());
        m_line += piece.substr(0, end);
        if (m_line.size() > kLongestLine) {
            m_line.erase(0, m_line.size() - kLongestLine);
        }
        if (end == piece.size()) {
            return;
        }
        TakeLine();
        m_line.clear();
        piece.remove_prefix(end + 1);
    }
}

void StepLog::TakeLine()
{
    if (const auto numbers = Behind(m_line, kBegins)) {
        Begin(*numbers);
    } else if (auto script = ScriptFailure(m_line, m_step)) {
        Fail(*script);
    } else if (auto copy = CopyFailure(m_line)) {
        Fail(*copy);
    } else if (auto setting = SettingFailure(m_line)) {
        Fail(*setting);
    } else if (auto number = Behind(m_line, kFails);
               number && CutEnd(*number, ".") && NumberOf(*number) == m_step) {
        End();
    }
}

/// Takes "2/4" when it tells the next step.
void StepLog::Begin(std::string_view numbers)
{
    std::string_view step;
    std::string_view count;
    const bool isSplit =
        Split(numbers, "/", step, count); // NOLINT(readability-suspicious-call-argument)
    if (!isSplit || NumberOf(step) != m_step + 1 || NumberOf(count) <= m_step ||
        (m_count != 0 && NumberOf(count) != m_count)) {
        return;
    }
    m_count = NumberOf(count);
    ++m_step;
}

void StepLog::Fail(StepFailure failure)
{
    if (m_step == 0) {
        return;
    }
    failure.step = m_step;
    if (!m_failures.empty() && m_failures.back().step == m_step) {
        ++m_failures.back().failures;
        return;
    }
    m_failures.push_back(std::move(failure));
}

void StepLog::End()
{
    if (m_failures.empty() || m_failures.back().step != m_step) {
        Fail({});
    }
    if (!m_failures.empty()) {
        m_failures.back().isSkipped = false;
    }
}

} // namespace kx::tool
