// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"
#include "checks/PayloadChecks.h"
#include "format/Kinds.h"
#include "format/PanelFile.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kx::checks
{

/// Checks the settings of a package's hardware steps, one step after the other.
class SettingsCheck
{
public:
    /// @param payload  gets the start-up scripts
    SettingsCheck(const format::PanelModel& panel, PayloadCheck& payload, Findings& findings)
        : m_panel(panel), m_payload(payload), m_findings(findings)
    {
    }

    /// Checks a step.
    /// @param step     its object, of the right class
    /// @param path     its place in the description
    /// @param failure  severity of what makes a setting fail
    void CheckStep(const format::JsonNode& step, const std::string& path, Severity failure);

    /// Where the start-up script is set; nothing when it is not.
    [[nodiscard]] const std::optional<Location>& Startup() const { return m_startup; }

private:
    void CheckSetting(const format::JsonNode& config, const std::string& path);
    void CheckItems(const format::JsonNode& config, const format::SettingKind& kind,
                    const std::string& path);
    void CheckCollected(const format::JsonNode& item, const format::SettingKind& kind,
                        const std::string& path);
    void CheckValue(const std::string& name, const std::string& value,
                    const format::SettingKind& kind, const Location& place);
    void CheckForPanel(const std::string& name, const std::string& value, const Location& nameAt,
                       const Location& valueAt);
    void CheckUser(const format::JsonNode& config,
                   const std::vector<const format::JsonNode*>& items, const std::string& path);
    void CheckUserText(const std::string& text, bool isUser, const Location& place);
    void CheckUserName(const std::string& name, const Location& place);
    void NoteTwice(const std::string& setting, const Location& place);

    const format::PanelModel& m_panel;
    PayloadCheck& m_payload;
    Findings& m_findings;
    Severity m_failure = Severity::kError;
    std::string m_words; ///< of the present step, for the setting tool
    std::set<std::string> m_seen;
    std::optional<Location> m_startup;
};

} // namespace kx::checks
