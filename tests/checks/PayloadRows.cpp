// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Programs and scripts that a package brings: the first step copies the file "0/0/hello" with mode
// 755, the second one a folder with the file "1/0/a".
#include "checks/RuleRow.h"
#include "support/ElfOf.h"

namespace kx::checks
{

namespace of_payload
{

constexpr const char* kHello = "0/0/hello";
constexpr const char* kInFolder = "1/0/a";

/// Makes the payload's file a program, in a package whose updater is for armhf.
void PutProgram(Recipe& recipe, const ElfOf& program)
{
    ElfOf updater = ArmProgram();
    updater.rest = "UserPackage.kx-project";
    recipe.Part("kx_Updater").content = updater.Bytes();
    recipe.Part(kHello).content = program.Bytes();
}

/// The same with a program for a machine.
void ForMachine(Recipe& recipe, const std::string& machine)
{
    ElfOf program = ArmProgram();
    program.machine = static_cast<unsigned>(std::stoul(machine));
    program.is64Bit = machine == "62" || machine == "183" || machine == "243";
    PutProgram(recipe, program);
}

void NotExecutable(Recipe& recipe, const std::string& machine)
{
    ForMachine(recipe, machine);
    recipe.Replace("\"755\"", "\"644\"");
}

/// A program for a machine on a panel with a processor: "3:x86_64".
void OnProcessor(Recipe& recipe, const std::string& value)
{
    ForMachine(recipe, value.substr(0, value.find(':')));
    recipe.processor = value.substr(value.find(':') + 1);
    recipe.Part("kx_Updater").content = ProgramBytes(recipe.processor == "x86_64" ? 62 : 183);
}

/// Puts a library for a machine into the folder.
void AddLibrary(Recipe& recipe, const std::string& machine)
{
    ElfOf library;
    library.machine = static_cast<unsigned>(std::stoul(machine));
    library.name = "libfoo.so.1";
    recipe.Part(kInFolder).content = library.Bytes();
}

void LibraryAlone(Recipe& recipe, const std::string& machine)
{
    PutProgram(recipe, ArmProgram());
    AddLibrary(recipe, machine);
}

void LibraryNeeded(Recipe& recipe, const std::string& machine)
{
    ElfOf program = ArmProgram();
    program.needed.emplace_back("libfoo.so.1");
    PutProgram(recipe, program);
    AddLibrary(recipe, machine);
}

/// Firmware, a kernel module, or a program alone: by its type, for another machine.
Put OfType(unsigned type, bool hasStack)
{
    return [type, hasStack](Recipe& recipe, const std::string& machine) {
        ElfOf program;
        program.machine = static_cast<unsigned>(std::stoul(machine));
        program.type = type;
        program.hasStack = hasStack;
        PutProgram(recipe, program);
    };
}

/// A program with flags of an arm: "0x5000200".
void WithFlags(Recipe& recipe, const std::string& flags)
{
    ElfOf program = ArmProgram();
    program.loader = "/lib/ld-linux.so.3";
    program.flags = static_cast<unsigned>(std::stoul(flags, nullptr, 0));
    PutProgram(recipe, program);
}

void WithFlagsAlone(Recipe& recipe, const std::string& flags)
{
    ElfOf program;
    program.type = 2;
    program.flags = static_cast<unsigned>(std::stoul(flags, nullptr, 0));
    PutProgram(recipe, program);
}

/// A program on a panel with a description.
void OnPanel(Recipe& recipe, const std::string& panel)
{
    PutProgram(recipe, ArmProgram());
    recipe.panel = panel;
}

/// A program that needs libfoo.so.1, on a panel with files: "lib/libfoo.so.1".
void NeedsFoo(Recipe& recipe, const std::string& file)
{
    ElfOf program = ArmProgram();
    program.needed = {"libfoo.so.1"};
    program.folders = "$ORIGIN/../srv:/opt/own";
    PutProgram(recipe, program);
    recipe.panelFiles = {"lib/libc.so.6", "lib/ld-linux-armhf.so.3", file};
}

/// A program that needs libfoo.so.1 in a package with one of that name.
void BringsFoo(Recipe& recipe, const std::string& name)
{
    NeedsFoo(recipe, "lib/other");
    recipe.Part(kInFolder).name = "1/0/" + name;
}

/// A script in place of the payload's file.
void PutScript(Recipe& recipe, const std::string& script)
{
    recipe.Part(kHello).content = script;
}

void PutText(Recipe& recipe, const std::string& script)
{
    PutScript(recipe, script);
    recipe.Replace("\"755\"", "\"644\"");
}

void PutInFolder(Recipe& recipe, const std::string& script)
{
    recipe.Part(kInFolder).content = script;
    recipe.Part(kInFolder).mode = 0100755;
}

const Put kStep = Text("#!/bin/sh\\ntrue\\n");
const Put kStart = Text("#!/bin/sh\\nstart\\n");

/// On a panel with python3 and nothing else.
Put WithPython(const Put& put)
{
    return [put](Recipe& recipe, const std::string& value) {
        recipe.panel = R"(interpreters = ["/usr/bin/python3", "/usr/bin/env"])";
        put(recipe, value);
    };
}

/// Lets the third step skip what fails.
Put Skippable(const Put& put)
{
    return [put](Recipe& recipe, const std::string& value) {
        const std::size_t at = recipe.description.find("SS_ScriptStepSet");
        recipe.description.replace(recipe.description.find("false", at), 5, "true");
        put(recipe, value);
    };
}

/// On a panel whose shell is dash, or busybox, which is not at hand.
Put WithShell(const char* shell, const Put& put)
{
    return [shell, put](Recipe& recipe, const std::string& value) {
        recipe.panel = std::string("shell = \"") + shell + "\"";
        put(recipe, value);
    };
}

const std::vector<RuleRow> kRows = {
    {"program-processor", kError, kHello, {"62", "183", "3", "8"}, ForMachine},
    {"program-processor", kWarning, kHello, {"62", "3"}, NotExecutable},
    {"program-processor", kWarning, kHello, {"3:x86_64", "40:aarch64"}, OnProcessor},
    {"program-processor", kError, kHello, {"3:aarch64", "40:x86_64", "183:x86_64"}, OnProcessor},
    {"program-processor", kWarning, kInFolder, {"3"}, LibraryAlone},
    {"program-processor", kError, kInFolder, {"3"}, LibraryNeeded},
    {"program-processor", kError, kHello, {"3", "8"}, OfType(2, true)},
    {"program-processor", kSilent, "", {"40"}, ForMachine},
    {"program-processor", kSilent, "", {"40"}, LibraryNeeded},
    {"program-processor", kSilent, "", {"62:x86_64", "183:aarch64"}, OnProcessor},
    {"program-processor", kSilent, "", {"3", "247"}, OfType(2, false)}, // firmware
    {"program-processor", kSilent, "", {"3", "62"}, OfType(1, true)},   // pieces of programs

    {"program-float", kError, kHello, {"0x5000200"}, WithFlags},
    {"program-float", kSilent, "", {"0x5000400", "0x5000000"}, WithFlags},
    {"program-float", kSilent, "", {"0x5000200"}, WithFlagsAlone},
    {"program-float",
     kError,
     kHello,
     {"armel"},
     [](Recipe& r, const std::string& v) {
         PutProgram(r, ArmProgram());
         r.processor = v;
     },
     kAmongOthers},

    {"program-loader",
     kError,
     kHello,
     {"interpreters = [\"/lib/ld-linux.so.3\"]", "interpreters = [\"/lib/ld-musl-armhf.so.1\"]"},
     OnPanel,
     kAmongOthers},
    {"program-loader",
     kSilent,
     "",
     {"interpreters = [\"/lib/ld-linux-armhf.so.3\"]",
      "interpreters = [\"/usr/lib/ld-linux-armhf.so.3\"]", "interpreters = []",
      "interpreters = [\"/bin/sh\"]"},
     OnPanel},

    {"program-library",
     kError,
     kHello,
     {"libraries = []", R"(libraries = ["libc.so", "libc.so.60"])"},
     OnPanel,
     kAmongOthers},
    {"program-library", kError, kHello, {"lib/libfoo.so", "opt/lib/libfoo.so.1"}, NeedsFoo},
    {"program-library", kError, kHello, {"libfoo.so", "b.so"}, BringsFoo},
    {"program-library",
     kSilent,
     "",
     {"libraries = [\"libc.so.6\"]", "c-library = \"2.31\""},
     OnPanel},
    {"program-library",
     kSilent,
     "",
     {"lib/libfoo.so.1", "usr/lib/libfoo.so.1", "usr/lib/arm-linux-gnueabihf/libfoo.so.1",
      "srv/libfoo.so.1", "opt/own/libfoo.so.1"},
     NeedsFoo},
    {"program-library", kSilent, "", {"libfoo.so.1", "b/libfoo.so.1"}, BringsFoo},

    {"program-version",
     kError,
     kHello,
     {"c-library = \"2.3\"", "c-library = \"1.99\""},
     OnPanel,
     kAmongOthers},
    {"program-version", kSilent, "", {"c-library = \"2.4\"", "c-library = \"2.31\""}, OnPanel},

    {"script-mark", kError, kHello, {"\xef\xbb\xbf#!/bin/sh\n"}, PutScript},
    {"script-mark", kWarning, kHello, {"\xef\xbb\xbf#!/bin/sh\n"}, PutText},
    {"script-mark", kSilent, "", {"\xef\xbb\xbf# text", "#!/bin/sh\n\xef\xbb\xbf"}, PutScript},
    {"script-first-line",
     kError,
     kHello,
     {"#!/bin/sh\r\ntrue\r\n", "#!/usr/bin/python3\r\n", "#!/bin/sh -e\r"},
     PutScript},
    {"script-first-line", kWarning, kHello, {"#!/bin/sh\r\ntrue\r\n"}, PutText},
    {"script-first-line", kError, kInFolder, {"#!/bin/bash\r\n"}, PutInFolder},
    {"script-first-line", kSilent, "", {"#!/usr/bin/python3\r\n"}, PutText},
    {"script-first-line", kSilent, "", {"text\r\n", "#!/bin/sh\n", "#\r\n"}, PutScript},
    {"script-carriage", kWarning, kHello, {"#!/bin/sh\ntrue\r\n"}, PutScript},
    {"script-carriage",
     kSilent,
     "",
     {"#!/bin/sh\nprintf '\r'\n", "#!/usr/bin/python3\npass\r\n", "text\n\r\n"},
     PutScript},

    {"script-missing",
     kError,
     kScript,
     {"#!/bin/bash", "#!/bin/python3.9", "#!/usr/bin/env perl", "#!/usr/bin/env -S perl -w"},
     WithPython(kStep)},
    {"script-missing", kWarning, kScript, {"#!/bin/bash"}, Skippable(WithPython(kStep))},
    {"script-missing", kError, kStartup, {"#!/bin/bash"}, WithPython(kStart)},
    {"script-missing",
     kError,
     kHello,
     {"#!/usr/bin/perl\n", "#! /bin/bash -e\n"},
     WithPython(PutScript)},
    {"script-missing", kError, kInFolder, {"#!/usr/bin/perl\n"}, WithPython(PutInFolder)},
    {"script-missing",
     kSilent,
     "",
     {"#!/bin/sh", "#!/usr/bin/python3 -u", "#!/bin/python3", "#!/usr/bin/env python3",
      "#!/usr/bin/env A=1 perl", "#!/opt/hello"},
     WithPython(kStep)},
    {"script-missing", kSilent, "", {"#!/usr/bin/perl\n"}, WithPython(PutText)},
    {"script-missing", kSilent, "", {"#!/opt/hello\n"}, WithPython(PutInFolder)},
    {"script-missing", kSilent, "", {"#!/bin/bash"}, kStep},
    {"script-missing", kSilent, "", {"#!/usr/bin/perl\n"}, PutScript},

    {"script-syntax", kWarning, kScript, {"#!/bin/sh\\nwrong", "#!/bin/bash\\nwrong"}, kStep},
    {"script-syntax", kWarning, kStartup, {"#!/bin/sh\\nwrong"}, kStart},
    {"script-syntax", kWarning, kHello, {"#!/bin/sh\nwrong", "#!/bin/dash\n\nwrong"}, PutScript},
    {"script-syntax", kError, kHello, {"#!/bin/sh\nwrong"}, WithShell("dash", PutScript)},
    {"script-syntax", kError, kScript, {"#!/bin/sh\\nwrong"}, WithShell("bash", kStep)},
    {"script-syntax", kWarning, kScript, {"#!/bin/sh\\nwrong"}, WithShell("busybox", kStep)},
    {"script-syntax", kWarning, kHello, {"#!/bin/bash\nwrong"}, WithShell("dash", PutScript)},
    {"script-syntax",
     kWarning,
     kHello,
     {"#!/bin/sh\n exit\nwrong", "#!/bin/sh\nwrong\nexit"},
     PutScript},
    {"script-syntax",
     kSilent,
     "",
     {"#!/bin/sh\ntrue", "#!/bin/sh\nexit 0\nwrong", "#!/bin/sh\nexec a\n\nwrong",
      "#!/usr/bin/perl\nwrong", "#!/bin/bash\nshopt -s extglob\nwrong", "wrong",
      "#!/bin/ash\nwrong"},
     PutScript},
};

} // namespace of_payload

const std::vector<RuleRow>& PayloadRows()
{
    return of_payload::kRows;
}

} // namespace kx::checks
