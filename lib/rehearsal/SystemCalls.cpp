// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What the updater's code asks of the system (osa/OSA_System.h), as this program answers it: on a
// stage from the stage's files. Anywhere else files are the machine's, to be read only, and no
// command is run.
#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Transfer.h"
#include "osa/OSA_System.h"
#include "rehearsal/Stage.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace io = kx::io;
using kx::rehearsal::Stage;
using kx::rehearsal::VirtualPanel;

namespace
{

/// Opens bytes as a file of the memory.
/// @return null after a failure, which the stage keeps
std::FILE* Opened(const std::string& bytes, Stage& stage)
{
    io::Descriptor memory(memfd_create("file", MFD_CLOEXEC));
    int error = memory.IsOpen() ? io::TryWriteAll(memory.Number(), bytes).error : errno;
    std::FILE* file = nullptr;
    if (error == 0 && lseek(memory.Number(), 0, SEEK_SET) == 0) {
        file = fdopen(memory.Number(), "rb");
    }
    if (file != nullptr) {
        static_cast<void>(memory.Release()); // the stream closes it
        return file;
    }
    error = error != 0 ? error : errno;
    try {
        throw io::AccessError("", "keep the description in memory", error);
    } catch (...) {
        stage.Keep();
    }
    return nullptr;
}

} // namespace

int OSA_SystemRun(const char* command)
{
    Stage* const stage = Stage::Current();
    return stage != nullptr ? stage->Run(command) : -1;
}

int OSA_SystemStat(const char* path, struct stat* info)
{
    Stage* const stage = Stage::Current();
    if (stage == nullptr) {
        return stat(path, info);
    }
    const VirtualPanel::Kind kind = stage->LookAt(path);
    if (*path == '\0' || kind == VirtualPanel::Kind::kNone) {
        errno = ENOENT;
        return -1;
    }
    *info = {};
    info->st_mode = kind == VirtualPanel::Kind::kFolder ? S_IFDIR | 0755U : S_IFREG | 0644U;
    info->st_size = static_cast<off_t>(stage->SizeOf(path));
    return 0;
}

std::FILE* OSA_SystemOpen(const char* path, const char* mode)
{
    Stage* const stage = Stage::Current();
    if (stage == nullptr) {
        // Only descriptions of records are read through the updater's code.
        return *mode == 'r' ? std::fopen(path, mode) : nullptr;
    }
    if (*mode == 'w') {
        return stage->MakeFile(path) ? std::fopen("/dev/null", "w") : nullptr;
    }
    const VirtualPanel::Bytes content = stage->ContentOf(path);
    if (content == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    return Opened(*content, *stage);
}

int OSA_SystemList(const char* dir, dirent*** entries)
{
    Stage* const stage = Stage::Current();
    if (stage == nullptr) {
        return scandir(dir, entries, nullptr, alphasort);
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

// Waiting changes nothing in a rehearsal.
void OSA_SystemSleep(unsigned /*seconds*/) {}

void OSA_SystemPause(unsigned /*microseconds*/) {}
