// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

class QApplication;

/// Installs the unpacked package that the options name and writes the progress to standard output.
/// @return 0, or the first non-zero result of the installation's stages
/// @throws std::runtime_error when the package description's root value is no JSON object
[[nodiscard]] int CuiMode(QApplication* app);

/// Stands in for the window: says on standard error that this build has none.
/// @return 1
[[nodiscard]] int GuiMode(QApplication* app);
