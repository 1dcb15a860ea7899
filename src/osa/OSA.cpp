// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA.h"

#include "osa/OSA_System.h"
#include "osa/ResultCodes.h"

#include <climits>
#include <cstdlib>
#include <utility>

int OSA_errno = 0;

namespace
{

struct FileCloser {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

} // namespace

bool OSA_IsFileExist(const char* path)
{
    struct stat info {
    };
    return OSA_SystemStat(path, &info) == 0;
}

bool OSA_IsDir(const char* path)
{
    struct stat info {
    };
    return OSA_SystemStat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

int OSA_FileSize(const char* path)
{
    struct stat info {
    };
    if (OSA_SystemStat(path, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > INT_MAX) {
        return -1;
    }
    return static_cast<int>(info.st_size);
}

int OSA_ReadTextFile(const char* path, SefetyTextBuffer& buf)
{
    const int size = OSA_FileSize(path);
    if (size < 0) {
        return kReadError;
    }
    const auto length = static_cast<std::size_t>(size);
    buf.size = static_cast<std::uint32_t>(length + 1);
    buf.data = static_cast<char*>(std::malloc(length + 1));

    const File file(OSA_SystemOpen(path, "rb"));
    if (file == nullptr || buf.data == nullptr) {
        return kReadError;
    }
    if (std::fread(buf.data, 1, length, file.get()) != length) {
        return kReadError;
    }
    buf.data[length] = '\0';
    return 0;
}

int OSA_WriteStringToFile(std::string& text, const char* path)
{
    const File file(OSA_SystemOpen(path, "w"));
    if (file == nullptr) {
        return kWriteError;
    }
    if (text.empty()) {
        return 0;
    }
    // Unbuffered, so that a full disk shows in this write and not behind its back in fclose.
    static_cast<void>(std::setvbuf(file.get(), nullptr, _IONBF, 0));
    return std::fwrite(text.data(), text.size(), 1, file.get()) == 1 ? 0 : kWriteError;
}

// The arguments are copies by contract: callers may pass temporaries and keep nothing.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string ReplaceStringAll(std::string str, std::string from, std::string to)
{
    // An empty text is found before every character and at the end, once each.
    const std::string::size_type leastStep = from.empty() ? 1 : 0;
    std::string result;
    std::string::size_type start = 0;
    auto found = str.find(from);
    while (found != std::string::npos) {
        result.append(str, start, found - start).append(to);
        start = found + from.size();
        found = str.find(from, start + leastStep);
    }
    return result.append(str, start);
}

std::string Replace_CRLF_to_LF(std::string str)
{
    static const std::string crlf("\r\n");
    static const std::string lf("\n");
    return ReplaceStringAll(std::move(str), crlf, lf);
}
