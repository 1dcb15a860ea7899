// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/ConsoleApplication.h"

#include <QApplication>
#include <QFile>
#include <QVersionNumber>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

namespace
{

constexpr std::string_view kPlatformVariable = "QT_QPA_PLATFORM=";

/// Variables that make Qt open devices, talk to a desktop or load an on-screen keyboard.
constexpr std::array<std::string_view, 6> kDisplayVariables = {
    kPlatformVariable, "QT_QPA_PLATFORMTHEME=", "QT_QPA_GENERIC_PLUGINS=",
    "QT_IM_MODULE=",   "QT_STYLE_OVERRIDE=",    "QT_LINUX_ACCESSIBILITY_ALWAYS_ON="};

bool StartsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

bool IsDisplayVariable(std::string_view entry)
{
    return std::any_of(kDisplayVariables.begin(), kDisplayVariables.end(),
                       [entry](std::string_view name) { return StartsWith(entry, name); });
}

/// Tells whether Qt can find the plugin of a platform.
bool IsPlatformInstalled(const QString& name)
{
    const QString plugin = QStringLiteral("/platforms/libq%1.so").arg(name);
    const QStringList folders = QCoreApplication::libraryPaths();
    return std::any_of(folders.begin(), folders.end(),
                       [&plugin](const QString& folder) { return QFile::exists(folder + plugin); });
}

/// Returns the value for QT_QPA_PLATFORM: "offscreen", then "minimal", then @p given.
std::string ChoosePlatform(const std::string& given)
{
    // From 5.12 on Qt tries the names of a list in turn.
    if (QVersionNumber::fromString(QLatin1String(qVersion())) >= QVersionNumber(5, 12)) {
        return given.empty() ? "offscreen;minimal" : "offscreen;minimal;" + given;
    }
    for (const char* const name : {"offscreen", "minimal"}) {
        if (IsPlatformInstalled(QLatin1String(name))) {
            return name;
        }
    }
    return given;
}

/// Exchanges the environment for one without display variables, and puts the very same block back
/// at its end.
class DisplayFreeEnvironment
{
public:
    DisplayFreeEnvironment() : m_given(environ)
    {
        std::string given;
        for (char** entry = m_given; entry != nullptr && *entry != nullptr; ++entry) {
            if (StartsWith(*entry, kPlatformVariable)) {
                given = *entry + kPlatformVariable.size();
            }
            if (!IsDisplayVariable(*entry)) {
                m_entries.push_back(*entry);
            }
        }
        m_platform = std::string(kPlatformVariable) + ChoosePlatform(given);
        m_entries.push_back(m_platform.data());
        m_entries.push_back(nullptr);
        environ = m_entries.data();
    }
    DisplayFreeEnvironment(const DisplayFreeEnvironment&) = delete;
    DisplayFreeEnvironment& operator=(const DisplayFreeEnvironment&) = delete;
    ~DisplayFreeEnvironment() { environ = m_given; }

private:
    char** m_given;
    std::vector<char*> m_entries;
    std::string m_platform;
};

} // namespace

std::unique_ptr<QApplication> MakeConsoleApplication(int& argc, char** argv)
{
    const DisplayFreeEnvironment environment;
    return std::make_unique<QApplication>(argc, argv);
}
