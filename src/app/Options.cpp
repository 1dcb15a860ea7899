// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/Options.h"

#include "osa/OSA.h"
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
    if (upDir.empty()) {
        message = QObject::tr("KX_BUG01");
        return 0;
    }
    if (!OSA_IsFileExist(upDir.c_str())) {
        message = QObject::tr("ER_MSG05");
        return 0;
    }
    OSA_FindFile listing;
    for (const char* name = listing.FindFirst(upDir.c_str()); name != nullptr;
         name = listing.Next()) {
        if (std::string_view(OSA_GetExt(name)) != PanelNames::kPackageExtension) {
            continue;
        }
        if (!upFile.empty()) {
            message = QObject::tr("ER_MSG02");
            return 0;
        }
        upFile = upDir + "/" + name;
    }
    if (upFile.empty()) {
        message = QObject::tr("ER_MSG03");
        return 0;
    }
    return 1;
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
