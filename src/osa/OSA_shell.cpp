// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The shell commands of OSA.h, and what else waits or reads a stream there.
#include "engine/q_UpdaterEngine.h"
#include "osa/OSA.h"
#include "osa/OSA_System.h"
#include "osa/PathList.h"

#include <array>
#include <cstring>
#include <utility>

#include <sys/stat.h>

namespace
{

/// Returns the folder part of a target: up to and including its last '/', empty without one.
std::string FolderOf(const char* dst)
{
    const char* const slash = std::strrchr(dst, '/');
    return slash != nullptr ? std::string(dst, slash + 1) : std::string();
}

void CreateFolderOf(const char* dst, bool record)
{
    const std::string folder = FolderOf(dst);
    if (folder.empty() || folder == "/" || OSA_IsDir(folder.c_str())) {
        return;
    }
    // A failure shows in the copy that follows.
    static_cast<void>(OSA_mkdir(folder.c_str()));
    if (record) {
        q_UpdaterEngine::CopyFolderList->AppendOnce(folder);
    }
}

/// Formats a text of any length.
/// @return false when the C library cannot format it: it would be longer than an int can tell
[[gnu::format(printf, 2, 0)]] bool Format(std::string& text, const char* fmt, va_list args)
{
    // Room for nearly every command, so that it is formatted once.
    std::array<char, 512> usual{};
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(usual.data(), usual.size(), fmt, args);
    const std::size_t size = length > 0 ? static_cast<std::size_t>(length) : 0;
    if (size < usual.size()) {
        text.assign(usual.data(), size);
    } else {
        text.resize(size);
        static_cast<void>(std::vsnprintf(text.data(), size + 1, fmt, again));
    }
    va_end(again);
    return length >= 0;
}

} // namespace

std::string OSA_Format(const char* fmt, va_list args)
{
    std::string text;
    static_cast<void>(Format(text, fmt, args)); // what cannot be formatted is empty
    return text;
}

int OSA_Shell(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::string command;
    const bool isFormatted = Format(command, fmt, args);
    va_end(args);

    const int status = isFormatted ? OSA_SystemRun(command.c_str()) : -1;
    // A reader that is gone must not keep the installation from going on.
    static_cast<void>(OSA_stdfflash());
    return status;
}

int OSA_rmdir(const char* dir)
{
    return OSA_Shell(R"(rm -r "%s")", dir);
}

int OSA_mkdir(const char* dir)
{
    return OSA_Shell(R"(mkdir -p "%s")", dir);
}

int OSA_Unzip(const char* zip, const char* dir)
{
    return OSA_Shell(R"(unzip -o "%s" -d "%s" )", zip, dir);
}

int OSA_Attr(const char* path, const char* perm)
{
    const bool isGiven = perm != nullptr && *perm != '\0';
    return OSA_Shell(R"(chmod %s "%s" )", isGiven ? perm : "777", path);
}

int OSA_CopyDir(const char* src, const char* dst)
{
    return OSA_Shell(R"(cp -f -r "%s" "%s" )", src, dst);
}

int OSA_RunScript(const char* path)
{
    if (const int status = OSA_Shell(R"(chmod +x "%s")", path); status != 0) {
        return status;
    }
    return OSA_Shell(R"("%s")", path);
}

int OSA_CopyFile(const char* src, const char* dst, bool record, const char* perm)
{
    CreateFolderOf(dst, record);
    if (const int status = OSA_Shell(R"(cp -f "%s" "%s" )", src, dst); status != 0) {
        return status;
    }
    if (record) {
        std::string name(dst);
        if (!name.empty() && name.back() == '/') {
            name += OSA_GetFilenameExt(src);
        }
        q_UpdaterEngine::CopyFileList->AppendOnce(std::move(name));
    }
    return perm != nullptr ? OSA_Attr(dst, perm) : 0;
}

int OSA_stdfflash()
{
    // Only the second result is told.
    static_cast<void>(std::fflush(stdout));
    return std::fflush(stderr);
}

void OSA_Sleep(int ms)
{
    if (ms < 2) {
        OSA_SystemPause(100);
        return;
    }
    if (const int seconds = ms / 1000; seconds != 0) {
        OSA_SystemSleep(static_cast<unsigned>(seconds));
    }
    if (const int rest = ms % 1000; rest != 0) {
        OSA_SystemPause(static_cast<unsigned>(rest) * 1000);
    }
}

OSA_PipeInStream::OSA_PipeInStream(const char* path)
{
    // The FIFO type, execute permission for the owner, and a bit that no mode has. An existing
    // file is used as it is, so the result does not matter.
    constexpr mode_t kFifoMode = 0x101040;
    static_cast<void>(mkfifo(path, kFifoMode));
    stream = OSA_SystemOpen(path, "r");
}

OSA_PipeInStream::~OSA_PipeInStream()
{
    if (stream != nullptr) {
        static_cast<void>(std::fclose(stream));
    }
}

const char* OSA_PipeInStream::gets()
{
    constexpr int kPiece = 999;
    if (stream == nullptr || std::fgets(line.data(), kPiece, stream) == nullptr) {
        return nullptr;
    }
    line.back() = '\0';
    return line.data();
}
