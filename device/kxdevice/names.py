# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The names and paths of a panel, each once; constants only.

FOLDERS are the folders that every fresh panel has. Those of /usr but kxsystem are the machine's
own, and so is where the links /bin, /lib and /sbin lead; /dev/shm is a file system of its own. Of
all the others the panel's root is made (see etc.FOLDERS), and nothing else is a folder there but
what /etc takes from the machine.
"""

REGISTRY = "/var/lib/KxUserPackages"
DESCRIPTION = "UserPackage.kx-project"
FILE_LIST = "installedFile.list"
UPDATER = "kx_Updater"
PACKAGE_ENDING = ".kx-update"
UNPACKED_ENDING = ".temp"

SCRIPT_FOLDER = "/tmp/Zt"
SCRIPT_FILE = "/tmp/Zt/temp.sh"
STARTUP_SCRIPT = "/mnt/user/startup.sh"

DRIVE_DEVICE = "/dev/sda1"
DRIVE_FOLDER = "/mnt/usb"

TOOL_FOLDER = "/usr/bin/kxsystem"
WPROTECT_OFF = "/usr/bin/kxsystem/wprotect_off"
USB_UMOUNT = "/usr/bin/kxsystem/usb_umount"
DRIVE_TOOL = "/usr/bin/kxsystem/drive"
SETTING_TOOL = "kx-setting-cui"
REBOOT = "/sbin/reboot"

FOLDERS = (
    "/bin", "/dev", "/dev/shm", "/etc", "/etc/pam.d", "/etc/security", "/home", "/home/user",
    "/lib", "/mnt", "/mnt/usb", "/mnt/user", "/opt", "/proc", "/root", "/run", "/sbin", "/tmp",
    "/usr", "/usr/bin", "/usr/bin/kxsystem", "/usr/lib", "/usr/local", "/usr/local/bin",
    "/usr/local/lib", "/usr/sbin", "/usr/share", "/var", "/var/cache", "/var/lib", "/var/log",
    "/var/tmp",
)

# The sandboxed device's own.
MARKER = "/.kx-device"
ADDRESS = "\0kx-device"
