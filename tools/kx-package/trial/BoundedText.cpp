// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/BoundedText.h"

#include "io/Text.h"

#include <algorithm>

namespace kx::tool
{

namespace
{

void AppendLines(std::string_view text, std::vector<std::string>& lines)
{
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

} // namespace

void BoundedText::Append(std::string_view piece)
{
    const std::size_t room = std::min(m_half - m_begin.size(), piece.size());
    m_begin.append(piece.substr(0, room));
    m_end.append(piece.substr(room));
    // Not at every piece, which would move the end each time.
    if (m_end.size() > 2 * m_half) {
        const std::size_t surplus = m_end.size() - m_half;
        m_end.erase(0, surplus);
        m_omitted += surplus;
    }
}

std::optional<std::string> BoundedText::Bytes() const
{
    return m_omitted == 0 ? std::optional(m_begin + m_end) : std::nullopt;
}

std::vector<std::string> BoundedText::Lines() const
{
    std::vector<std::string> lines;
    if (m_omitted == 0) {
        AppendLines(m_begin + m_end, lines);
        return lines;
    }
    AppendLines(m_begin, lines);
    lines.push_back("[" + io::CountText(Omitted(), "byte") + " left out]");
    AppendLines(std::string_view(m_end).substr(Surplus()), lines);
    return lines;
}

} // namespace kx::tool
