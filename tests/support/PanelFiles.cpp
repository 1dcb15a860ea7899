// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/PanelFiles.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace
{

constexpr const char* kRecords = "/var/lib/KxUserPackages";
constexpr const char* kDrive = "/dev/sda1";

} // namespace

PanelFiles::PanelFiles()
{
    m_dir.MakeDir("records");
}

int PanelFiles::Stat(const char* path, struct stat* info)
{
    return std::strcmp(path, kDrive) == 0 ? LookForDrive()
                                          : SystemFiles::Stat(Real(path).c_str(), info);
}

std::FILE* PanelFiles::Open(const char* path, const char* mode)
{
    return SystemFiles::Open(Real(path).c_str(), mode);
}

int PanelFiles::List(const char* dir, dirent*** entries)
{
    return SystemFiles::List(Real(dir).c_str(), entries);
}

void PanelFiles::WriteRecord(const std::string& name, const std::string& description)
{
    m_dir.Write("records/" + name + "/UserPackage.kx-project", description);
}

void PanelFiles::MakeRecord(const std::string& name)
{
    m_dir.MakeDir("records/" + name);
}

void PanelFiles::WritePlainFile(const std::string& name, const std::string& content)
{
    m_dir.Write("records/" + name, content);
}

void PanelFiles::RemoveRecords()
{
    std::filesystem::remove_all(m_dir / "records");
}

std::string PanelFiles::Real(const std::string& path) const
{
    const std::size_t length = std::strlen(kRecords);
    const bool isRecord =
        path.compare(0, length, kRecords) == 0 && (path.size() == length || path[length] == '/');
    return isRecord ? m_dir / "records" + path.substr(length) : path;
}

int PanelFiles::LookForDrive()
{
    ++m_driveLooks;
    if (m_isDrivePlugged) {
        return 0;
    }
    errno = ENOENT;
    return -1;
}
