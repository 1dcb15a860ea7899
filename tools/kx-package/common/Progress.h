// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/Output.h"

#include <chrono>
#include <string>

namespace kx::tool
{

/// A bar that shows a person how far a long work has come; nobody else sees it. It appears when the
/// work takes longer than a moment, and is gone at its end.
class Progress
{
public:
    Progress(const Output& output, std::string label);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    /// Shows that @p fraction of the work, 0 to 1, is done.
    void Show(double fraction);

    /// Does the same for another part of the work.
    void Show(double fraction, const std::string& label);

private:
    std::ostream& m_err;
    bool m_isWatched;
    std::string m_label;
    std::chrono::steady_clock::time_point m_start;
    std::string m_shown; ///< the line on the terminal
};

} // namespace kx::tool
