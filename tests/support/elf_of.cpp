// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Writes an ELF file to standard output: a program for armhf that needs the C library, but for what
// is said. Nothing in it can be started.
//
//   --flags NUMBER   of its header; 0x5000200 is soft-float
//   --library NAME   a shared library of that name
//   --loader PATH, --needed LIBRARY, --version GLIBC_2.34, --rest TEXT
#include "support/ElfOf.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    ElfOf program = ArmProgram();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        const std::string value = argv[i + 1];
        if (option == "--flags") {
            program.flags = static_cast<unsigned>(std::stoul(value, nullptr, 0));
        } else if (option == "--loader") {
            program.loader = value;
        } else if (option == "--library") {
            program.loader.clear();
            program.name = value;
        } else if (option == "--needed") {
            program.needed.push_back(value);
        } else if (option == "--version") {
            program.version.push_back(value);
        } else if (option == "--rest") {
            program.rest += value;
        } else {
            std::fprintf(stderr, "elf_of: unknown option %s\n", argv[i]);
            return 2;
        }
    }
    const std::string bytes = program.Bytes();
    return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() ? 0 : 1;
}
