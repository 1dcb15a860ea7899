// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kx::io
{

/// The exit codes of every command.
enum class ExitCode : int {
    kFine = 0,     ///< done, and nothing is wrong
    kProblems = 1, ///< done, and something is wrong with what was looked at
    kWrongUse = 2, ///< the command line cannot be followed
    kNoAccess = 3, ///< something could not be read or written
    kUnknown = 4,  ///< done, and what was asked cannot be told
};

/// Why a command could not do its work: what, where, and what to do about it.
class Error : public std::runtime_error
{
public:
    /// @param where   a file, with line and column where known ("package.toml:3:1"), or empty
    /// @param what    what is wrong, a sentence's beginning without capital and full stop
    /// @param remedy  what to do about it, likewise, or empty
    Error(ExitCode code, std::string where, const std::string& what, std::string remedy = {});

    [[nodiscard]] ExitCode Code() const { return m_code; }
    [[nodiscard]] const std::string& Where() const { return m_where; }
    [[nodiscard]] const std::string& Remedy() const { return m_remedy; }

    /// Returns "where: what; remedy", without the parts that are empty.
    [[nodiscard]] std::string Line() const;

private:
    ExitCode m_code;
    std::string m_where;
    std::string m_remedy;
};

/// Several errors at once, at least one: as an Error it is the first of those with the greatest
/// code, as what could not be read counts for more than what is wrong with the rest.
class Errors final : public Error
{
public:
    explicit Errors(std::vector<Error> all);

    [[nodiscard]] const std::vector<Error>& All() const { return m_all; }

private:
    std::vector<Error> m_all;
};

/// Makes the error of a system call that failed: its text is that of @p number (an errno).
[[nodiscard]] Error AccessError(const std::string& path, const std::string& doing, int number);

} // namespace kx::io
