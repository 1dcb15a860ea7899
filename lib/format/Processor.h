// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::format
{

/// A kind of processor that programs are made for.
struct Processor {
    const char* name;                 ///< "aarch64"
    unsigned machine;                 ///< e_machine in the head of a program
    bool is64Bit;                     ///< class in the head of a program
    std::vector<std::string> aliases; ///< other words for it, those of `uname -m` among them
};

/// All processors that are known.
[[nodiscard]] const std::vector<Processor>& Processors();

/// Returns their names.
[[nodiscard]] std::vector<std::string> ProcessorNames();

/// Finds a processor by its name or another word for it; null when there is none.
[[nodiscard]] const Processor* FindProcessor(std::string_view word);

/// Tells whether programs for a processor of 32 bits, named first, also run on one of 64 bits,
/// where the system has their libraries.
[[nodiscard]] bool IsSmallerBrother(std::string_view name, const Processor& processor);

/// Returns this machine's processor, or null when it is none of them.
[[nodiscard]] const Processor* NativeProcessor();

/// How programs for arm hand over numbers with a fraction: those of the one kind do not run with
/// the libraries of the other.
enum class FloatAbi {
    kUnknown, ///< not told, or another processor
    kHard,    ///< in registers of their own: Debian's armhf
    kSoft,    ///< in the usual registers: Debian's armel
};

/// Returns what a word for a processor says about that: "armhf" and "armel" do.
[[nodiscard]] FloatAbi FloatAbiOfWord(std::string_view word);

/// Returns "hard-float" or "soft-float"; empty when it is not known.
[[nodiscard]] const char* FloatAbiName(FloatAbi abi);

/// What the head of a program tells.
struct ProgramHead {
    unsigned machine = 0;
    bool is64Bit = false;
    bool isBigEndian = false;

    /// Tells whether the processor can run the program.
    [[nodiscard]] bool IsFor(const Processor& processor) const;

    /// Returns the name of the processor that the program is for, "another processor" when it is
    /// none of the known ones.
    [[nodiscard]] std::string ProcessorName() const;
};

/// How many bytes ReadProgramHead needs.
constexpr std::size_t kProgramHeadSize = 20;

/// Reads the first bytes of a program; nothing when they are none of an ELF program.
[[nodiscard]] std::optional<ProgramHead> ReadProgramHead(std::string_view bytes);

} // namespace kx::format
