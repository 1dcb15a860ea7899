# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The files a new panel starts with say the same about its users, whichever is asked."""

import ctypes
import unittest

from kxdevice import etc, names

TEXTS = {path: text for path, text, _, _ in etc.FILES}


def table(path):
    """Returns the rows of a file with colons, by their first word."""
    rows = [line.split(":") for line in TEXTS[path].splitlines()]
    return {row[0]: row[1:] for row in rows}


class Users(unittest.TestCase):
    """Users, groups and passwords."""

    def test_the_users_have_ids_homes_and_shells(self):
        nologin = "/usr/sbin/nologin"
        self.assertEqual(table("/etc/passwd"), {
            "root": ["x", "0", "0", "root", "/root", "/bin/sh"],
            "daemon": ["x", "1", "1", "daemon", "/usr/sbin", nologin],
            "bin": ["x", "2", "2", "bin", "/bin", nologin],
            "user": ["x", "1000", "1000", "panel user", "/home/user", "/bin/sh"],
            "nobody": ["x", "65534", "65534", "nobody", "/nonexistent", nologin]})
        for name, row in table("/etc/passwd").items():
            if row[5] == "/bin/sh":
                self.assertIn(row[4], names.FOLDERS, name)

    def test_the_groups_have_ids_and_those_of_the_users_are_among_them(self):
        groups = {name: row[1] for name, row in table("/etc/group").items()}
        self.assertEqual(groups, {
            "root": "0", "daemon": "1", "bin": "2", "tty": "5", "disk": "6", "shadow": "42",
            "users": "100", "user": "1000", "nogroup": "65534"})
        for row in table("/etc/passwd").values():
            self.assertIn(row[2], groups.values())
        for row in table("/etc/group").values():
            self.assertEqual((row[0], row[2]), ("x", ""))

    def test_only_the_user_has_a_password_and_it_is_known(self):
        shadow = table("/etc/shadow")
        self.assertEqual(list(shadow), list(table("/etc/passwd")))
        for name, row in shadow.items():
            self.assertEqual(row[1:], ["19000", "0", "99999", "7", "", "", ""])
            if name != "user":
                self.assertEqual(row[0], "*")
        crypt = ctypes.CDLL("libcrypt.so.1").crypt
        crypt.restype = ctypes.c_char_p
        said = shadow["user"][0].encode()
        self.assertEqual(crypt(b"user", said), said)
        self.assertNotEqual(crypt(b"other", said), said)

    def test_who_may_come_in_is_ruled_for_every_program_that_asks(self):
        unix, hashing = "required pam_unix.so", "required pam_unix.so sha512\n"
        rules = [("auth", unix), ("account", unix), ("password", unix + " sha512"),
                 ("session", unix)]

        def said(name):
            return [tuple(line.split(None, 1)) for line in TEXTS[f"/etc/pam.d/{name}"].splitlines()]
        self.assertEqual(said("login"), rules)
        self.assertEqual(said("su"), [("auth", "sufficient pam_rootok.so"), *rules])
        self.assertEqual(said("other"), [(kind, "required pam_deny.so") for kind in (
            "auth", "account", "password", "session")])
        for name in ("passwd", "chpasswd"):
            self.assertEqual(TEXTS[f"/etc/pam.d/{name}"], f"password {hashing}")


class Files(unittest.TestCase):
    """All other files, and what comes from the machine."""

    def test_the_files_have_their_modes_and_groups(self):
        usual = ("passwd", "group", "nsswitch.conf", "login.defs", "pam.d/chpasswd",
                 "pam.d/passwd", "pam.d/su", "pam.d/login", "pam.d/other", "hostname", "hosts",
                 "host.conf", "fstab", "profile", "shells")
        self.assertEqual({path: (mode, gid) for path, _, mode, gid in etc.FILES}, {
            **{f"/etc/{name}": (0o644, 0) for name in usual}, "/etc/shadow": (0o640, 42),
            "/etc/gshadow": (0o640, 42), "/etc/machine-id": (0o444, 0)})

    def test_small_files_say_what_the_panel_is(self):
        for name, text in (
                ("gshadow", ""), ("hostname", "panel\n"),
                ("hosts", "127.0.0.1 localhost panel\n::1 localhost panel\n"),
                ("host.conf", "multi on\n"), ("machine-id", "70616e656c70616e656c70616e656c70\n"),
                ("fstab", "/dev/sda1 /mnt/usb auto defaults,nofail 0 0\n"),
                ("profile", "umask 022\n"), ("shells", "/bin/sh\n/bin/bash\n")):
            self.assertEqual(TEXTS[f"/etc/{name}"], text)

    def test_nothing_is_asked_but_the_panels_own_files(self):
        self.assertEqual(TEXTS["/etc/nsswitch.conf"].splitlines(), [f"{name}: files" for name in (
            "passwd", "group", "shadow", "gshadow", "hosts", "networks", "protocols", "services")])

    def test_new_users_get_usual_values(self):
        self.assertEqual(dict(line.split(" ", 1) for line in TEXTS[
            "/etc/login.defs"].splitlines()), {
                "MAIL_DIR": "/var/mail",
                "ENV_SUPATH": "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                "ENV_PATH": "PATH=/usr/local/bin:/usr/bin:/bin", "UMASK": "022",
                "UID_MIN": "1000", "UID_MAX": "60000", "GID_MIN": "1000", "GID_MAX": "60000",
                "PASS_MAX_DAYS": "99999", "PASS_MIN_DAYS": "0", "PASS_WARN_AGE": "7",
                "USERGROUPS_ENAB": "yes", "ENCRYPT_METHOD": "SHA512"})

    def test_folders_links_and_what_programs_need_of_the_machine(self):
        usual = (0o755, 0, 0)
        self.assertEqual({path: facts for path, *facts in etc.FOLDERS}, {
            **{path: [*usual] for path in (
                "/dev", "/etc", "/etc/pam.d", "/etc/security", "/home", "/mnt", "/mnt/usb",
                "/mnt/user", "/opt", "/run", "/usr", "/var", "/var/cache", "/var/lib", "/var/log")},
            "/proc": [0o555, 0, 0], "/tmp": [0o1777, 0, 0], "/var/tmp": [0o1777, 0, 0],
            "/root": [0o700, 0, 0], "/home/user": [0o755, 1000, 1000]})
        self.assertEqual(etc.LINKS, [("/var/run", "/run"), ("/etc/os-release",
                                                            "../usr/lib/os-release"),
                                     ("/etc/mtab", "/proc/mounts")])
        self.assertEqual(etc.FROM_HOST, (
            "alternatives", "fonts", "ld.so.cache", "ld.so.conf", "ld.so.conf.d", "xdg",
            "mime.types", "python3", "terminfo"))


class Names(unittest.TestCase):
    """The names of the panel, on which the updater, its packages and the device agree."""

    def test_the_folders_of_a_fresh_panel_are_told_in_order(self):
        self.assertEqual(" ".join(names.FOLDERS), (
            "/bin /dev /dev/shm /etc /etc/pam.d /etc/security /home /home/user /lib /mnt /mnt/usb "
            "/mnt/user /opt /proc /root /run /sbin /tmp /usr /usr/bin /usr/bin/kxsystem /usr/lib "
            "/usr/local /usr/local/bin /usr/local/lib /usr/sbin /usr/share /var /var/cache "
            "/var/lib /var/log /var/tmp"))

    def test_they_are_those_of_the_device(self):
        self.assertEqual({name: value for name, value in vars(names).items()
                          if name.isupper() and name != "FOLDERS"}, {
            "REGISTRY": "/var/lib/KxUserPackages", "DESCRIPTION": "UserPackage.kx-project",
            "FILE_LIST": "installedFile.list", "UPDATER": "kx_Updater",
            "PACKAGE_ENDING": ".kx-update", "UNPACKED_ENDING": ".temp",
            "SCRIPT_FOLDER": "/tmp/Zt", "SCRIPT_FILE": "/tmp/Zt/temp.sh",
            "STARTUP_SCRIPT": "/mnt/user/startup.sh", "DRIVE_DEVICE": "/dev/sda1",
            "DRIVE_FOLDER": "/mnt/usb", "TOOL_FOLDER": "/usr/bin/kxsystem",
            "WPROTECT_OFF": "/usr/bin/kxsystem/wprotect_off",
            "USB_UMOUNT": "/usr/bin/kxsystem/usb_umount",
            "DRIVE_TOOL": "/usr/bin/kxsystem/drive", "SETTING_TOOL": "kx-setting-cui",
            "REBOOT": "/sbin/reboot", "MARKER": "/.kx-device", "ADDRESS": "\0kx-device"})


if __name__ == "__main__":
    unittest.main()
