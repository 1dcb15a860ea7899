// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/Processor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kx::format
{

/// How many bytes of a program are looked at; what is behind is not known.
constexpr std::uint64_t kLargestProgram = std::uint64_t{64} << 20;

/// What an ELF file tells about itself.
struct Program {
    enum class Kind {
        kStarted, ///< a program that something starts
        kLibrary, ///< a shared library, or a part that a program loads
        kOther,   ///< a piece of a program, a kernel module, firmware
    };

    ProgramHead head;
    Kind kind = Kind::kOther;
    FloatAbi floatAbi = FloatAbi::kUnknown;
    std::string loader; ///< full path of what loads it and its libraries; empty when it needs none
    std::string name;   ///< by which programs ask for a library; empty when it has none
    std::vector<std::string> libraries; ///< names of those that it needs
    std::vector<std::string> folders;   ///< of its own in which libraries are looked for first
    std::string cLibrary; ///< version of the GNU C library that it needs at least: "2.34", or empty
};

/// Takes the bytes of an ELF file apart. Whatever they are, nothing is read but them.
/// @param bytes  all of it, or its first kLargestProgram
/// @return nothing when they are no ELF file, or one whose head is damaged
[[nodiscard]] std::optional<Program> ReadProgram(std::string bytes);

/// Tells whether a version is older than another: "2.9" than "2.31".
[[nodiscard]] bool IsOlder(const std::string& version, const std::string& other);

} // namespace kx::format
