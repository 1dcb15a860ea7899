// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/Values.h"
#include "format/PanelFile.h"
#include "format/PanelSurvey.h"
#include "io/AtomicFile.h"
#include "io/Descriptor.h"
#include "io/RootedFolder.h"
#include "io/Text.h"
#include "io/Transfer.h"

#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

struct NewPanelOptions {
    std::string output = format::kPanelFileName;
    std::string root;
};

/// Returns a text as TOML writes it.
std::string TomlText(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : io::Printable(text)) {
        quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return quoted + "\"";
}

/// Returns texts as a TOML array, several to a line.
std::string TomlList(const std::vector<std::string>& texts)
{
    constexpr std::size_t kLongestLine = 90;
    std::string list = "[";
    std::size_t begin = 0; // of the last line
    for (const std::string& text : texts) {
        const std::string word = TomlText(text) + (&text == &texts.back() ? "" : ",");
        if (list.size() - begin + word.size() > kLongestLine) {
            begin = list.size();
            list += "\n  ";
        }
        list += (list.back() == ',' ? " " : "") + word;
    }
    return list + "]";
}

/// Returns a line of the file: what is known, or what may be written there.
std::string PanelLine(const std::string& key, const std::string& known, const std::string& example)
{
    return known.empty() ? "#" + key + " = " + example + "\n" : key + " = " + known + "\n";
}

std::string PanelLine(const std::string& key, const std::vector<std::string>& known,
                      const std::string& example)
{
    return PanelLine(key, known.empty() ? std::string() : TomlList(known), example);
}

std::string TomlTextOr(const std::string& known)
{
    return known.empty() ? known : TomlText(known);
}

constexpr const char* kPanelHead =
    R"(# What a model of panel is: "kx-package check --panel FILE", and build, plan and try, judge packages
# by it; a manifest names it by panel = "FILE". Everything may be left out, and what is left out is
# not judged. A list that is there is complete.

format = 1                    # of this file

# The models and system versions that are meant; packages say theirs.
#models = ["TP-0700"]
#os-versions = ["2.1.0"]

# The processor: aarch64, arm, i386, riscv64 or x86_64; of an arm also the float ABI: hard (armhf)
# or soft (armel).
)";

constexpr const char* kPanelSoftware = R"(
# The version of the GNU C library ("ldd --version" shows it).
)";

constexpr const char* kPanelRoot = R"(
# A folder with a copy of the panel's files, from this file's folder on: libraries and interpreters
# are looked for there, too, and "plan" begins with it.
)";

constexpr const char* kPanelLibraries = R"(
# The names of all shared libraries, as programs ask for them.
)";

constexpr const char* kPanelInterpreters = R"(
# The full paths of all interpreters that scripts name behind #!, and of the programs' loader.
)";

constexpr const char* kPanelShell = R"(
# The program that /bin/sh is: bash, busybox or dash.
)";

constexpr const char* kPanelUsers = R"(
# The users whose passwords a package can change.
)";

constexpr const char* kPanelProtected = R"(
# Where a package should write nothing.
#protected = ["/boot", "/usr/bin/kxsystem"]
)";

constexpr const char* kPanelOwn = R"(
# For the panel itself, in its own /etc/kx_Updater/panel.toml, which also needs models, os-versions and
# processor: whether a package must be signed ("required" or "optional"), what becomes of an older
# version ("refuse" or "allow"), the folder of what is remembered, and the program that installs.
# These are the values without the key.
)";

constexpr const char* kPanelTables = R"(
# Places of limited room, in MiB.
#[[places]]
#path = "/mnt/user"
#size-mib = 256

# The names that the setting tool takes, each with its values or a range of whole numbers, or with
# neither: {}. With this table a name that is not in it is an error.
#[settings]
#Level = { range = [0, 15] }
#Cursor = { values = ["on", "off"] }
#Address = {}

# For the panel itself: how much it looks at, takes and remembers.
#[limits]
)";

/// Returns what a panel lets in when nothing says otherwise.
std::string OwnLines()
{
    const format::PanelRules rules;
    return kPanelOwn + PanelLine("signatures", std::string(), "\"required\"") +
           PanelLine("downgrade", std::string(), "\"refuse\"") +
           PanelLine("state", std::string(), TomlText(rules.state)) +
           PanelLine("updater", std::string(), TomlText(rules.updater));
}

/// Returns the limits of a panel when nothing says otherwise.
std::string LimitLines()
{
    std::string lines;
    for (const format::PanelLimit& limit : format::PanelLimitKeys()) {
        lines +=
            PanelLine(limit.key, std::string(), std::to_string(format::PanelLimits().*limit.value));
    }
    return lines;
}

std::string PanelText(const NewPanelOptions& options)
{
    format::PanelSurvey found;
    if (!options.root.empty()) {
        found = format::SurveyPanel(io::RootedFolder(options.root));
    }
    const std::string processor = found.processor == nullptr ? "" : found.processor->name;
    const std::string abi = found.floatAbi == format::FloatAbi::kHard   ? "hard"
                            : found.floatAbi == format::FloatAbi::kSoft ? "soft"
                                                                        : "";
    return kPanelHead + PanelLine("processor", TomlTextOr(processor), "\"arm\"") +
           PanelLine("float-abi", TomlTextOr(abi), "\"hard\"") + kPanelSoftware +
           PanelLine("c-library", TomlTextOr(found.cLibrary), "\"2.31\"") + kPanelRoot +
           PanelLine("root", std::string(), "\"panel-root\"") + kPanelLibraries +
           PanelLine("libraries", found.libraries, R"(["libc.so.6", "libQt5Widgets.so.5"])") +
           kPanelInterpreters +
           PanelLine("interpreters", found.interpreters,
                     R"(["/bin/sh", "/usr/bin/python3", "/lib/ld-linux-armhf.so.3"])") +
           kPanelShell + PanelLine("shell", TomlTextOr(found.shell), "\"dash\"") + kPanelUsers +
           PanelLine("users", found.users, R"(["root", "user"])") + kPanelProtected + OwnLines() +
           kPanelTables + LimitLines();
}

io::ExitCode MakeNewPanel(const NewPanelOptions& options, const Output& output)
{
    const bool isPiped = options.output == io::AtomicFile::kStandardOutput;
    if (isPiped && output.isJson) {
        throw io::Error(io::ExitCode::kWrongUse, "",
                        "--json and the description cannot share standard output",
                        "write the description to a file");
    }
    const std::string text = PanelText(options);
    if (isPiped) {
        output.out << text;
        return io::ExitCode::kFine;
    }
    const io::Descriptor file = io::CreateFile(options.output, 0666);
    io::WriteAll(file.Number(), text, options.output);
    if (output.isJson) {
        WriteJson(output, picojson::value(picojson::object{{"file", JsonText(options.output)}}));
    } else {
        output.out << "Made " << io::Printable(options.output)
                   << ". Change it, then name it in the manifest or with --panel.\n";
    }
    return io::ExitCode::kFine;
}

} // namespace

void AddNewPanel(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand(
        "new-panel", "Begin the description of a model of panel, by which packages are judged");
    const auto options = std::make_shared<NewPanelOptions>();
    command
        ->add_option("-o,--output", options->output,
                     "The file to make, or - for standard output; a file that is there is refused")
        ->type_name(kFileValue)
        ->capture_default_str();
    command
        ->add_option("--root", options->root,
                     "A folder with a copy of a panel's files: what it tells is filled in")
        ->type_name(kFolderValue)
        ->check(RefuseNoFolder);
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer("Examples:\n"
                    "  kx-package new-panel\n"
                    "  kx-package new-panel --root panel/root -o tp-0700.toml\n"
                    "  kx-package check --panel tp-0700.toml recipes.kx-update");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return MakeNewPanel(*options, output); };
    });
}

} // namespace kx::tool
