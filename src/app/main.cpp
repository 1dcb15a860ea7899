// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/ConsoleApplication.h"
#include "app/Globals.h"
#include "app/ProcessSetUp.h"
#include "app/RunModes.h"
#include "engine/Installation.h"
#include "osa/ResultCodes.h"

#include <QApplication>
#include <QTranslator>

#include <cstdlib>
#include <memory>
#include <string_view>

namespace
{

/// Installs the translation that LANG names; without it message identifiers are shown.
void InstallTranslation(QTranslator& translator)
{
    const char* const language = std::getenv("LANG");
    const bool isJapanese = language != nullptr && std::string_view(language) == "ja_JP.UTF-8";
    // Without its file a translator leaves every identifier as it is.
    static_cast<void>(translator.load(isJapanese ? QStringLiteral(":/res/q_Updater_ja.qm")
                                                 : QStringLiteral(":/res/q_Updater_en.qm")));
    QCoreApplication::installTranslator(&translator);
}

std::shared_ptr<QApplication> MakeApplication(bool hasWindow, int& argc, char** argv)
{
    if (hasWindow) {
        return std::make_shared<QApplication>(argc, argv);
    }
    return MakeConsoleApplication(argc, argv);
}

int ExitCodeOf(int result)
{
    constexpr int kLargest = 255;
    if (result > kLargest) {
        return kExitResultTooLarge;
    }
    return result < 0 ? kExitResultNegative : result;
}

} // namespace

int main(int argc, char** argv)
{
    SetUpProcess();
    ParseCommandLine(argc, argv, G::Opts);

    const bool hasWindow = !G::Opts.upDir.empty();
    const std::shared_ptr<QApplication> app = MakeApplication(hasWindow, argc, argv);
    G::App = app.get();
    QTranslator translator;
    InstallTranslation(translator);

    return ExitCodeOf(Installation::BetweenSyncs(
        [hasWindow] { return hasWindow ? GuiMode(G::App) : CuiMode(G::App); }));
}
