// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/ConsoleApplication.h"

#include "app/PlatformChoice.h"

#include <QApplication>
#include <QJsonObject>
#include <QPluginLoader>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QVersionNumber>
#include <QtGlobal>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

/// Variables that make Qt open devices, talk to a desktop, load an on-screen keyboard, create
/// folders or end the process at a remark.
constexpr std::array<std::string_view, 11> kHiddenVariables = {
    "QT_QPA_PLATFORM=",        "QT_QPA_PLATFORMTHEME=",
    "QT_QPA_GENERIC_PLUGINS=", "QT_IM_MODULE=",
    "QT_STYLE_OVERRIDE=",      "QT_LINUX_ACCESSIBILITY_ALWAYS_ON=",
    "QT_FATAL_WARNINGS=",      "QT_FATAL_CRITICALS=",
    "XDG_RUNTIME_DIR=",        "TMPDIR=",
    "FONTCONFIG_FILE="};

/// Qt creates a folder of the user's session below this one; below a device it cannot.
constexpr const char* kNoTemporaryFolder = "TMPDIR=/dev/null";

bool IsHidden(std::string_view entry)
{
    return std::any_of(
        kHiddenVariables.begin(), kHiddenVariables.end(),
        [entry](std::string_view name) { return entry.substr(0, name.size()) == name; });
}

/// Tells whether Qt can find the plugin of a platform, in a folder or in itself.
bool IsPlatformInstalled(const QString& name)
{
    QStringList folders(QString::fromLocal8Bit(qgetenv("QT_QPA_PLATFORM_PLUGIN_PATH")));
    for (const QString& library : QCoreApplication::libraryPaths()) {
        folders.append(library + QStringLiteral("/platforms"));
    }
    const QVector<QStaticPlugin> linkedIn = QPluginLoader::staticPlugins();
    return IsPlatformIn(folders, name) ||
           std::any_of(linkedIn.begin(), linkedIn.end(), [&name](const QStaticPlugin& plugin) {
               return IsPlatformPlugin(plugin.metaData(), name);
           });
}

/// Returns the environment entry that chooses the platform; empty when there shall be none.
std::string PlatformEntry()
{
    const char* const given = std::getenv("QT_QPA_PLATFORM");
    const QString version = QString::fromLatin1(qVersion());
    const std::string chosen = ChoosePlatform(QVersionNumber::fromString(version),
                                              given != nullptr ? given : "", IsPlatformInstalled);
    return chosen.empty() ? chosen : "QT_QPA_PLATFORM=" + chosen;
}

/// A font configuration without fonts, in a pipe: nothing is scanned, cached or complained about.
class NoFonts
{
public:
    NoFonts()
    {
        constexpr std::string_view kEmpty = "<fontconfig/>";
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            return; // the fonts are read, at the cost of some time
        }
        if (write(ends[1], kEmpty.data(), kEmpty.size()) == static_cast<ssize_t>(kEmpty.size())) {
            variable = "FONTCONFIG_FILE=/proc/self/fd/" + std::to_string(ends[0]);
        }
        close(ends[1]);
        reader = ends[0];
    }
    NoFonts(const NoFonts&) = delete;
    NoFonts& operator=(const NoFonts&) = delete;
    ~NoFonts()
    {
        if (reader >= 0) {
            close(reader);
        }
    }

    /// The environment entry that names the configuration; empty when there is none.
    [[nodiscard]] std::string& Variable() { return variable; }

private:
    int reader = -1;
    std::string variable;
};

/// Exchanges the environment for one that keeps Qt to itself, and puts the very same block back at
/// its end.
class QtEnvironment
{
public:
    QtEnvironment() : given(environ), platform(PlatformEntry())
    {
        for (char** entry = given; entry != nullptr && *entry != nullptr; ++entry) {
            if (!IsHidden(*entry)) {
                entries.push_back(*entry);
            }
        }
        if (!platform.empty()) {
            entries.push_back(platform.data());
        }
        entries.push_back(temporaryFolder.data());
        if (!noFonts.Variable().empty()) {
            entries.push_back(noFonts.Variable().data());
        }
        entries.push_back(nullptr);
        environ = entries.data();
    }
    QtEnvironment(const QtEnvironment&) = delete;
    QtEnvironment& operator=(const QtEnvironment&) = delete;
    ~QtEnvironment() { environ = given; }

private:
    char** given;
    std::vector<char*> entries;
    std::string platform;
    std::string temporaryFolder = kNoTemporaryFolder;
    NoFonts noFonts;
};

/// Keeps the remarks of Qt and its libraries out of the program's output, except the one that ends
/// the process.
class QuietQt
{
public:
    QuietQt() : givenHandler(qInstallMessageHandler(WriteFatalOnly))
    {
        std::fflush(stderr);
        standardError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (standardError >= 0 && nowhere >= 0) {
            dup2(nowhere, STDERR_FILENO);
        }
        if (nowhere >= 0) {
            close(nowhere);
        }
    }
    QuietQt(const QuietQt&) = delete;
    QuietQt& operator=(const QuietQt&) = delete;
    ~QuietQt()
    {
        RestoreStandardError();
        qInstallMessageHandler(givenHandler);
    }

private:
    static void RestoreStandardError()
    {
        if (standardError >= 0) {
            dup2(standardError, STDERR_FILENO);
            close(standardError);
            standardError = -1;
        }
    }

    static void WriteFatalOnly(QtMsgType type, const QMessageLogContext& /*context*/,
                               const QString& text)
    {
        if (type == QtFatalMsg) {
            RestoreStandardError();
            std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
        }
    }

    inline static int standardError = -1; ///< the stream itself while it is put aside
    QtMessageHandler givenHandler;
};

} // namespace

void ConsoleApplicationDeleter::operator()(QApplication* app) const
{
    const QtEnvironment environment;
    const QuietQt quiet;
    delete app;
}

ConsoleApplication MakeConsoleApplication(int& argc, char** argv)
{
    const QtEnvironment environment;
    const QuietQt quiet;
    return ConsoleApplication(new QApplication(argc, argv));
}
