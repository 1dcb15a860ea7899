// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The system's functions as the updater's code calls them, replaced at link time: on a stage they
// work on its files; anywhere else a command is refused, and files are the machine's.
#include "io/Error.h"
#include "rehearsal/Stage.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace
{

using Filter = int (*)(const dirent*);
using Order = int (*)(const dirent**, const dirent**);

/// Opens bytes as a file of the memory.
std::FILE* Opened(const std::string& bytes, kx::rehearsal::Stage& stage)
{
    const int fd = memfd_create("file", MFD_CLOEXEC);
    std::FILE* const file = fd < 0 ? nullptr : fdopen(fd, "w+b");
    if (file == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() ||
        std::fflush(file) != 0) {
        try {
            throw kx::io::AccessError("", "keep the description in memory", errno);
        } catch (...) {
            stage.Keep();
        }
    }
    if (file != nullptr) {
        std::rewind(file);
    }
    return file;
}

} // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
int __wrap_system(const char* command);
int __real_stat64(const char* path, struct stat* info);
int __wrap_stat64(const char* path, struct stat* info);
std::FILE* __real_fopen64(const char* path, const char* mode);
std::FILE* __wrap_fopen64(const char* path, const char* mode);
int __real_scandir64(const char* dir, dirent*** entries, Filter filter, Order order);
int __wrap_scandir64(const char* dir, dirent*** entries, Filter filter, Order order);
// NOLINTEND(bugprone-reserved-identifier)
}

int __wrap_system(const char* command)
{
    kx::rehearsal::Stage* const stage = kx::rehearsal::Stage::Current();
    return stage != nullptr ? stage->Run(command) : -1;
}

int __wrap_stat64(const char* path, struct stat* info)
{
    kx::rehearsal::Stage* const stage = kx::rehearsal::Stage::Current();
    if (stage == nullptr) {
        return __real_stat64(path, info);
    }
    const kx::rehearsal::VirtualPanel::Kind kind = stage->LookAt(path);
    if (*path == '\0' || kind == kx::rehearsal::VirtualPanel::Kind::kNone) {
        errno = ENOENT;
        return -1;
    }
    *info = {};
    info->st_mode =
        kind == kx::rehearsal::VirtualPanel::Kind::kFolder ? S_IFDIR | 0755U : S_IFREG | 0644U;
    info->st_size = static_cast<off_t>(stage->SizeOf(path));
    return 0;
}

std::FILE* __wrap_fopen64(const char* path, const char* mode)
{
    kx::rehearsal::Stage* const stage = kx::rehearsal::Stage::Current();
    if (stage == nullptr) {
        return __real_fopen64(path, mode);
    }
    if (*mode == 'w') {
        return stage->MakeFile(path) ? __real_fopen64("/dev/null", "w") : nullptr;
    }
    const kx::rehearsal::VirtualPanel::Bytes content = stage->ContentOf(path);
    if (content == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    return Opened(*content, *stage);
}

int __wrap_scandir64(const char* dir, dirent*** entries, Filter filter, Order order)
{
    kx::rehearsal::Stage* const stage = kx::rehearsal::Stage::Current();
    if (stage == nullptr) {
        return __real_scandir64(dir, entries, filter, order);
    }
    const std::vector<std::string> names = stage->NamesIn(dir);
    *entries = static_cast<dirent**>(std::calloc(names.size() + 1, sizeof(void*)));
    int count = 0;
    for (const std::string& name : names) {
        auto* const entry = static_cast<dirent*>(std::calloc(1, sizeof(dirent)));
        name.copy(entry->d_name, sizeof(entry->d_name) - 1);
        (*entries)[count++] = entry;
    }
    return count;
}
