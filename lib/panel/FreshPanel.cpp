// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "panel/FreshPanel.h"

#include "panel/Names.h"

namespace kx::panel
{

namespace
{

std::vector<std::string> Folders()
{
    return {"/",
            "/dev",
            "/dev/shm",
            "/etc",
            "/etc/pam.d",
            "/etc/security",
            "/home",
            "/home/user",
            "/mnt",
            "/mnt/user",
            kDriveFolder,
            "/opt",
            "/proc",
            "/root",
            "/run",
            "/tmp",
            "/usr",
            "/usr/bin",
            "/usr/bin/kxsystem",
            "/usr/lib",
            "/usr/local",
            "/usr/local/bin",
            "/usr/local/lib",
            "/usr/sbin",
            "/usr/share",
            "/var",
            "/var/cache",
            "/var/lib",
            "/var/log",
            "/var/tmp"};
}

std::vector<std::string> Files()
{
    return {"/dev/null",
            "/dev/random",
            "/dev/urandom",
            "/dev/zero",
            "/etc/fstab",
            "/etc/group",
            "/etc/hostname",
            "/etc/hosts",
            "/etc/login.defs",
            "/etc/machine-id",
            "/etc/nsswitch.conf",
            "/etc/passwd",
            "/etc/profile",
            "/etc/shadow",
            "/etc/shells",
            "/usr/bin/chmod",
            "/usr/bin/cp",
            "/usr/bin/mkdir",
            "/usr/bin/rm",
            "/usr/bin/sh",
            "/usr/bin/sync",
            "/usr/bin/unzip",
            std::string("/usr/bin/") + kSettingTool,
            kUnmountDrive,
            kWriteProtectOff,
            "/usr/sbin/chpasswd",
            std::string("/usr") + kReboot};
}

} // namespace

const FreshPanel& TheFreshPanel()
{
    static const FreshPanel kPanel = {
        Folders(),
        {{"/bin", "usr/bin"}, {"/lib", "usr/lib"}, {"/sbin", "usr/sbin"}, {"/var/run", "/run"}},
        Files()};
    return kPanel;
}

} // namespace kx::panel
