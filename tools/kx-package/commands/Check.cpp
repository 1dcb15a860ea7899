// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Checker.h"
#include "commands/Command.h"
#include "commands/FindingsText.h"
#include "commands/LocalShells.h"
#include "commands/Values.h"

#include <memory>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

struct CheckArguments {
    std::string path;
    std::string panel;
    std::string processor;
    bool isStrict = false;
};

io::ExitCode Check(const Output& output, const CheckArguments& arguments)
{
    LocalShells shells;
    checks::Expected expected;
    expected.shells = &shells;
    expected.panel = PanelOf(arguments.panel, arguments.processor);
    const checks::Findings findings = checks::CheckPackage(arguments.path, expected);
    const bool isClean = findings.Count(checks::Severity::kError) == 0 &&
                         (!arguments.isStrict || findings.Count(checks::Severity::kWarning) == 0);
    WriteFindings(output, arguments.path, findings, isClean);
    return isClean ? io::ExitCode::kFine : io::ExitCode::kProblems;
}

} // namespace

void AddCheck(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command =
        program.add_subcommand("check", "Find what would go wrong with a package on a panel");
    const auto arguments = std::make_shared<CheckArguments>();
    command
        ->add_option("package", arguments->path,
                     "A package file, the folder of an unpacked one, or - for standard input")
        ->type_name(kPackageValue)
        ->required();
    command->add_flag("--json", invocation.isJson, "Write the findings as JSON");
    command->add_flag("--strict", arguments->isStrict, "Warnings are problems, too");
    command
        ->add_option("--processor", arguments->processor,
                     "The panel's processor: is the updater made for it?")
        ->type_name(ChoiceOf(format::ProcessorNames()));
    AddPanelOption(*command, arguments->panel);
    command->footer("Exit status: 0 no problems, 1 problems, 2 wrong use, 3 could not read.\n"
                    "Errors are problems; warnings are with --strict; notes never are.\n"
                    "\n"
                    "Examples:\n"
                    "  kx-package check hello.kx-update\n"
                    "  kx-package check --strict --processor arm hello.kx-update\n"
                    "  kx-package check --json pkg/ | jq -r '.findings[].id'");
    command->callback([&invocation, arguments] {
        invocation.run = [arguments](const Output& output) { return Check(output, *arguments); };
    });
}

} // namespace kx::tool
