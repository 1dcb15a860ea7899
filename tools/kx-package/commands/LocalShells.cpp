// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/LocalShells.h"

#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Text.h"
#include "io/Transfer.h"
#include "trial/ChildProcess.h"

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kAllTogether(30);
constexpr std::chrono::seconds kEach(5);

/// Seconds of the processor, KiB of memory, no byte in a file; then the shell itself.
constexpr const char* kBounded = R"(ulimit -t 3 && ulimit -v 1048576 && ulimit -f 0 && exec "$@")";

} // namespace

LocalShells::LocalShells() : m_end(Clock::now() + kAllTogether) {}

const LocalShells::Shell& LocalShells::Find(const std::string& shell)
{
    const auto [place, isNew] = m_shells.try_emplace(shell);
    for (const char* const folder : {"/bin/", "/usr/bin/"}) {
        const std::string path = folder + shell;
        if (isNew && place->second.path.empty() && access(path.c_str(), X_OK) == 0) {
            std::error_code error;
            const std::string name = fs::canonical(path, error).filename().string();
            place->second = {path, error ? shell : name};
        }
    }
    return place->second;
}

bool LocalShells::Has(const std::string& shell)
{
    return !Find(shell).path.empty();
}

std::optional<checks::SyntaxMistake> LocalShells::Read(const std::string& shell,
                                                       const std::string& script)
{
    const Shell& found = Find(shell);
    const Clock::time_point end = std::min(m_end, Clock::now() + kEach);
    if (Clock::now() >= m_end) {
        return {};
    }
    // The child opens it by its name, so it is not closed for it.
    const io::Descriptor file(memfd_create("script", 0));
    if (!file.IsOpen()) {
        throw io::AccessError("", "keep a script for a shell", errno);
    }
    io::WriteAll(file.Number(), script, "a script for a shell");
    const std::string path = "/proc/self/fd/" + std::to_string(file.Number());
    std::vector<std::string> words = {"/usr/bin/env", "-i",     "LC_ALL=C", "/bin/sh",
                                      "-c",           kBounded, "sh",       found.path};
    if (found.name == "busybox") {
        words.emplace_back("sh");
    }
    words.insert(words.end(), {"-n", path});
    const ChildResult read =
        RunChild(words, [end] { return Clock::now() < end && !io::Interruption::IsAsked(); });
    if (read.status == 0 || read.isStopped) {
        return {};
    }
    for (const std::string& line : read.err.Lines()) {
        if (std::optional<checks::SyntaxMistake> mistake = MistakeIn(line, path, found.name)) {
            return mistake;
        }
    }
    return {};
}

std::optional<checks::SyntaxMistake> MistakeIn(const std::string& line, const std::string& path,
                                               const std::string& shell)
{
    constexpr std::string_view kWord = "line ";
    const std::string head = path + ": ";
    if (line.compare(0, head.size(), head) != 0) {
        return {};
    }
    std::string_view rest = std::string_view(line).substr(head.size());
    if (rest.substr(0, kWord.size()) == kWord) {
        rest.remove_prefix(kWord.size());
    }
    checks::SyntaxMistake mistake;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), mistake.line);
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    if (error != std::errc() || rest.substr(0, 2) != ": ") {
        return {};
    }
    mistake.shell = shell;
    mistake.what = io::Printable(rest.substr(2));
    return mistake;
}

} // namespace kx::tool
