// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/Options.h"

#include "engine/Installation.h"
#include "osa/PanelNames.h"
#include "osa/ResultCodes.h"

#include <QObject>
#include <QString>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace
{

constexpr const char* kProgramName = PanelNames::kUpdater;

/// Returns the field that takes the value of the option @p word, or null for an unknown word.
std::string* FieldOf(std::string_view word, Options& options)
{
    if (word == "-unzipedDir") {
        return &options.unzipedDir;
    }
    if (word == "-upDir") {
        return &options.upDir;
    }
    return word == "-q_Updater" ? &options.updaterPath : nullptr;
}

/// Returns the identifier of the message that the window shows after a search, or null after one
/// that found its package.
const char* MessageIdOf(Installation::Search search)
{
    switch (search) {
    case Installation::Search::kFound:
        break;
    case Installation::Search::kNoFolderGiven:
        return "KX_BUG01";
    case Installation::Search::kNoFolder:
        return "ER_MSG05";
    case Installation::Search::kNoPackage:
        return "ER_MSG03";
    case Installation::Search::kSeveralPackages:
        return "ER_MSG02";
    }
    return nullptr;
}

} // namespace

void ParseCommandLine(int argc, const char* const* argv, Options& options)
{
    for (int i = 1; i < argc; i += 2) {
        std::string* const field = FieldOf(argv[i], options);
        if (field == nullptr) {
            Help("Invaild option : ", argv[i]);
        }
        if (i + 1 == argc) {
            Help("Error option: ", argv[i]);
        }
        *field = argv[i + 1];
    }
    if (options.upDir.empty() == options.unzipedDir.empty()) {
        Help("Either '-upDir or '-unzipedDir' option must be specified.", "");
    }
}

void Help(const char* message, const char* detail)
{
    std::cerr << std::endl;
    std::cerr << kProgramName << ":" << message << detail << std::endl;
    std::cerr << std::endl;
    std::cerr << kProgramName << " Ver." << KX_VERSION << std::endl;
    std::cerr << std::endl;
    std::cerr << "Usage    : " << kProgramName << " [[Option]..]" << std::endl;
    std::cerr << std::endl;
    std::cerr << "Options  :" << std::endl;
    std::cerr << "     -upDir <folder>" << std::endl;
    std::cerr << "         The folder containing a .kx-update file." << std::endl;
    std::cerr << "         There must be only one .kx-update file in that folder." << std::endl;
    std::cerr << "         Updater asks if you want to start the update for that .kx-update "
              << std::endl;
    std::cerr << std::endl;
    std::cerr << std::endl;
    std::exit(kExitBadCommandLine);
}

int Options::ComformUpPath(QString& message)
{
    if (!unzipedDir.empty()) {
        return 1;
    }
    const char* const id = MessageIdOf(Installation::FindPackage(upDir, upFile));
    if (id == nullptr) {
        return 1;
    }
    message = QObject::tr(id);
    return 0;
}

int StrToInt10(const char* text, int* value, int min, int max)
{
    char* end = nullptr;
    const long long number = std::strtoll(text, &end, 10);
    if (end == text) {
        return 0;
    }
    *value = static_cast<int>(std::clamp<long long>(number, INT_MIN, INT_MAX));
    return number >= min && number <= max ? 1 : 0;
}
