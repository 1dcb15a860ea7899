// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "panel/FreshPanel.h"

#include "panel/Names.h"

namespace kx::panel
{

const FreshPanel& TheFreshPanel()
{
    static const FreshPanel kPanel = {
        {"/",
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
         "/var/tmp"},
        {{"/bin", "usr/bin"}, {"/lib", "usr/lib"}, {"/sbin", "usr/sbin"}, {"/var/run", "/run"}},
        {"/dev/null",
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
         std::string("/usr") + kReboot},
    };
    return kPanel;
}

} // namespace kx::panel
