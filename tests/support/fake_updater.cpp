// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Stands in for the console installer: a child that prints and ends as it is told.
//
// The instructions are the lines of the file "script" in the folder that follows the argument
// -unzipedDir, or else the arguments themselves:
//
//   out TEXT, err TEXT   writes TEXT in one piece; \n and \xHH stand for bytes
//   flood BYTES          writes that many 'x' to standard output
//   endless              writes 'x' for ever, without a line break
//   args                 writes each argument on a line of its own
//   close                closes standard output and standard error
//   wait FIFO            waits until somebody opens the FIFO for writing and closes it
//   keep FIFO            opens the FIFO for reading until its own end
//   hold FIFO            leaves a child of its own that keeps the pipes open and does the waiting
//   kill SIGNAL          sends itself a signal
//   forever              never ends
//   exit CODE            ends; without it the end of the script ends with 0
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr unsigned kLongestLifeSeconds = 120; // nothing outlives a test that failed

std::string Unescaped(const std::string& text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            bytes += text[i];
        } else if (text[i + 1] == 'n') {
            bytes += '\n';
            i += 1;
        } else {
            bytes += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
            i += 3;
        }
    }
    return bytes;
}

void Write(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count <= 0) {
            std::exit(99);
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void WaitFor(const std::string& fifo)
{
    const int fd = open(fifo.c_str(), O_RDONLY); // NOLINT(cppcoreguidelines-pro-type-vararg)
    char byte = 0;
    while (read(fd, &byte, 1) > 0) {
    }
    close(fd);
}

void Hold(const std::string& fifo)
{
    if (fork() == 0) {
        static_cast<void>(alarm(kLongestLifeSeconds));
        WaitFor(fifo);
        _exit(0);
    }
}

/// Executes an instruction that writes.
/// @return false when it is no such instruction
bool ExecuteOutput(const std::string& verb, const std::string& rest,
                   const std::vector<std::string>& arguments)
{
    if (verb == "out" || verb == "err") {
        Write(verb == "out" ? STDOUT_FILENO : STDERR_FILENO, Unescaped(rest));
    } else if (verb == "flood") {
        Write(STDOUT_FILENO, std::string(std::stoul(rest), 'x'));
    } else if (verb == "endless") {
        while (true) {
            Write(STDOUT_FILENO, std::string(1000, 'x'));
        }
    } else if (verb == "args") {
        for (const std::string& argument : arguments) {
            Write(STDOUT_FILENO, argument + "\n");
        }
    } else {
        return false;
    }
    return true;
}

void Execute(const std::string& verb, const std::string& rest)
{
    if (verb == "close") {
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
    } else if (verb == "wait") {
        WaitFor(rest);
    } else if (verb == "keep") {
        static_cast<void>(open(rest.c_str(), O_RDONLY | O_NONBLOCK));
    } else if (verb == "hold") {
        Hold(rest);
    } else if (verb == "kill") {
        static_cast<void>(std::raise(std::stoi(rest)));
    } else if (verb == "forever") {
        while (true) {
            pause();
        }
    } else if (verb == "exit") {
        std::exit(std::stoi(rest));
    } else {
        std::fprintf(stderr, "fake_updater: no instruction '%s'\n", verb.c_str());
        std::exit(98);
    }
}

std::vector<std::string> Script(const std::vector<std::string>& arguments)
{
    if (arguments.size() != 2 || arguments[0] != "-unzipedDir") {
        return arguments;
    }
    std::vector<std::string> lines;
    std::ifstream file(arguments[1] + "/script");
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace

int main(int argc, char** argv)
{
    static_cast<void>(alarm(kLongestLifeSeconds));
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    for (const std::string& line : Script(arguments)) {
        const auto blank = line.find(' ');
        const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
        const std::string verb = line.substr(0, blank);
        if (!ExecuteOutput(verb, rest, arguments)) {
            Execute(verb, rest);
        }
    }
    return 0;
}
