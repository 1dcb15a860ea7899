// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

/// Brings the process into the state that the rest of the program relies on, whatever its starter
/// left it in.
///
/// - SIGCHLD gets its default action: with it ignored every command would look failed.
/// - A default SIGPIPE is caught and dropped, so that a reader that goes away does not end an
///   installation half-way. Commands start with the default action again.
/// - Standard input, output and error, when closed, become /dev/null: no file opened later can
///   take their place and receive the program's lines.
void SetUpProcess();
