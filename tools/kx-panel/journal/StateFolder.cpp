// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "journal/StateFolder.h"

#include "io/Error.h"
#include "io/Transfer.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

constexpr mode_t kFolderMode = S_IRWXU;
constexpr mode_t kFileMode = S_IRUSR | S_IWUSR;

struct CloseListing {
    void operator()(DIR* listing) const { static_cast<void>(closedir(listing)); }
};

/// Lists what is in an open folder.
/// @return 0, or an errno
int ListInto(const io::Descriptor& folder, std::vector<std::string>& names)
{
    // Opened anew, as a listing owns its descriptor and has a place of its own.
    io::Descriptor again(openat(folder.Number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, CloseListing> listing(again.IsOpen() ? fdopendir(again.Number())
                                                                    : nullptr);
    if (listing == nullptr) {
        return errno;
    }
    static_cast<void>(again.Release());
    errno = 0;
    for (const dirent* entry = readdir(listing.get()); entry != nullptr;
         entry = readdir(listing.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    return errno;
}

io::Descriptor OpenFolderIn(int folder, const std::string& name)
{
    return io::Descriptor(
        openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Makes the error of something that was to be opened: a link or a thing of another kind shows as
/// ELOOP, ENOTDIR, or ENXIO.
io::Error OpenError(const std::string& shown, const char* kind, int number)
{
    if (number == ELOOP || number == ENOTDIR || number == ENXIO || number == EISDIR) {
        return {io::ExitCode::kProblems, shown, std::string("is not a ") + kind, "remove it"};
    }
    return io::AccessError(shown, "open", number);
}

/// Opens without waiting: a pipe that somebody put there must not hold anything up.
io::Descriptor OpenToRead(const io::Descriptor& folder, const std::string& name)
{
    return io::Descriptor(openat(folder.Number(), name.c_str(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

/// Refuses what could not be opened (see errno), or is no regular file.
void RefuseOtherThanFile(const io::Descriptor& file, const std::string& shown)
{
    if (!file.IsOpen()) {
        throw OpenError(shown, "file", errno);
    }
    struct stat info {
    };
    if (fstat(file.Number(), &info) != 0) {
        throw io::AccessError(shown, "look at", errno);
    }
    if (!S_ISREG(info.st_mode)) {
        throw OpenError(shown, "file", ELOOP);
    }
}

/// Removes a folder with all that is below it. What is in a folder that is not empty is moved up
/// into the place of that folder's own sisters, so that depth needs no descriptors.
class Remover
{
public:
    Remover(int folder, std::string name) : m_above(folder), m_name(std::move(name)) {}

    /// @return 0, or an errno
    int Run()
    {
        m_top = OpenFolderIn(m_above, m_name);
        if (!m_top.IsOpen()) {
            return errno;
        }
        for (int error = 0;;) {
            std::vector<std::string> names;
            error = ListInto(m_top, names);
            if (error != 0 || names.empty()) {
                return error != 0 ? error : RemoveFolder(m_above, m_name);
            }
            for (const std::string& name : names) {
                error = RemoveOrEmpty(name);
                if (error != 0) {
                    return error;
                }
            }
        }
    }

private:
    static int RemoveFolder(int above, const std::string& name)
    {
        return unlinkat(above, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
    }

    /// Removes what has a name in the folder; of a folder that is not empty, what is in it, with
    /// its own folders moved up.
    int RemoveOrEmpty(const std::string& name)
    {
        if (unlinkat(m_top.Number(), name.c_str(), 0) == 0) {
            return 0;
        }
        if (errno != EISDIR && errno != EPERM) {
            return errno;
        }
        if (RemoveFolder(m_top.Number(), name) == 0) {
            return 0;
        }
        const io::Descriptor folder = OpenFolderIn(m_top.Number(), name);
        std::vector<std::string> names;
        int error = folder.IsOpen() ? ListInto(folder, names) : errno;
        for (std::size_t i = 0; i < names.size() && error == 0; ++i) {
            error = RemoveOrMoveUp(folder.Number(), names[i]);
        }
        return error != 0 ? error : RemoveFolder(m_top.Number(), name);
    }

    int RemoveOrMoveUp(int folder, const std::string& name)
    {
        if (unlinkat(folder, name.c_str(), 0) == 0 || RemoveFolder(folder, name) == 0) {
            return 0;
        }
        for (;;) {
            const std::string free = ".removed-" + std::to_string(m_moved++);
            struct stat info {
            };
            if (fstatat(m_top.Number(), free.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
                continue;
            }
            return renameat(folder, name.c_str(), m_top.Number(), free.c_str()) == 0 ? 0 : errno;
        }
    }

    int m_above;
    std::string m_name;
    io::Descriptor m_top;
    std::uint64_t m_moved = 0;
};

} // namespace

StateFolder::StateFolder(io::Descriptor folder, std::string shown)
    : m_folder(std::move(folder)), m_shown(std::move(shown))
{
}

std::vector<std::string> StateFolder::Names() const
{
    std::vector<std::string> names;
    if (const int error = ListInto(m_folder, names); error != 0) {
        throw io::AccessError(m_shown, "list", error);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> StateFolder::Read(const std::string& name, std::uint64_t limit) const
{
    const io::Descriptor file = OpenToRead(m_folder, name);
    if (!file.IsOpen() && errno == ENOENT) {
        return {};
    }
    RefuseOtherThanFile(file, Shown(name));
    return io::ReadAll(file.Number(), limit, Shown(name));
}

io::Descriptor StateFolder::Open(const std::string& name) const
{
    io::Descriptor file = OpenToRead(m_folder, name);
    RefuseOtherThanFile(file, Shown(name));
    return file;
}

std::optional<StateFolder> StateFolder::Find(const std::string& name) const
{
    io::Descriptor folder = OpenFolderIn(m_folder.Number(), name);
    if (!folder.IsOpen() && errno == ENOENT) {
        return {};
    }
    if (!folder.IsOpen()) {
        throw OpenError(Shown(name), "folder", errno);
    }
    return StateFolder(std::move(folder), Shown(name));
}

StateFolder StateFolder::FindOrMake(const std::string& name) const
{
    if (mkdirat(m_folder.Number(), name.c_str(), kFolderMode) != 0 && errno != EEXIST) {
        throw io::AccessError(Shown(name), "make a folder", errno);
    }
    std::optional<StateFolder> folder = Find(name);
    if (!folder.has_value()) {
        throw io::AccessError(Shown(name), "open", ENOENT);
    }
    return std::move(*folder);
}

io::Descriptor StateFolder::Create(const std::string& name) const
{
    io::Descriptor file(openat(m_folder.Number(), name.c_str(),
                               O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
    if (!file.IsOpen()) {
        throw io::AccessError(Shown(name), "write", errno);
    }
    return file;
}

io::Descriptor StateFolder::OpenOrCreate(const std::string& name) const
{
    io::Descriptor file(openat(m_folder.Number(), name.c_str(),
                               O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                               kFileMode));
    RefuseOtherThanFile(file, Shown(name));
    return file;
}

void StateFolder::Replace(const std::string& name, std::string_view bytes) const
{
    const std::string fresh = "." + name + ".new";
    Remove(fresh); // of a start that was cut short
    const io::Descriptor file = Create(fresh);
    try {
        io::WriteAll(file.Number(), bytes, Shown(name));
        if (fsync(file.Number()) != 0 ||
            renameat(m_folder.Number(), fresh.c_str(), m_folder.Number(), name.c_str()) != 0) {
            throw io::AccessError(Shown(name), "write", errno);
        }
    } catch (const io::Error&) {
        static_cast<void>(unlinkat(m_folder.Number(), fresh.c_str(), 0)); // the error says enough
        throw;
    }
    Sync();
}

void StateFolder::Remove(const std::string& name) const
{
    if (unlinkat(m_folder.Number(), name.c_str(), 0) == 0 || errno == ENOENT) {
        return;
    }
    int error = errno;
    if (error == EISDIR || error == EPERM) {
        error = Remover(m_folder.Number(), name).Run();
    }
    if (error != 0 && error != ENOENT) {
        throw io::AccessError(Shown(name), "remove", error);
    }
}

void StateFolder::Sync() const
{
    // What was written is in its place already, so a refusal is no failure.
    static_cast<void>(fsync(m_folder.Number()));
}

} // namespace kx::guard
