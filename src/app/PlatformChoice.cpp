// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/PlatformChoice.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVersionNumber>

#include <algorithm>

std::string ChoosePlatform(const QVersionNumber& qt, const std::string& given,
                           const IsPlatformThere& isThere)
{
    if (qt >= QVersionNumber(5, 12)) {
        return given.empty() ? "offscreen;minimal" : "offscreen;minimal;" + given;
    }
    for (const char* const name : {"offscreen", "minimal"}) {
        if (isThere(QLatin1String(name))) {
            return name;
        }
    }
    return given;
}

bool IsPlatformIn(const QStringList& folders, const QString& name)
{
    const QString plugin = QStringLiteral("/libq%1.so").arg(name);
    return std::any_of(folders.begin(), folders.end(),
                       [&plugin](const QString& folder) { return QFile::exists(folder + plugin); });
}

bool IsPlatformPlugin(const QJsonObject& metaData, const QString& name)
{
    // The interface's name ends in its version.
    const QString interface = metaData.value(QStringLiteral("IID")).toString();
    const QJsonArray names = metaData.value(QStringLiteral("MetaData"))
                                 .toObject()
                                 .value(QStringLiteral("Keys"))
                                 .toArray();
    return interface.startsWith(
               QStringLiteral("org.qt-project.Qt.QPA.QPlatformIntegrationFactoryInterface.")) &&
           std::any_of(names.begin(), names.end(), [&name](const QJsonValue& key) {
               return key.toString().compare(name, Qt::CaseInsensitive) == 0;
           });
}
