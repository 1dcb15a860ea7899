// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/ConsoleApplication.h"

#include <QApplication>
#include <QFile>
#include <QVersionNumber>
#include <QtGlobal>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

namespace
{

constexpr std::string_view kPlatformVariable = "QT_QPA_PLATFORM=";

/// Qt looks for a folder of the user's session here, and creates one below the folder for temporary
/// files when there is none: nothing that an installation needs.
constexpr std::string_view kRuntimeFolderVariable = "XDG_RUNTIME_DIR=";
constexpr std::string_view kTemporaryFolderVariable = "TMPDIR=";
constexpr const char* kNoFolder = "/dev/null"; // nothing is found below it, nothing created

/// Variables that make Qt open devices, talk to a desktop, load an on-screen keyboard or create
/// folders.
constexpr std::array<std::string_view, 8> kDisplayVariables = {
    kPlatformVariable,         kRuntimeFolderVariable,
    kTemporaryFolderVariable,  "QT_QPA_PLATFORMTHEME=",
    "QT_QPA_GENERIC_PLUGINS=", "QT_IM_MODULE=",
    "QT_STYLE_OVERRIDE=",      "QT_LINUX_ACCESSIBILITY_ALWAYS_ON="};

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
        m_temporaryFolder = std::string(kTemporaryFolderVariable) + kNoFolder;
        m_entries.push_back(m_platform.data());
        m_entries.push_back(m_temporaryFolder.data());
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
    std::string m_temporaryFolder;
};

/// Keeps Qt's own remarks out of the program's output, except the one that ends the process.
class QuietQt
{
public:
    QuietQt() : m_given(qInstallMessageHandler(WriteFatalOnly)) {}
    QuietQt(const QuietQt&) = delete;
    QuietQt& operator=(const QuietQt&) = delete;
    ~QuietQt() { qInstallMessageHandler(m_given); }

private:
    static void WriteFatalOnly(QtMsgType type, const QMessageLogContext& /*context*/,
                               const QString& text)
    {
        if (type == QtFatalMsg) {
            std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
        }
    }

    QtMessageHandler m_given;
};

} // namespace

std::unique_ptr<QApplication> MakeConsoleApplication(int& argc, char** argv)
{
    const DisplayFreeEnvironment environment;
    const QuietQt quiet;
    return std::make_unique<QApplication>(argc, argv);
}
