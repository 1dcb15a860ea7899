// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/OpenFiles.h"

#include "io/Error.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

// Headers older than the call do not know its number, which is the same for all processors.
#ifndef SYS_close_range
constexpr long kCloseRange = 436;
#else
constexpr long kCloseRange = SYS_close_range;
#endif

/// Closes the descriptors from one to another.
/// @return false when the kernel lacks the call
bool CloseRange(unsigned from, unsigned to)
{
    return from > to || syscall(kCloseRange, from, to, 0U) == 0;
}

constexpr const char* kList = "/proc/self/fd";

std::vector<int> Listed()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(kList), closedir);
    if (folder == nullptr) {
        throw io::AccessError(kList, "list open files in", errno);
    }
    std::vector<int> numbers;
    errno = 0;
    while (const dirent* const entry = readdir(folder.get())) { // NOLINT(concurrency-mt-unsafe)
        char* end = nullptr;
        const long number = std::strtol(entry->d_name, &end, 10);
        if (end != entry->d_name && *end == '\0' && number != dirfd(folder.get())) {
            numbers.push_back(static_cast<int>(number));
        }
    }
    if (errno != 0) {
        throw io::AccessError(kList, "list open files in", errno);
    }
    return numbers;
}

} // namespace

void CloseAllBut(const std::set<int>& kept)
{
    unsigned from = 0;
    for (const int number : kept) {
        const auto next = static_cast<unsigned>(number);
        if (next > from && !CloseRange(from, next - 1)) {
            CloseListedBut(kept);
            return;
        }
        from = next + 1;
    }
    if (!CloseRange(from, std::numeric_limits<unsigned>::max())) {
        CloseListedBut(kept);
    }
}

void CloseListedBut(const std::set<int>& kept)
{
    for (const int number : Listed()) {
        if (kept.count(number) == 0) {
            close(number);
        }
    }
}

} // namespace kx::guard
