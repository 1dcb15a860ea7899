// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What an ELF file of the tests tells about itself. Nothing in it can be started.
struct ElfOf {
    unsigned machine = 40; ///< an arm
    bool is64Bit = false;
    unsigned type = 3;                ///< 2: at a fixed place, 3: anywhere
    unsigned flags = 0x5000400;       ///< an arm program, hard-float
    std::string loader;               ///< none when empty
    std::string name;                 ///< as a library, none when empty
    std::vector<std::string> needed;  ///< libraries
    std::string folders;              ///< in which they are looked for first
    std::vector<std::string> version; ///< of libc.so.6: "GLIBC_2.34"
    std::string attributes;           ///< of an arm program, all of the section
    bool hasStack = true;             ///< as programs for Linux have
    std::string rest;                 ///< further bytes

    /// The bytes of the file.
    [[nodiscard]] std::string Bytes() const;
};

/// A program for armhf that needs the C library.
[[nodiscard]] ElfOf ArmProgram();
