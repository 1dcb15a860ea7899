// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Checker.h"
#include "commands/Command.h"
#include "commands/FindingsText.h"
#include "commands/LocalShells.h"
#include "commands/ManifestChecks.h"
#include "commands/Values.h"
#include "compose/PackageSource.h"
#include "io/Error.h"
#include "io/StandardInput.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

struct CheckArguments {
    std::vector<std::string> paths;
    PanelOptions panel;
    std::string keys; ///< folder of those that the panel trusts
    bool requiresSignature = false;
    bool isStrict = false;
};

checks::Findings FindingsOf(const std::string& path, const CheckArguments& arguments,
                            const checks::Expected& expected)
{
    if (path == io::kStandardInput || !IsSource(path)) {
        return checks::CheckPackage(path, expected);
    }
    if (arguments.requiresSignature) {
        throw io::Error(io::ExitCode::kWrongUse, path, "is a source, which nobody signs",
                        "name the package that was built of it");
    }
    return CheckManifestFile(path, arguments.panel, expected.shells);
}

/// Returns the keys of the folder that was named, if one was.
std::optional<signature::TrustedKeys> KeysFor(const CheckArguments& arguments)
{
    if (arguments.keys.empty()) {
        if (arguments.requiresSignature) {
            throw io::Error(io::ExitCode::kWrongUse, "check",
                            "--require-signature needs the keys that the panel trusts",
                            "name their folder with --keys");
        }
        return {};
    }
    return signature::ReadTrustedKeys(arguments.keys);
}

io::ExitCode Check(const Output& output, const CheckArguments& arguments)
{
    LocalShells shells;
    checks::Expected expected;
    expected.panel = PanelOf(arguments.panel.file, arguments.panel.processor);
    expected.shells = &shells;
    const std::optional<signature::TrustedKeys> keys = KeysFor(arguments);
    expected.keys = keys.has_value() ? &*keys : nullptr;
    expected.requiresSignature = arguments.requiresSignature;
    std::vector<Checked> all;
    for (const std::string& path : arguments.paths) {
        all.emplace_back(path, FindingsOf(path, arguments, expected), arguments.isStrict);
    }
    WriteFindings(output, all);
    const bool isClean =
        std::all_of(all.begin(), all.end(), [](const Checked& checked) { return checked.isClean; });
    return isClean ? io::ExitCode::kFine : io::ExitCode::kProblems;
}

} // namespace

void AddCheck(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command =
        program.add_subcommand("check", "Find what would go wrong with a package on a panel");
    const auto arguments = std::make_shared<CheckArguments>();
    command
        ->add_option(
            "package", arguments->paths,
            "Package files, folders of unpacked ones, manifests or their folders, or - for "
            "standard input")
        ->type_name(kPackageValue)
        ->required();
    command->add_flag("--json", invocation.isJson, "Write the findings as JSON");
    command->add_flag("--strict", arguments->isStrict, "Warnings are problems, too");
    command
        ->add_option("--processor", arguments->panel.processor,
                     "The panel's processor: is the updater made for it?")
        ->type_name(ChoiceOf(format::ProcessorNames()));
    AddPanelOption(*command, arguments->panel.file);
    command
        ->add_option("--keys", arguments->keys,
                     "The folder of the keys that the panel trusts: are the signatures good?")
        ->type_name(kFolderValue);
    command->add_flag("--require-signature", arguments->requiresSignature,
                      "The panel installs nothing without a signature by one of the keys");
    command->footer("Exit status: 0 no problems, 1 problems, 2 wrong use, 3 could not read.\n"
                    "Errors are problems; warnings are with --strict; notes never are.\n"
                    "\n"
                    "Examples:\n"
                    "  kx-package check hello.kx-update\n"
                    "  kx-package check hello/package.toml\n"
                    "  kx-package check --panel tp-0700.toml *.kx-update\n"
                    "  kx-package check --strict --processor arm hello.kx-update\n"
                    "  kx-package check --keys keys --require-signature hello.kx-update\n"
                    "  kx-package check --json pkg/ | jq -r '.findings[].id'");
    command->callback([&invocation, arguments] {
        invocation.run = [arguments](const Output& output) { return Check(output, *arguments); };
    });
}

} // namespace kx::tool
