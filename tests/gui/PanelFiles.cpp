// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/PanelFiles.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <dirent.h>
#include <sys/stat.h>

namespace
{

constexpr const char* kRecords = "/var/lib/KxUserPackages";
constexpr const char* kDrive = "/dev/sda1";

using Filter = int (*)(const dirent*);
using Order = int (*)(const dirent**, const dirent**);

} // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped function
int __real_stat64(const char* path, struct stat* info);
int __wrap_stat64(const char* path, struct stat* info);
std::FILE* __real_fopen64(const char* path, const char* mode);
std::FILE* __wrap_fopen64(const char* path, const char* mode);
int __real_scandir64(const char* dir, dirent*** entries, Filter filter, Order order);
int __wrap_scandir64(const char* dir, dirent*** entries, Filter filter, Order order);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace
{

PanelFiles* current = nullptr;

std::string RealPath(const char* path)
{
    return current != nullptr ? current->Real(path) : path;
}

} // namespace

int __wrap_stat64(const char* path, struct stat* info)
{
    if (current != nullptr && std::strcmp(path, kDrive) == 0) {
        return current->LookForDrive();
    }
    return __real_stat64(RealPath(path).c_str(), info);
}

std::FILE* __wrap_fopen64(const char* path, const char* mode)
{
    return __real_fopen64(RealPath(path).c_str(), mode);
}

int __wrap_scandir64(const char* dir, dirent*** entries, Filter filter, Order order)
{
    return __real_scandir64(RealPath(dir).c_str(), entries, filter, order);
}

PanelFiles::PanelFiles()
{
    if (current != nullptr) {
        std::fputs("PanelFiles: a second one\n", stderr);
        std::abort();
    }
    current = this;
    m_dir.MakeDir("records");
}

PanelFiles::~PanelFiles()
{
    current = nullptr;
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
