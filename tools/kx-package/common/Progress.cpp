// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "common/Progress.h"

#include <algorithm>
#include <ostream>
#include <utility>

namespace kx::tool
{

Progress::Progress(const Output& output, std::string label)
    : m_err(output.err), m_isWatched(output.isWatched), m_label(std::move(label)),
      m_start(std::chrono::steady_clock::now())
{
}

Progress::~Progress()
{
    if (!m_shown.empty()) {
        m_err << "\r\x1b[K" << std::flush;
    }
}

void Progress::Show(double fraction, const std::string& label)
{
    m_label = label;
    Show(fraction);
}

void Progress::Show(double fraction)
{
    constexpr std::chrono::milliseconds kMoment(300);
    constexpr int kWidth = 30;
    if (!m_isWatched || std::chrono::steady_clock::now() - m_start < kMoment) {
        return;
    }
    const double done = std::clamp(fraction, 0.0, 1.0);
    const auto marks = static_cast<std::size_t>(done * kWidth);
    std::string line = m_label + " [" + std::string(marks, '#') + std::string(kWidth - marks, ' ') +
                       "] " + std::to_string(static_cast<int>(done * 100)) + " %";
    if (line != m_shown) {
        const bool isShorter = line.size() < m_shown.size();
        m_shown = std::move(line);
        // A shorter line must not leave the end of a longer one.
        m_err << '\r' << m_shown << (isShorter ? "\x1b[K" : "") << std::flush;
    }
}

} // namespace kx::tool
