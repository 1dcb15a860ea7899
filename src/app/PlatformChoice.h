// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

class QJsonObject;
class QString;
class QStringList;
class QVersionNumber;

/// Tells whether a platform can be had on this machine, by its name without arguments.
using IsPlatformThere = std::function<bool(const QString& name)>;

/// Returns what QT_QPA_PLATFORM must be for a process without a window: Qt's offscreen platform,
/// where it is missing the minimal one, where that is missing, too, what there was before. Nothing
/// else is tried: a window's platform is the last resort, but then it is the panel's own.
///
/// @param qt       version of the Qt library in use. From 5.12 on it tries the names of a list in
///                 turn; to an older one a list would be one odd name, so the choice is made here.
/// @param given    QT_QPA_PLATFORM as it is: a name, arguments behind a colon, or empty
/// @param isThere  asked with a Qt older than 5.12 only
/// @return the value, or empty: without the variable Qt takes the platform it was built for
[[nodiscard]] std::string ChoosePlatform(const QVersionNumber& qt, const std::string& given,
                                         const IsPlatformThere& isThere);

/// Tells whether one of the folders holds the plugin of a platform.
[[nodiscard]] bool IsPlatformIn(const QStringList& folders, const QString& name);

/// Tells whether a plugin that is linked into the program or into Qt is that of a platform.
/// @param metaData  the plugin's own description
[[nodiscard]] bool IsPlatformPlugin(const QJsonObject& metaData, const QString& name);
