// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Remembered.h"

#include "io/Error.h"
#include "io/RootedFolder.h"
#include "journal/Baseline.h"

#include <utility>

namespace kx::guard
{

Remembered::Remembered(const StatePlace& place, std::string root) : m_root(std::move(root))
{
    try {
        m_folder = OpenStateToRead(place);
    } catch (const io::Error& error) {
        m_reasons.push_back({ReasonId::kState, {error.Line()}});
    }
}

std::optional<std::string> Remembered::Highest(const std::string& name)
{
    if (!m_folder.has_value()) {
        return {};
    }
    try {
        return HighestVersionNow(*m_folder, io::RootedFolder(m_root), name);
    } catch (const io::Error& error) {
        m_reasons.push_back({ReasonId::kState, {error.Line()}});
        return {};
    }
}

void Remembered::AddReasons(Decision& decision) const
{
    decision.reasons.insert(decision.reasons.begin(), m_reasons.begin(), m_reasons.end());
}

} // namespace kx::guard
