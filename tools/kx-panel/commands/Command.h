// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Command.h"

namespace kx::guard
{

using cli::Invocation;
using cli::Output;

/// What a package's file is called in the help, and completed by.
constexpr const char* kPackageValue = "PACKAGE";

// Each adds one command with its options and help to the program. When the command line names it,
// its callback sets what is to be run.
void AddCheck(CLI::App& program, Invocation& invocation);
void AddHistory(CLI::App& program, Invocation& invocation);
void AddInstall(CLI::App& program, Invocation& invocation);
void AddSchema(CLI::App& program, Invocation& invocation);
void AddStatus(CLI::App& program, Invocation& invocation);

} // namespace kx::guard
