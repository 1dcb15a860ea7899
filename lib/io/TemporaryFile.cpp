// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/TemporaryFile.h"

#include "io/Error.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

/// Tells whether an error of open means that the file system knows no files without names.
bool IsUnknownToFileSystem(int number)
{
    return number == EOPNOTSUPP || number == EISDIR || number == EINVAL || number == ENOENT;
}

/// Tries names until one is free.
/// @param take  takes a path, gives it to a file and returns 0, or an errno
/// @return 0, or the errno of the last attempt
template <class Take>
int TakeFreeName(const std::string& folder, const std::string& stem, Take take)
{
    constexpr std::size_t kLongestStem = 200; // file systems end names at 255 bytes
    constexpr unsigned kMostAttempts = 1000;
    const std::string start =
        folder + "/." + stem.substr(0, kLongestStem) + "." + std::to_string(getpid()) + "-";
    int error = EEXIST;
    for (unsigned number = 0; error == EEXIST && number < kMostAttempts; ++number) {
        error = take(start + std::to_string(number));
    }
    return error;
}

} // namespace

NewFile MakeFileIn(const std::string& folder, const std::string& stem, mode_t mode)
{
    NewFile made;
    made.file = Descriptor(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    if (made.file.IsOpen()) {
        return made;
    }
    if (!IsUnknownToFileSystem(errno)) {
        made.error = errno;
        return made;
    }
    made.error = TakeFreeName(folder, stem, [&made, mode](std::string path) {
        made.file = Descriptor(open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, mode));
        if (!made.file.IsOpen()) {
            return errno;
        }
        made.path = std::move(path);
        return 0;
    });
    return made;
}

int NameFileIn(const std::string& folder, const std::string& stem, NewFile& file)
{
    if (!file.path.empty()) {
        return 0;
    }
    const std::string nameless = file.file.Path();
    return TakeFreeName(folder, stem, [&file, &nameless](std::string path) {
        if (linkat(AT_FDCWD, nameless.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0) {
            return errno;
        }
        file.path = std::move(path);
        return 0;
    });
}

NewFolder MakeFolderIn(const std::string& folder, const std::string& stem)
{
    constexpr mode_t kMode = 0777; // less the umask
    NewFolder made;
    made.error = TakeFreeName(folder, stem, [&made](std::string path) {
        if (mkdir(path.c_str(), kMode) != 0) {
            return errno;
        }
        made.path = std::move(path);
        return 0;
    });
    return made;
}

Descriptor MakeTemporaryFile()
{
    const char* const named = std::getenv("TMPDIR");
    const std::string folder = named != nullptr && *named != '\0' ? named : "/tmp";
    NewFile made = MakeFileIn(folder, "kx", S_IRUSR | S_IWUSR);
    if (!made.file.IsOpen()) {
        throw AccessError(folder, "make a temporary file", made.error);
    }
    if (!made.path.empty() && unlink(made.path.c_str()) != 0) {
        throw AccessError(made.path, "remove the name of a temporary file", errno);
    }
    return std::move(made.file);
}

} // namespace kx::io
