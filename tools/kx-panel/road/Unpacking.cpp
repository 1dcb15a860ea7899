// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/Unpacking.h"

#include "io/Error.h"
#include "io/Path.h"
#include "io/Transfer.h"

#include <array>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

constexpr mode_t kMadeFolderMode = S_IRWXU; // until all is in it
constexpr mode_t kMadeFileMode = S_IRUSR | S_IWUSR;

/// Opens a folder, name by name, following nothing.
io::Descriptor OpenBelow(const io::Descriptor& root, const std::string& path)
{
    io::Descriptor at(fcntl(root.Number(), F_DUPFD_CLOEXEC, 0));
    for (std::size_t begin = 0; begin < path.size() && at.IsOpen();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string part = path.substr(begin, end - begin);
        at = io::Descriptor(
            openat(at.Number(), part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        begin = end + 1;
    }
    return at;
}

std::string ParentOf(const std::string& name)
{
    const std::size_t slash = name.rfind('/');
    return slash == std::string::npos ? "" : name.substr(0, slash);
}

/// Gives an open file or folder its mode and the moment of its last change.
/// @return 0, or an errno
int Furnish(const io::Descriptor& file, const UnpackedEntry& entry)
{
    if (fchmod(file.Number(), entry.mode) != 0) {
        return errno;
    }
    if (!entry.moment.has_value()) {
        return 0;
    }
    timespec moment{};
    moment.tv_sec = static_cast<time_t>(*entry.moment);
    const std::array<timespec, 2> times = {moment, moment};
    return futimens(file.Number(), times.data()) == 0 ? 0 : errno;
}

} // namespace

Unpacking::Unpacking(const StateFolder& folder, std::function<void()> refuseToGoOn)
    : m_folder(folder), m_refuseToGoOn(std::move(refuseToGoOn))
{
}

void Unpacking::TakeFolder(const UnpackedEntry& folder)
{
    CloseFile();
    m_refuseToGoOn();
    if (mkdirat(FolderOf(folder.name).Number(), io::LastPart(folder.name).c_str(),
                kMadeFolderMode) != 0) {
        throw io::AccessError(m_folder.Shown(folder.name), "make a folder", errno);
    }
    m_folders.push_back(folder);
}

void Unpacking::TakeFile(const UnpackedEntry& file)
{
    CloseFile();
    m_refuseToGoOn();
    m_file =
        io::Descriptor(openat(FolderOf(file.name).Number(), io::LastPart(file.name).c_str(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMadeFileMode));
    if (!m_file.IsOpen()) {
        throw io::AccessError(m_folder.Shown(file.name), "write", errno);
    }
    m_entry = file;
}

void Unpacking::TakeBytes(std::string_view bytes)
{
    m_refuseToGoOn();
    io::WriteAll(m_file.Number(), bytes, m_folder.Shown(m_entry.name));
}

void Unpacking::TakeLink(const std::string& name, const std::string& target)
{
    CloseFile();
    if (symlinkat(target.c_str(), FolderOf(name).Number(), io::LastPart(name).c_str()) != 0) {
        throw io::AccessError(m_folder.Shown(name), "make a link", errno);
    }
}

void Unpacking::Finish()
{
    CloseFile();
    m_parent.Close();
    // From the last to the first: what is in a folder changes its moment, and a folder that cannot
    // be searched any more hides what is in it.
    for (auto folder = m_folders.rbegin(); folder != m_folders.rend(); ++folder) {
        const io::Descriptor opened = OpenBelow(m_folder.File(), folder->name);
        const int error = opened.IsOpen() ? Furnish(opened, *folder) : errno;
        if (error != 0) {
            throw io::AccessError(m_folder.Shown(folder->name), "change", error);
        }
    }
    if (syncfs(m_folder.File().Number()) != 0) {
        throw io::AccessError(m_folder.Path(), "write", errno);
    }
}

const io::Descriptor& Unpacking::FolderOf(const std::string& name)
{
    const std::string parent = ParentOf(name);
    if (!m_parent.IsOpen() || parent != m_parentName) {
        m_parent = OpenBelow(m_folder.File(), parent);
        m_parentName = parent;
    }
    if (!m_parent.IsOpen()) {
        throw io::AccessError(m_folder.Shown(parent), "open", errno);
    }
    return m_parent;
}

void Unpacking::CloseFile()
{
    if (!m_file.IsOpen()) {
        return;
    }
    const int error = Furnish(m_file, m_entry);
    m_file.Close();
    if (error != 0) {
        throw io::AccessError(m_folder.Shown(m_entry.name), "change", error);
    }
}

} // namespace kx::guard
