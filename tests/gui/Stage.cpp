// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/Stage.h"

#include "app/Globals.h"
#include "engine/q_UpdaterEngine.h"
#include "gui/AutoResize.h"
#include "gui/InstalledListDialog.h"
#include "model/PicoJFactory.h"
#include "osa/OSA.h"

#include <QApplication>
#include <QTest>
#include <QTimer>

#include <filesystem>
#include <new>

namespace
{

/// Brings the process-wide objects back to the program's start.
void ResetGlobals()
{
    G::Opts = Options();
    G::TargetUP.~UserPackageInstaller();
    new (&G::TargetUP) UserPackageInstaller();
    G::MainWin = nullptr;
    AutoResize::ScreenScaleW = 1.0;
    AutoResize::ScreenScaleH = 1.0;
}

QString ColourOf(const QString& styleSheet)
{
    if (styleSheet == QLatin1String("* {background-color : rgb(199, 253, 255)}")) {
        return QStringLiteral("normal");
    }
    return styleSheet == QLatin1String("* {background-color : rgb(255, 85, 127)}")
               ? QStringLiteral("error")
               : styleSheet;
}

} // namespace

Stage::Stage()
{
    ResetGlobals();
    if (q_UpdaterEngine::PicoJTbl->Prototypes().count == 0) {
        q_UpdaterEngine::InitSystem(&m_logger);
    }
    q_UpdaterEngine::SysLogger = &m_logger;
    q_UpdaterEngine::ChildlenMode = 0;
    G::Opts.upDir = drive.Path();
    window = std::make_unique<MainWindow>(nullptr);
    G::MainWin = window.get();
}

Stage::~Stage()
{
    window.reset();
    q_UpdaterEngine::SysLogger = nullptr;
    ResetGlobals();
}

std::string Stage::PutPackage(const std::string& name)
{
    std::string stem = drive / name;
    drive.Write(name + ".kx-update", "a zip archive");
    const std::string unzip = "unzip -o \"" + stem + ".kx-update\" -d \"" + stem + ".temp\" ";
    shell.On(unzip, [this, name, stem] {
        drive.MakeDir(name + ".temp");
        if (!description.empty()) {
            drive.Write(name + ".temp/UserPackage.kx-project", description);
        }
        std::string lines;
        for (const std::string& line : script) {
            lines += line + "\n";
        }
        drive.Write(name + ".temp/script", lines);
        std::filesystem::create_symlink(KX_FAKE_UPDATER, stem + ".temp/kx_Updater");
    });
    return stem;
}

void Stage::Show()
{
    window->show();
}

void Stage::Install()
{
    PutPackage();
    Show();
    Press("InstallButton");
}

void Stage::Press(const char* name) const
{
    auto* const button = Get<QPushButton>(name);
    QVERIFY2(button != nullptr && button->isVisible(), name);
    QTest::mouseClick(button, Qt::LeftButton);
}

QString Stage::State() const
{
    QStringList buttons;
    for (const char* const name : {"InstallButton", "CancelButton", "OkButton", "RebootButton"}) {
        if (!Get<QPushButton>(name)->isHidden()) {
            buttons.append(QLatin1String(name).chopped(6));
        }
    }
    int shown = 0;
    for (const char* const name : {"labelTitle", "textTitle", "labelVersion", "textVersion",
                                   "labelComment", "textComment"}) {
        shown += Get<QLabel>(name)->isHidden() ? 0 : 1;
    }
    const auto* const message = Get<QLabel>("labelMsg");
    const QString panelState = shown == 6   ? QStringLiteral("panel")
                               : shown == 0 ? QStringLiteral("no panel")
                                            : QStringLiteral("half a panel");
    const bool isMain = Get<QTabWidget>("tabsCenter")->currentIndex() == 0;
    return QStringList{message->text(), ColourOf(message->styleSheet()),
                       buttons.join(QLatin1Char(' ')),
                       isMain ? QStringLiteral("Main") : QStringLiteral("Log"), panelState}
        .join(QStringLiteral(" / "));
}

QStringList Stage::CommandsAfterUnpacking() const
{
    constexpr int kUnpackCommands = 3;
    return Commands().mid(kUnpackCommands);
}

void Stage::OpenList(const std::function<void(InstalledListDialog&)>& look) const
{
    bool isOpen = false;
    QTimer::singleShot(0, window.get(), [&isOpen, &look] {
        for (QWidget* const widget : QApplication::topLevelWidgets()) {
            if (auto* const list = qobject_cast<InstalledListDialog*>(widget); list != nullptr) {
                isOpen = true;
                look(*list);
                list->close();
            }
        }
    });
    Press("InstalledListButton");
    QVERIFY(isOpen);
}

void Stage::WindowLogger::OutLine(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const std::string line = OSA_Format(format, args) + "\n";
    va_end(args);
    OutMsg(line.c_str());
}

void Stage::WindowLogger::OutMsg(const char* text)
{
    Q_EMIT G::MainWin->SignOutLine(text);
}
