// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/Targets.h"

#include "io/Path.h"

namespace kx::checks
{

namespace
{

/// Folders that every panel has.
constexpr const char* kPanelFolders[] = {
    "/",          "/bin",
    "/dev",       "/etc",
    "/home",      "/lib",
    "/mnt",       "/mnt/usb",
    "/opt",       "/mnt/user",
    "/proc",      "/root",
    "/run",       "/sbin",
    "/sys",       "/tmp",
    "/usr",       "/usr/bin",
    "/usr/lib",   "/usr/local",
    "/usr/sbin",  "/var",
    "/var/lib",   "/var/log",
    "/usr/share", "/usr/bin/kxsystem",
};

/// Files that every panel has.
constexpr const char* kPanelFiles[] = {
    "/bin/sh",     "/etc/group",   "/etc/hostname",  "/etc/passwd",
    "/etc/shadow", "/sbin/reboot", "/usr/bin/unzip", "/usr/bin/kx-setting-cui",
};

} // namespace

Targets::Targets()
    : m_folders(std::begin(kPanelFolders), std::end(kPanelFolders)),
      m_panelFiles(std::begin(kPanelFiles), std::end(kPanelFiles))
{
}

bool Targets::AddFoldersAbove(const std::string& plain)
{
    // From the inside out, so that known folders end the way.
    for (std::size_t slash = plain.rfind('/'); slash != 0 && slash != std::string::npos;
         slash = plain.rfind('/', slash - 1)) {
        std::string folder = plain.substr(0, slash);
        if (m_files.count(folder) != 0 || m_panelFiles.count(folder) != 0) {
            return false;
        }
        if (!m_folders.insert(std::move(folder)).second) {
            return true;
        }
    }
    return true;
}

TargetState Targets::AddFile(const std::string& path)
{
    const std::string plain = io::PlainPath(path);
    if (m_folders.count(plain) != 0) {
        return TargetState::kFolder;
    }
    if (!AddFoldersAbove(plain)) {
        return TargetState::kBelowFile;
    }
    return m_files.insert(plain).second ? TargetState::kFree : TargetState::kTwice;
}

bool Targets::AddFolder(const std::string& path)
{
    const std::string plain = io::PlainPath(path);
    if (m_files.count(plain) != 0 || m_panelFiles.count(plain) != 0 || !AddFoldersAbove(plain)) {
        return false;
    }
    m_folders.insert(plain);
    return true;
}

} // namespace kx::checks
