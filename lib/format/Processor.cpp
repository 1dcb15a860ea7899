// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Processor.h"

#include <algorithm>

#include <elf.h>
#include <sys/utsname.h>

namespace kx::format
{

const std::vector<Processor>& Processors()
{
    static const std::vector<Processor> kProcessors = {
        {"aarch64", EM_AARCH64, true, {"arm64", "armv8", "armv8l"}},
        {"arm", EM_ARM, false, {"armhf", "armel", "armv5tel", "armv6l", "armv7", "armv7l"}},
        {"i386", EM_386, false, {"i486", "i586", "i686", "x86"}},
        {"riscv64", EM_RISCV, true, {}},
        {"x86_64", EM_X86_64, true, {"amd64", "x86-64"}},
    };
    return kProcessors;
}

std::vector<std::string> ProcessorNames()
{
    std::vector<std::string> names;
    for (const Processor& processor : Processors()) {
        names.emplace_back(processor.name);
    }
    return names;
}

const Processor* FindProcessor(std::string_view word)
{
    for (const Processor& processor : Processors()) {
        if (word == processor.name || std::find(processor.aliases.begin(), processor.aliases.end(),
                                                word) != processor.aliases.end()) {
            return &processor;
        }
    }
    return nullptr;
}

bool IsSmallerBrother(std::string_view name, const Processor& processor)
{
    const std::string_view larger = processor.name;
    return (larger == "x86_64" && name == "i386") || (larger == "aarch64" && name == "arm");
}

const Processor* NativeProcessor()
{
    utsname name{};
    return uname(&name) == 0 ? FindProcessor(name.machine) : nullptr;
}

FloatAbi FloatAbiOfWord(std::string_view word)
{
    return word == "armhf"   ? FloatAbi::kHard
           : word == "armel" ? FloatAbi::kSoft
                             : FloatAbi::kUnknown;
}

const char* FloatAbiName(FloatAbi abi)
{
    switch (abi) {
    case FloatAbi::kHard:
        return "hard-float";
    case FloatAbi::kSoft:
        return "soft-float";
    case FloatAbi::kUnknown:
        break;
    }
    return "";
}

bool ProgramHead::IsFor(const Processor& processor) const
{
    return machine == processor.machine && is64Bit == processor.is64Bit && !isBigEndian;
}

std::string ProgramHead::ProcessorName() const
{
    for (const Processor& processor : Processors()) {
        if (IsFor(processor)) {
            return processor.name;
        }
    }
    return "another processor";
}

std::optional<ProgramHead> ReadProgramHead(std::string_view bytes)
{
    if (bytes.size() < kProgramHeadSize || bytes.substr(0, SELFMAG) != ELFMAG) {
        return {};
    }
    const auto byte = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    ProgramHead head;
    head.is64Bit = byte(EI_CLASS) == ELFCLASS64;
    head.isBigEndian = byte(EI_DATA) == ELFDATA2MSB;
    constexpr std::size_t kMachine = 18; // behind the identification and the file's type
    const unsigned first = byte(kMachine);
    const unsigned second = byte(kMachine + 1);
    head.machine = head.isBigEndian ? first << 8 | second : second << 8 | first;
    return head;
}

} // namespace kx::format
