// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The least that an installation can cost: an empty application object made as the updater makes
// its own, and the commands of a file, one after the other.
//
//   bench_floor COMMANDS     a file of commands, each ended by a zero byte
#include "app/ConsoleApplication.h"

#include <QApplication>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <unistd.h>

int main(int argc, char** argv)
{
    // The commands may be dangerous anywhere but on the sandboxed device.
    if (argc != 2 || access("/.kx-device", F_OK) != 0) {
        std::fputs("usage, on the sandboxed device only: bench_floor COMMANDS\n", stderr);
        return 2;
    }
    const std::string path = argv[1];
    const auto app = MakeConsoleApplication(argc, argv);
    std::ifstream commands(path, std::ios::binary);
    for (std::string command; std::getline(commands, command, '\0');) {
        static_cast<void>(std::system(command.c_str()));
        std::fflush(stdout);
        std::fflush(stderr);
    }
    return 0;
}
