// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/Values.h"
#include "common/Epoch.h"
#include "format/Processor.h"
#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Text.h"
#include "io/Transfer.h"
#include "manifest/Manifest.h"
#include "osa/OSA.h"

#include <ctime>
#include <filesystem>
#include <memory>
#include <ostream>
#include <system_error>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

/// A file of a new package; @NAME@, @DATE@ and @PROCESSOR@ are filled in.
struct NewFile {
    const char* path;
    const char* text;
};

constexpr const char* kManifestText = R"(# What is in this package, and what the panel does with it.
# "kx-package build" makes @NAME@.kx-update of it.

[package]
name = "@NAME@"               # of the file, and of the record on the panel: keep it for new versions
title = "A new package"       # title, version and comment are shown on the panel
version = "1.0.0"
comment = "Shows what a package can do"   # may be left out
model = "TP-0700"             # model and os-version are for people; the panel does not compare them
os-version = "2.1.0"
date = @DATE@             # without it SOURCE_DATE_EPOCH must be set
processor = "@PROCESSOR@"          # of the panel: aarch64, arm, i386, riscv64 or x86_64

# The steps run in this order; the first one that fails ends the installation.
#   comment = ""      for people
#   skip = false      true: what fails is reported and passed over
#   record = true     of copy steps: what they create is listed on the panel

# Copies files.
[[steps]]
kind = "copy-files"
comment = "the program"

[[steps.files]]
source = "payload/bin/hello"
target = "/mnt/user/bin/hello"
mode = "755"                  # 644 when nothing is given

# A pattern: * and ? within a name, ** through folders. Its target is a folder and ends in '/'; what
# stands behind the last folder without a wildcard is kept below it.
[[steps.files]]
source = "payload/etc/*.conf"
target = "/mnt/user/etc/"

# Copies everything in a folder.
[[steps]]
kind = "copy-folder"
comment = "its texts"

[[steps.folders]]
source = "payload/share"
target = "/mnt/user/share/hello"
exclude = ["**/*.orig"]       # patterns of what stays out
executable = ["bin/*"]        # patterns of programs; all other files get mode 644

# Runs a script on the panel, as root. It is not told where the package lies.
[[steps]]
kind = "script"
comment = "try the program"
skip = true
install = """
#!/bin/sh
/mnt/user/bin/hello
"""
uninstall-file = "scripts/uninstall.sh"   # or uninstall = "…"; the panel itself never runs it

# Changes settings. Names and values are those of the panel's setting tool, always as texts and
# without blanks. A setting with used = false is passed over.
[[steps]]
kind = "settings"
comment = "the panel's settings"

[[steps.settings]]
kind = "auto-start"
values = { Mode = "script" }
script-file = "scripts/startup.sh"        # or script = "…"; becomes /mnt/user/startup.sh

[[steps.settings]]
kind = "backlight"
values = { Level = "8" }

[[steps.settings]]
kind = "cursor"
values = { Cursor = "off" }

[[steps.settings]]
kind = "language"
values = { Language = "en" }

[[steps.settings]]
kind = "lan"
used = false
values = { Address = "192.168.0.10", Mask = "255.255.255.0" }

[[steps.settings]]
kind = "sound"
values = { Volume = "5", Mute = "off" }

[[steps.settings]]
kind = "s-start"
used = false
values = { Delay = "0" }

[[steps.settings]]
kind = "touch-beep"
values = { Beep = "on" }

[[steps.settings]]
kind = "user"                 # changes a login password; it can be read in the package
used = false
values = { User = "user", Password = "change-me" }
)";

constexpr NewFile kFiles[] = {
    {kManifestName, kManifestText},
    {"payload/bin/hello", "#!/bin/sh\necho \"Hello from the panel.\"\n"},
    {"payload/etc/hello.conf", "greeting = Hello\n"},
    {"payload/share/greeting.txt", "Hello\n"},
    {"payload/share/greeting.txt.orig", "Hallo\n"},
    {"payload/share/bin/greet", "#!/bin/sh\ncat /mnt/user/share/hello/greeting.txt\n"},
    {"scripts/startup.sh", "#!/bin/sh\n/mnt/user/bin/hello\n"},
    {"scripts/uninstall.sh", "#!/bin/sh\nrm -f /mnt/user/bin/hello\n"},
};

/// Makes the folder, or takes one that is empty.
void PrepareFolder(const std::string& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw io::AccessError(folder, "make the folder", error.value());
    }
    const bool isEmpty = fs::is_empty(folder, error);
    if (error) {
        throw io::AccessError(folder, "look into the folder", error.value());
    }
    if (!isEmpty) {
        throw io::Error(io::ExitCode::kWrongUse, folder, "is not empty",
                        "name a folder that is not there yet");
    }
}

void WriteFile(const fs::path& path, const std::string& text)
{
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error) {
        throw io::AccessError(path.parent_path().string(), "make the folder", error.value());
    }
    const io::Descriptor file = io::CreateFile(path.string(), 0666);
    io::WriteAll(file.Number(), text, path.string());
}

io::ExitCode MakeNew(const std::string& folder, const Output& output)
{
    const std::time_t moment = SourceDateEpoch().value_or(std::time(nullptr));
    PrepareFolder(folder);
    std::error_code error;
    const std::string name = AcceptedPackageName(fs::canonical(folder, error).filename().string());
    const format::Processor* const native = format::NativeProcessor();
    const std::string processor = native != nullptr ? native->name : "aarch64";
    const std::string date = ReplaceStringAll(DateText(moment), "/", "-");
    picojson::array made;
    for (const NewFile& file : kFiles) {
        std::string text = ReplaceStringAll(file.text, "@NAME@", name);
        text = ReplaceStringAll(text, "@DATE@", date);
        text = ReplaceStringAll(text, "@PROCESSOR@", processor);
        WriteFile(fs::path(folder) / file.path, text);
        made.emplace_back(file.path);
    }
    const std::string manifest = (fs::path(folder) / kManifestName).string();
    if (output.isJson) {
        WriteJson(output, picojson::value(picojson::object{
                              {"folder", JsonText(folder)},
                              {"files", picojson::value(made)},
                          }));
        return io::ExitCode::kFine;
    }
    output.out << "Made " << io::Printable(manifest) << ". Change it, then make the package:\n"
               << "  kx-package build " << io::Printable(folder) << '\n';
    return io::ExitCode::kFine;
}

} // namespace

void AddNew(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command =
        program.add_subcommand("new", "Begin a package: a manifest with examples, and its payload");
    const auto folder = std::make_shared<std::string>();
    command->add_option("folder", *folder, "The folder to make; an empty one is taken")
        ->type_name(kFolderValue)
        ->required();
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer("Example:\n"
                    "  kx-package new recipes\n"
                    "  kx-package build recipes");
    command->callback([folder, &invocation] {
        invocation.run = [folder](const Output& output) { return MakeNew(*folder, output); };
    });
}

} // namespace kx::tool
