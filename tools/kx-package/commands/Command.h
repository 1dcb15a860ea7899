// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Command.h"
#include "common/Output.h"

namespace CLI
{
class App;
} // namespace CLI

namespace kx::tool
{

using cli::Invocation;

// Each adds one command with its options and help to the program. When the command line names it,
// its callback sets what is to be run.
void AddBuild(CLI::App& program, Invocation& invocation);
void AddCheck(CLI::App& program, Invocation& invocation);
void AddDiff(CLI::App& program, Invocation& invocation);
void AddInstalled(CLI::App& program, Invocation& invocation);
void AddKey(CLI::App& program, Invocation& invocation);
void AddNew(CLI::App& program, Invocation& invocation);
void AddNewPanel(CLI::App& program, Invocation& invocation);
void AddPlan(CLI::App& program, Invocation& invocation);
void AddSchema(CLI::App& program, Invocation& invocation);
void AddShow(CLI::App& program, Invocation& invocation);
void AddSign(CLI::App& program, Invocation& invocation);
void AddStick(CLI::App& program, Invocation& invocation);
void AddTry(CLI::App& program, Invocation& invocation);
void AddUnpack(CLI::App& program, Invocation& invocation);
void AddVerify(CLI::App& program, Invocation& invocation);

} // namespace kx::tool
