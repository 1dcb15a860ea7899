// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/NewContents.h"
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
#include <string>
#include <system_error>
#include <vector>

#include <sys/stat.h>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

/// A file of a new package, beside the manifest.
struct NewFile {
    const char* path;
    const char* text;
};

constexpr const char* kManifestHead = R"(# What is in this package, and what the panel does with it.
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
)";

/// What stands behind the copies of what is there already.
constexpr const char* kMoreSteps = R"(
# Scripts and settings are steps, too: "kx-package new" in an empty folder has examples of all.
)";

constexpr const char* kExampleSteps = R"(
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
    {"payload/bin/hello", "#!/bin/sh\necho \"Hello from the panel.\"\n"},
    {"payload/etc/hello.conf", "greeting = Hello\n"},
    {"payload/share/greeting.txt", "Hello\n"},
    {"payload/share/greeting.txt.orig", "Hallo\n"},
    {"payload/share/bin/greet", "#!/bin/sh\ncat /mnt/user/share/hello/greeting.txt\n"},
    {"scripts/startup.sh", "#!/bin/sh\n/mnt/user/bin/hello\n"},
    {"scripts/uninstall.sh", "#!/bin/sh\nrm -f /mnt/user/bin/hello\n"},
};

/// Makes the folder, or takes one that has no manifest.
void PrepareFolder(const std::string& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw io::AccessError(folder, "make the folder", error.value());
    }
    const fs::path manifest = fs::path(folder) / kManifestName;
    struct stat info {
    };
    if (lstat(manifest.c_str(), &info) == 0) {
        throw io::Error(io::ExitCode::kWrongUse, manifest.string(), "is there already",
                        "change it, or name another folder");
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

/// Returns the manifest for what is in the folder.
std::string ManifestText(const std::string& folder, const NewContents& contents)
{
    const std::time_t moment = SourceDateEpoch().value_or(std::time(nullptr));
    std::error_code error;
    const std::string name = AcceptedPackageName(fs::canonical(folder, error).filename().string());
    const format::Processor* const native = format::NativeProcessor();
    std::string text = ReplaceStringAll(kManifestHead, "@NAME@", name);
    text = ReplaceStringAll(text, "@DATE@", ReplaceStringAll(DateText(moment), "/", "-"));
    text = ReplaceStringAll(text, "@PROCESSOR@", native != nullptr ? native->name : "aarch64");
    return text + (contents.IsEmpty()
                       ? kExampleSteps
                       : StepsForContents(contents, "/mnt/user/" + name) + kMoreSteps);
}

/// "2 files and 1 folder that are there"
std::string TakenText(const NewContents& contents)
{
    const std::size_t files = contents.files.size() + contents.programs.size();
    return io::CountText(files, "file") + " and " +
           io::CountText(contents.folders.size(), "folder") + " of what is there";
}

void TellNew(const std::string& folder, const NewContents& contents, const Output& output)
{
    for (const std::string& remark : contents.remarks) {
        output.err << "kx-package: " << io::Printable(remark) << '\n';
    }
    const std::string manifest = (fs::path(folder) / kManifestName).string();
    output.out << "Made " << io::Printable(manifest)
               << (contents.IsEmpty() ? "" : ", with steps that copy " + TakenText(contents))
               << ". Change it, then make the package:\n"
               << "  kx-package build " << io::Printable(folder) << '\n';
}

io::ExitCode MakeNew(const std::string& folder, const Output& output)
{
    PrepareFolder(folder);
    const NewContents contents = ReadNewContents(folder);
    std::vector<std::string> made = {kManifestName};
    WriteFile(fs::path(folder) / kManifestName, ManifestText(folder, contents));
    if (contents.IsEmpty()) {
        for (const NewFile& file : kFiles) {
            WriteFile(fs::path(folder) / file.path, file.text);
            made.emplace_back(file.path);
        }
    }
    if (!output.isJson) {
        TellNew(folder, contents, output);
        return io::ExitCode::kFine;
    }
    std::vector<std::string> taken = contents.programs;
    taken.insert(taken.end(), contents.files.begin(), contents.files.end());
    for (const NewContents::Folder& each : contents.folders) {
        taken.push_back(each.name + "/");
    }
    WriteJson(output, picojson::value(picojson::object{
                          {"folder", JsonText(folder)},
                          {"files", JsonTexts(made)},
                          {"taken", JsonTexts(taken)},
                          {"remarks", JsonTexts(contents.remarks)},
                      }));
    return io::ExitCode::kFine;
}

} // namespace

void AddNew(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command =
        program.add_subcommand("new", "Begin a package: a manifest with examples, and its payload");
    const auto folder = std::make_shared<std::string>();
    command
        ->add_option("folder", *folder, "The folder to make, or one with the files of the package")
        ->type_name(kFolderValue)
        ->required();
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer(
        "In a folder with files, the manifest has steps that copy them, and nothing else is\n"
        "made. Nothing is ever overwritten.\n\n"
        "Examples:\n"
        "  kx-package new recipes\n"
        "  kx-package build recipes");
    command->callback([folder, &invocation] {
        invocation.run = [folder](const Output& output) { return MakeNew(*folder, output); };
    });
}

} // namespace kx::tool
