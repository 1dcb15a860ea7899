// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The updater in the package.
#include "checks/RuleRow.h"
#include "support/ElfOf.h"

namespace kx::checks
{

namespace of_updaters
{

using archive::Bytes;

constexpr const char* kUpdater = "kx_Updater";

void SetMode(Recipe& recipe, const std::string& mode)
{
    recipe.Part(kUpdater).mode = 0100000 | static_cast<unsigned>(std::stoul(mode, nullptr, 8));
}

void SetContent(Recipe& recipe, const std::string& content)
{
    recipe.Part(kUpdater).content = content;
}

/// Puts the updater where a link leads to.
void Link(Recipe& recipe, const std::string& target)
{
    recipe.Part(kUpdater).name = "1/0/a2";
    recipe.parts.push_back({kUpdater, target, 0120777});
}

/// Cuts the updater to a number of bytes.
void Cut(Recipe& recipe, const std::string& size)
{
    recipe.Part(kUpdater).content.resize(std::stoul(size));
}

/// Changes numbers of the program's head, which takes all of the file's 200 bytes for its only
/// segment: "place:size:number", with the place in bytes.
void Change(Recipe& recipe, const std::string& change)
{
    const std::size_t first = change.find(':');
    const std::size_t second = change.find(':', first + 1);
    const std::string bytes = Bytes(std::stoull(change.substr(second + 1), nullptr, 0),
                                    std::stoul(change.substr(first + 1)));
    recipe.Part(kUpdater).content.replace(std::stoul(change), bytes.size(), bytes);
}

/// Puts a program of 200 bytes in the updater's place, for a processor of 32 bits.
/// @param numbers  "offset:size in the file:size in memory" of the second of its two segments, the
///                 only one that is loaded
Put Small(bool isBigEndian)
{
    return [isBigEndian](Recipe& recipe, const std::string& numbers) {
        const auto number = [isBigEndian](std::size_t value, std::size_t count) {
            const std::string bytes = Bytes(value, count);
            return isBigEndian ? std::string(bytes.rbegin(), bytes.rend()) : bytes;
        };
        const std::size_t first = numbers.find(':');
        const std::size_t second = numbers.find(':', first + 1);
        std::string head = "\x7f"
                           "ELF\1";
        head += std::string(isBigEndian ? "\2\1" : "\1\1") + std::string(9, '\0') + number(2, 2) +
                number(40, 2) + number(1, 4) + number(0, 4) + number(52, 4) + number(0, 8) +
                number(52, 2) + number(32, 2) + number(2, 2);
        head.resize(52 + 32, '\0');
        head += number(1, 4) + number(std::stoul(numbers), 4) + number(0, 4) + number(0, 4) +
                number(std::stoul(numbers.substr(first + 1)), 4) +
                number(std::stoul(numbers.substr(second + 1)), 4);
        head += "UserPackage.kx-project";
        head.resize(200, '\0');
        recipe.Part(kUpdater).content = head;
    };
}

void ForPanel(Recipe& recipe, const std::string& processor)
{
    recipe.processor = processor;
}

/// Makes the program for a machine, "number:processor of the panel".
void ForMachine(Recipe& recipe, const std::string& value)
{
    recipe.Part(kUpdater).content = ProgramBytes(static_cast<unsigned>(std::stoul(value)));
    recipe.processor = value.substr(value.find(':') + 1);
}

/// An updater for an arm.
ElfOf AbiProgram(bool isHard, const std::string& loader)
{
    ElfOf elf = ArmProgram();
    elf.flags = isHard ? 0x5000400 : 0x5000200;
    elf.loader = loader;
    elf.rest = "UserPackage.kx-project";
    return elf;
}

/// Makes the updater of one kind, for a panel of another: "armel:armhf".
void ForAbi(Recipe& recipe, const std::string& value)
{
    const bool isHard = value.compare(0, 5, "armhf") == 0;
    recipe.Part(kUpdater).content =
        AbiProgram(isHard, isHard ? "/lib/ld-linux-armhf.so.3" : "/lib/ld-linux.so.3").Bytes();
    recipe.processor = value.substr(value.find(':') + 1);
}

/// Makes the updater a program that holds a text.
void Knowing(Recipe& recipe, const std::string& text)
{
    ElfOf elf = AbiProgram(true, "");
    elf.rest = text;
    recipe.Part(kUpdater).content = elf.Bytes();
}

const std::vector<RuleRow> kRows = {
    {"updater-missing", kError, "", [](Recipe& r) { r.parts.erase(r.parts.begin()); }},
    {"updater-missing",
     kError,
     "",
     {"kx_updater", "KX_UPDATER", "kx_Updater2", "bin/kx_Updater", "kx_Updater/a"},
     Renamed(kUpdater),
     kAmongOthers},
    {"updater-missing", kSilent, "", {"./kx_Updater"}, Renamed(kUpdater)},
    {"updater-missing", kSilent, "", {"kx_Updater;1"}, Renamed(kUpdater), kAmongOthers},

    {"updater-link", kWarning, kUpdater, {"1/0/a2", "./1/0/../0/a2"}, Link},
    {"updater-link",
     kError,
     kUpdater,
     {"/usr/bin/kx_Updater", "1/0/a3", "1/0", "../1/0/a2", kUpdater},
     Link},
    {"updater-link", kSilent, "",
     [](Recipe& r) {
         r.parts.push_back({"1/0/l", "a", 0120777});
     },
     kAmongOthers},
    {"updater-link", kSilent, "", [](Recipe& r) { r.Part(kUpdater).mode = 0100777; }},

    {"updater-mode",
     kError,
     kUpdater,
     {"0644", "0655", "0677", "0611", "0600", "0", "4655"},
     SetMode},
    {"updater-mode", kSilent, "", {"0100", "0500", "0700", "0744", "0755"}, SetMode},

    {"updater-program",
     kError,
     kUpdater,
     {"", "no program", "\177ELF", "\177ELG\2\1\1 and more than twenty bytes",
      "ELF and more than twenty bytes", "# !/bin/sh"},
     SetContent},
    {"updater-program", kError, kUpdater, {"19"}, Cut},
    {"updater-program", kSilent, "", {"200"}, Cut},
    {"updater-program", kSilent, "", {"20"}, Cut, kAmongOthers},
    {"updater-program", kSilent, "", {"#!"}, SetContent, kAmongOthers},

    {"updater-script",
     kWarning,
     kUpdater,
     {"#!", "#!/bin/sh\n", "#!/bin/sh\nas long as a program's head\n"},
     SetContent},
    {"updater-script", kError, kUpdater,
     [](Recipe& r) {
         r.Part(kUpdater).content = "#!/bin/sh\n";
         Link(r, "1/0/a2");
     },
     kAmongOthers},
    {"updater-script", kSilent, "", {"#", " #!/bin/sh", "!#"}, SetContent, kAmongOthers},

    {"updater-cut", kError, kUpdater, {"199", "121"}, Cut},
    // What is loaded of the file, its place in the file, what it becomes in memory; its kind.
    {"updater-cut",
     kError,
     kUpdater,
     {"96:8:201", "72:8:1", "72:8:0xffffffffffffffff", "96:8:0xffffffffffffffff"},
     Change},
    {"updater-cut", kSilent, "", {"96:8:200", "96:8:0", "104:8:100000", "104:8:0"}, Change},
    {"updater-cut", kSilent, "",
     [](Recipe& r) {
         Change(r, "64:4:4");
         Change(r, "96:8:100000");
     }},
    {"updater-cut",
     kError,
     kUpdater,
     {"176:8:201"},
     [](Recipe& r, const std::string& v) {
         Change(r, "32:8:144");
         Change(r, "144:4:1");
         Change(r, v);
     }},
    {"updater-cut",
     kSilent,
     "",
     {"176:8:200"},
     [](Recipe& r, const std::string& v) {
         Change(r, "32:8:144");
         Change(r, "144:4:1");
         Change(r, v);
     }},
    // The number of segments, their size, and where their table is.
    {"updater-cut", kError, kUpdater, {"56:2:3", "54:2:137", "32:8:145", "32:8:5000"}, Change},
    {"updater-cut", kSilent, "", {"56:2:2", "54:2:136", "32:8:144"}, Change},
    {"updater-cut", kError, kUpdater, {"0:201:201", "1:200:200"}, Small(false)},
    {"updater-cut", kError, kUpdater, {"0:201:201", "1:200:200"}, Small(true)},
    {"updater-cut", kSilent, "", {"0:200:100000", "1:199:0"}, Small(false)},
    {"updater-cut", kSilent, "", {"0:200:100000", "1:199:0"}, Small(true)},

    {"updater-processor",
     kError,
     kUpdater,
     {"arm", "aarch64", "i386", "riscv64", "armv7l", "arm64"},
     ForPanel},
    {"updater-processor",
     kError,
     kUpdater,
     {"183:x86_64", "40:arm", "3:i386", "0:x86_64", "62:aarch64"},
     ForMachine},
    {"updater-processor",
     kError,
     kUpdater,
     {"5:1:2"},
     [](Recipe& r, const std::string& v) {
         Change(r, v);
         r.processor = "x86_64";
     },
     kAmongOthers},
    {"updater-processor",
     kError,
     kUpdater,
     {"0:200:200"},
     [](Recipe& r, const std::string& v) {
         Small(true)(r, v);
         r.processor = "arm";
     }},
    {"updater-processor",
     kSilent,
     "",
     {"0:200:200"},
     [](Recipe& r, const std::string& v) {
         Small(false)(r, v);
         r.processor = "arm";
     }},
    {"updater-processor", kSilent, "", {"x86_64", "amd64", "x86-64", ""}, ForPanel},
    {"updater-processor", kSilent, "", {"183:aarch64", "243:riscv64", "62:x86_64"}, ForMachine},
    // Of an arm both kinds of programs have the same processor.
    {"updater-processor", kError, kUpdater, {"armel:armhf", "armhf:armel"}, ForAbi},
    {"updater-processor",
     kSilent,
     "",
     {"armel:armel", "armhf:armhf", "armel:arm", "armhf:armv7l", "armel:"},
     ForAbi},
    {"updater-processor", kSilent, "",
     [](Recipe& r) {
         ForAbi(r, "armel:armhf");
         ElfOf alone = AbiProgram(false, ""); // all libraries are in it
         alone.type = 2;
         r.Part(kUpdater).content = alone.Bytes();
     }},

    {"updater-other", kWarning, kUpdater, {"Userpackage.kx-project", "kx_Updater"}, Knowing},
    {"updater-other", kSilent, "", {"UserPackage.kx-project", "xUserPackage.kx-project2"}, Knowing},
};

} // namespace of_updaters

const std::vector<RuleRow>& UpdaterRows()
{
    return of_updaters::kRows;
}

} // namespace kx::checks
