// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "format/Processor.h"

#include <string>

/// Returns the first bytes of a program for the processor: all that the tool looks at. Nothing
/// could start it.
inline std::string ProgramFor(const kx::format::Processor& processor)
{
    std::string program = "\x7f"
                          "ELF";
    program += static_cast<char>(processor.is64Bit ? 2 : 1);
    program += "\x01\x01"; // little-endian, version 1
    program.resize(16, '\0');
    program += std::string("\x03\x00", 2); // a shared object, as programs are today
    program += static_cast<char>(processor.machine & 0xffU);
    program += static_cast<char>(processor.machine >> 8);
    return program + std::string(44, '\0');
}
