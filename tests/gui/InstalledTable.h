// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "gui/InstalledListDialog.h"

#include <QString>
#include <QTableWidget>

/// The table of a list of installed packages, which the dialog owns.
inline QTableWidget& TableOf(const InstalledListDialog& dialog)
{
    return *dialog.findChild<QTableWidget*>(QStringLiteral("tableWidget"));
}
