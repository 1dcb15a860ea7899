// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/StepFolder.h"

#include "io/Error.h"
#include "io/Path.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::guard
{

namespace
{

StateFolder FolderAbove(const std::string& path)
{
    const std::string above = io::PlainPath(path + "/..");
    io::Descriptor folder(open(above.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat info {
    };
    if (!folder.IsOpen() || fstat(folder.Number(), &info) != 0) {
        throw io::AccessError(above, "open", errno);
    }
    const bool isOpenToOthers = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (info.st_uid != geteuid() || (isOpenToOthers && (info.st_mode & S_ISVTX) == 0)) {
        throw io::Error(io::ExitCode::kProblems, above, "lets others replace the files of root",
                        "make it root's, with mode 1777");
    }
    return {std::move(folder), above};
}

/// Takes whatever has the name out of the way, in one step that nobody can disturb, and removes it.
void TakeAway(const StateFolder& above, const std::string& name)
{
    const std::string aside = "." + name + ".removed-" + std::to_string(getpid());
    above.Remove(aside);
    if (renameat(above.File().Number(), name.c_str(), above.File().Number(), aside.c_str()) != 0 &&
        errno != ENOENT) {
        throw io::AccessError(above.Shown(name), "remove", errno);
    }
    try {
        above.Remove(aside);
    } catch (const io::Error&) { // NOLINT(bugprone-empty-catch)
        // Somebody goes on making files in it. It is in nobody's way any more.
    }
}

} // namespace

StepFolder::StepFolder(const std::string& path)
    : m_above(FolderAbove(path)), m_name(io::LastPart(io::PlainPath(path)))
{
    TakeAway(m_above, m_name);
    // Fails when somebody was quicker: that is no folder of root's.
    if (mkdirat(m_above.File().Number(), m_name.c_str(), S_IRWXU) != 0) {
        throw io::AccessError(m_above.Shown(m_name), "make a folder", errno);
    }
}

StepFolder::~StepFolder()
{
    try {
        if (!m_isKept) {
            TakeAway(m_above, m_name);
        }
    } catch (const io::Error&) { // NOLINT(bugprone-empty-catch)
        // The next installation takes it away before it begins.
    }
}

void StepFolder::Remove(const std::string& path)
{
    TakeAway(FolderAbove(path), io::LastPart(io::PlainPath(path)));
}

} // namespace kx::guard
