// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The least that an installation can cost: an empty application object made as the updater makes
// its own, and the commands of a file, one after the other. With the names of parts it also does
// these, which the updater does around each file that it copies out of a folder.
//
//   bench_floor COMMANDS [PART...]     a file of commands, each ended by a zero byte
//
//   format    puts the command together
//   look      asks whether the source is a folder
//   record    keeps the target's path
//   nothing   takes the command apart, as all of them must
#include "app/ConsoleApplication.h"
#include "osa/OSA.h"
#include "osa/PathList.h"

#include <QApplication>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace
{

struct Parts {
    bool format = false;
    bool look = false;
    bool record = false;
};

struct Copy {
    std::string source;
    std::string target;
};

/// Takes `cp -f "SOURCE" "TARGET" ` apart.
/// @return empty texts for another command
Copy CopyOf(const std::string& command)
{
    std::vector<std::string> words;
    std::string::size_type from = 0;
    for (auto to = command.find('"'); to != std::string::npos; to = command.find('"', from)) {
        words.push_back(command.substr(from, to - from));
        from = to + 1;
    }
    return words.size() == 4 && words[0] == "cp -f " ? Copy{words[1], words[3]} : Copy{};
}

/// Runs a command, with the parts of it that are wanted.
void Run(const std::string& command, Copy copy, const Parts& parts, PathList& record)
{
    if (copy.source.empty()) {
        static_cast<void>(OSA_Shell("%s", command.c_str()));
        return;
    }
    if (parts.look && OSA_IsDir(copy.source.c_str())) {
        std::abort();
    }
    if (parts.format) {
        static_cast<void>(
            OSA_Shell(R"(cp -f "%s" "%s" )", copy.source.c_str(), copy.target.c_str()));
    } else {
        static_cast<void>(std::system(command.c_str()));
        static_cast<void>(OSA_stdfflash());
    }
    if (parts.record) {
        record.AppendOnce(std::move(copy.target));
    }
}

} // namespace

int main(int argc, char** argv)
{
    // The commands may be dangerous anywhere but on the sandboxed device.
    if (argc < 2 || access("/.kx-device", F_OK) != 0) {
        std::fputs("usage, on the sandboxed device only: bench_floor COMMANDS [PART...]\n", stderr);
        return 2;
    }
    const std::string path = argv[1];
    const std::vector<std::string> names(argv + 2, argv + argc);
    const auto isWanted = [&names](const char* name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    const Parts parts{isWanted("format"), isWanted("look"), isWanted("record")};
    const auto app = MakeConsoleApplication(argc, argv);
    std::ifstream commands(path, std::ios::binary);
    PathList record;
    for (std::string command; std::getline(commands, command, '\0');) {
        if (names.empty()) {
            static_cast<void>(std::system(command.c_str()));
            std::fflush(stdout);
            std::fflush(stderr);
        } else {
            Run(command, CopyOf(command), parts, record);
        }
    }
    return 0;
}
