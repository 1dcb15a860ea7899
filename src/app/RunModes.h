// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

class QApplication;

/// Installs the unpacked package that the options name and writes the progress to standard output.
/// @return 0, or the first non-zero result of the installation's stages
/// @throws std::runtime_error when the package description's root value is no JSON object
[[nodiscard]] int CuiMode(QApplication* app);

/// Shows the main window over the whole screen and runs the event loop until its end.
/// @return the event loop's exit code
/// @throws std::runtime_error when the package description's root value is no JSON object
[[nodiscard]] int GuiMode(QApplication* app);
