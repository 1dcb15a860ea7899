// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Times the reader against the JSON library alone on the same package description.
//
//   bench_reader FILE ROUNDS
//
// Each round parses the file's text from memory and reads the file, each in a process of its own,
// and prints "parse SECONDS" and "read SECONDS" of cpu time.
#include "engine/ILogger.h"
#include "engine/q_UpdaterEngine.h"
#include "model/UserPackageProjectReader.h"

#include <picojson.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

class StderrLogger final : public ILogger
{
public:
    [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override
    {
        va_list args;
        va_start(args, format);
        std::vfprintf(stderr, format, args);
        va_end(args);
        std::fputc('\n', stderr);
    }
    void OutMsg(const char* text) override { std::fputs(text, stderr); }
};

double CpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    constexpr double kMicro = 1e-6;
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           kMicro * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

/// Runs @p work in a child process and prints the cpu time it took.
template <class Work>
void Time(const char* name, const Work& work)
{
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const double start = CpuSeconds();
        const bool isDone = work();
        std::printf("%s %.6f\n", name, CpuSeconds() - start);
        std::fflush(stdout);
        _exit(isDone ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
        std::fprintf(stderr, "bench_reader: %s failed\n", name);
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("usage: bench_reader FILE ROUNDS\n", stderr);
        return 2;
    }
    StderrLogger logger;
    q_UpdaterEngine::InitSystem(&logger);
    std::ifstream file(argv[1], std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.size() <= 3) {
        std::fprintf(stderr, "bench_reader: cannot read %s\n", argv[1]);
        return 1;
    }
    const auto parse = [text = bytes.c_str() + 3, end = bytes.c_str() + bytes.size()] {
        std::string error;
        {
            picojson::value root;
            picojson::parse(root, text, end, &error);
        }
        return error.empty();
    };
    const auto read = [path = argv[1]] {
        return UserPackageProjectReader::Imp_Read(path) != nullptr;
    };
    for (int round = std::atoi(argv[2]); round > 0; --round) {
        Time("parse", parse);
        Time("read", read);
    }
    return 0;
}
