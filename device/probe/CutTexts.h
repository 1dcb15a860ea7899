// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

class QWidget;

/// Returns the texts of a widget that it does not show whole, in their order: the text of a label
/// or button, the captions of tabs without the blanks around them, heads and cells of a table. Of
/// other widgets, of a label or button that is not shown, and of one that shows everything: none.
[[nodiscard]] QStringList CutTexts(const QWidget& widget);
