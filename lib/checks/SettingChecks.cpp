// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/SettingChecks.h"

#include "checks/ClassChecks.h"
#include "checks/Commands.h"
#include "format/ShellText.h"
#include "io/Nearest.h"
#include "io/Text.h"
#include "panel/Names.h"

#include <algorithm>
#include <string_view>

namespace kx::checks
{

namespace
{

std::vector<std::string> ConfigIds()
{
    std::vector<std::string> ids;
    for (const format::SettingKind* const kind : format::SettingKinds()) {
        ids.emplace_back(kind->id);
    }
    return ids;
}

Location ItemLocation(const format::JsonNode& item, const char* key, const std::string& path)
{
    const format::JsonNode* const member = item.Member(key);
    return LocationIn(member != nullptr ? *member : item, path + key);
}

bool IsUserName(const std::string& text)
{
    constexpr std::size_t kLongest = 32;
    const std::string_view start = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";
    return text.size() <= kLongest && start.find(text[0]) != std::string_view::npos &&
           text.find_first_not_of(std::string(start) + "0123456789.-") == std::string::npos;
}

/// An empty value means something there: no gateway, no script.
bool MayBeEmpty(const format::SettingKind& kind)
{
    return kind.id == format::kAutoStartKind.id || std::string_view(kind.name) == "lan";
}

} // namespace

void SettingsCheck::CheckSetting(const format::JsonNode& config, const std::string& path)
{
    const format::JsonNode* const used = config.Member("IsUsed");
    const bool isUsed = used != nullptr && used->flag;
    const format::JsonNode* const id = config.Member("ConfigId");
    if (id == nullptr || !id->IsString()) {
        return;
    }
    const format::SettingKind* const kind = format::FindKind(
        format::SettingKinds(), &format::SettingKind::id, std::string_view(id->text.c_str()));
    if (kind == nullptr) {
        m_findings.AddAs(isUsed ? m_failure : Severity::kWarning, RuleId::kSettingKind,
                         LocationIn(*id, path + ".ConfigId"),
                         "'" + id->text + "' is not a known kind of setting: " +
                             io::NearestRemedy(id->text, ConfigIds()));
        return;
    }
    if (isUsed) {
        CheckItems(config, *kind, path + ".HardwareItems.");
    }
}

void SettingsCheck::CheckItems(const format::JsonNode& config, const format::SettingKind& kind,
                               const std::string& path)
{
    const std::vector<const format::JsonNode*> items = ElementsOf(config.Member("HardwareItems"));
    if (kind.id == format::kUserKind.id) {
        CheckUser(config, items, path);
        return;
    }
    if (items.empty()) {
        m_findings.Add(RuleId::kStepEmpty, LocationIn(config, path + kValuesKey),
                       "the setting has no items");
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        const std::string at = path + kValuesKey + "[" + std::to_string(i) + "].";
        const std::string& name = items[i]->TextOf("ItemName");
        NoteTwice(std::string(kind.name) + " " + name, ItemLocation(*items[i], "ItemName", at));
        if (kind.id == format::kAutoStartKind.id && name == format::kCustomScriptItem) {
            m_startup = ItemLocation(*items[i], "Value", at);
            m_payload.AddScript(items[i]->TextOf("Value"), ScriptUse::kStartup, *m_startup,
                                Severity::kError);
        } else {
            CheckCollected(*items[i], kind, at);
        }
    }
}

void SettingsCheck::NoteTwice(const std::string& setting, const Location& place)
{
    if (!m_seen.insert(setting).second) {
        m_findings.Add(RuleId::kSettingTwice, place, "'" + setting + "' is given a second time");
    }
}

void SettingsCheck::CheckCollected(const format::JsonNode& item, const format::SettingKind& kind,
                                   const std::string& path)
{
    const std::string& name = item.TextOf("ItemName");
    const std::string& value = item.TextOf("Value");
    m_words += name + "=" + value + " ";
    const Location place = ItemLocation(item, "ItemName", path);
    if (name.empty() || !format::ChangedBare(name).empty() || name[0] == '#' ||
        name.find_first_of(" \t=") != std::string::npos) {
        m_findings.Add(RuleId::kSettingName, place,
                       "'" + name + "' cannot be the name of a setting");
    }
    if (name.find_first_of("*?[{~") != std::string::npos) {
        m_findings.Add(RuleId::kSettingPattern, place, "contains a wildcard character");
    }
    const Location valueAt = ItemLocation(item, "Value", path);
    CheckValue(name, value, kind, valueAt);
    CheckForPanel(name, value, place, valueAt);
}

void SettingsCheck::CheckValue(const std::string& name, const std::string& value,
                               const format::SettingKind& kind, const Location& place)
{
    if (const std::string changed = format::ChangedBare(value); !changed.empty()) {
        m_findings.Add(RuleId::kSettingShell, place, "contains " + changed);
    } else if (value.find_first_of(" \t") != std::string::npos) {
        m_findings.Add(RuleId::kSettingBlank, place, "contains blanks");
    } else if (value.find_first_of("*?[{~") != std::string::npos) {
        m_findings.Add(RuleId::kSettingPattern, place, "contains a wildcard character");
    } else if (value.empty() && !MayBeEmpty(kind)) {
        m_findings.Add(RuleId::kSettingEmpty, place, "'" + name + "' has no value");
    }
}

void SettingsCheck::CheckForPanel(const std::string& name, const std::string& value,
                                  const Location& nameAt, const Location& valueAt)
{
    if (!m_panel.settings.has_value()) {
        return;
    }
    std::vector<std::string> names;
    for (const format::PanelSetting& setting : *m_panel.settings) {
        names.push_back(setting.name);
        if (setting.name == name) {
            if (!setting.Takes(value)) {
                std::string what = "is '" + value;
                what.append("'; '").append(name).append("' takes ").append(setting.Taken());
                m_findings.Add(RuleId::kSettingRefused, valueAt, what);
            }
            return;
        }
    }
    m_findings.Add(RuleId::kSettingRefused, nameAt,
                   "'" + name +
                       "' is no name of the setting tool: " + io::NearestRemedy(name, names));
}

void SettingsCheck::CheckUser(const format::JsonNode& config,
                              const std::vector<const format::JsonNode*>& items,
                              const std::string& path)
{
    const format::JsonNode* user = nullptr;
    const format::JsonNode* password = nullptr;
    std::size_t userAt = 0;
    std::size_t passwordAt = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const std::string& name = items[i]->TextOf("ItemName");
        if (name == format::kUserNameItem) {
            user = items[i];
            userAt = i;
        } else if (name == format::kPasswordItem) {
            password = items[i];
            passwordAt = i;
        } else {
            m_findings.Add(RuleId::kUserItem,
                           ItemLocation(*items[i], "ItemName",
                                        path + kValuesKey + "[" + std::to_string(i) + "]."),
                           "'" + name + "' is ignored");
        }
    }
    const auto checkPart = [&](const format::JsonNode* item, std::size_t at, const char* name) {
        const std::string place = path + kValuesKey + "[" + std::to_string(at) + "].";
        if (item == nullptr || item->TextOf("Value").empty()) {
            m_findings.AddAs(m_failure, RuleId::kUserMissing,
                             item == nullptr ? LocationIn(config, path + kValuesKey)
                                             : ItemLocation(*item, "Value", place),
                             std::string("the ") + name + " is missing");
            return;
        }
        CheckUserText(item->TextOf("Value"), name == std::string(format::kUserNameItem),
                      ItemLocation(*item, "Value", place));
    };
    checkPart(user, userAt, format::kUserNameItem);
    checkPart(password, passwordAt, format::kPasswordItem);
    if (password != nullptr && !password->TextOf("Value").empty()) {
        m_findings.Add(RuleId::kUserPassword,
                       ItemLocation(*password, "Value",
                                    path + kValuesKey + "[" + std::to_string(passwordAt) + "]."),
                       "is a password");
    }
}

void SettingsCheck::CheckUserText(const std::string& text, bool isUser, const Location& place)
{
    // What is wrong is told without the text: it may be a password.
    if (!format::ChangedInSingleQuotes(text).empty()) {
        m_findings.Add(RuleId::kUserQuote, place, "contains a single quote");
    } else if (isUser && text.find(':') != std::string::npos) {
        m_findings.Add(RuleId::kUserQuote, place, "contains ':'");
    }
    if (isUser) {
        CheckUserName(text, place);
    }
    if (!format::ChangedByEcho(text).empty()) {
        m_findings.Add(RuleId::kUserEscape, place, "contains a backslash that a shell interprets");
    } else if (text.find('\\') != std::string::npos) {
        m_findings.AddAs(Severity::kWarning, RuleId::kUserEscape, place, "contains a backslash");
    }
    if (text.find_first_of("\r\n") != std::string::npos || text.find('\0') != std::string::npos) {
        m_findings.Add(RuleId::kUserLine, place, "contains a line break or a zero byte");
    }
    constexpr std::size_t kLongest = 511; // what the panel's password library takes
    if (!isUser && text.size() > kLongest) {
        m_findings.AddAs(m_failure, RuleId::kUserLong, place,
                         "has " + std::to_string(text.size()) + " bytes");
    }
}

void SettingsCheck::CheckUserName(const std::string& name, const Location& place)
{
    if (!IsUserName(name)) {
        m_findings.AddAs(m_failure, RuleId::kUserName, place, "is not a name that a user can have");
        return;
    }
    NoteTwice("user " + name, place);
    const std::optional<std::vector<std::string>>& users = m_panel.users;
    if (users.has_value() && std::find(users->begin(), users->end(), name) == users->end()) {
        m_findings.AddAs(m_failure, RuleId::kUserUnknown, place,
                         "the panel has no user '" + name +
                             "': " + io::NearestRemedy(name, *users));
    }
}

void SettingsCheck::CheckStep(const format::JsonNode& step, const std::string& path,
                              Severity failure)
{
    m_failure = failure;
    m_words.clear();
    const format::JsonNode* const data = step.Member("HardSettingDatas");
    const format::JsonNode* const configs =
        data != nullptr ? data->Member("DB_HardwareConfigs") : nullptr;
    const std::string below = path + ".HardSettingDatas.DB_HardwareConfigs.";
    const std::vector<const format::JsonNode*> elements = ElementsOf(configs);
    if (elements.empty()) {
        m_findings.Add(RuleId::kStepEmpty, LocationIn(step, below + kValuesKey),
                       "the step has no settings");
    }
    for (std::size_t i = 0; i < elements.size(); ++i) {
        CheckSetting(*elements[i], below + kValuesKey + "[" + std::to_string(i) + "]");
    }
    if (!m_words.empty()) {
        // The tool's failure does not show, so the settings are lost without a word.
        CheckCommand(std::string(panel::kSettingTool) + " set " + m_words, LocationIn(step, path),
                     Severity::kError, m_findings);
    }
}

} // namespace kx::checks
