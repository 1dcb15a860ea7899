// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Targets.h"

namespace kx::checks
{

TargetState Targets::AddFile(const std::string& path)
{
    const std::string file = path.substr(0, path.find_last_not_of('/') + 1);
    if (file.empty() || m_panel.KindOf(file) == rehearsal::VirtualPanel::Kind::kFolder) {
        return TargetState::kFolder;
    }
    if (!m_panel.MakeFolder(file.substr(0, file.rfind('/') + 1)) || !m_panel.MakeFile(file)) {
        return TargetState::kBelowFile;
    }
    return m_written.insert(m_panel.Resolved(file)).second ? TargetState::kFree
                                                           : TargetState::kTwice;
}

bool Targets::AddFolder(const std::string& path)
{
    return m_panel.MakeFolder(path);
}

} // namespace kx::checks
