# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The files a new panel starts with."""

from kxdevice import names

USER_HASH = ("$6$kxpaneluser$8iqr4o8lsYNajRisktLoESbwbI4QHRvs.6Y/6IYxdtGifYwdsIfPQdFujVLbkbO29"
             ".DEihuZXHReneSCsbKlA1")  # the password is "user"

FROM_HOST = ("alternatives", "fonts", "ld.so.cache", "ld.so.conf", "ld.so.conf.d", "xdg",
             "mime.types", "python3", "terminfo")

_USUAL = (0o755, 0, 0)
_UNUSUAL = {"/proc": (0o555, 0, 0), "/tmp": (0o1777, 0, 0), "/var/tmp": (0o1777, 0, 0),
            "/root": (0o700, 0, 0), "/home/user": (0o755, 1000, 1000)}
# Path, mode, owner and group inside. The rest of the folders comes with /usr and /dev.
FOLDERS = [(path, *_UNUSUAL.get(path, _USUAL)) for path in names.FOLDERS
           if path not in ("/bin", "/lib", "/sbin") and not path.startswith(("/usr/", "/dev/"))]

LINKS = [("/var/run", "/run"), ("/etc/os-release", "../usr/lib/os-release"),
         ("/etc/mtab", "/proc/mounts")]

_PAM = """\
auth     required pam_unix.so
account  required pam_unix.so
password required pam_unix.so sha512
session  required pam_unix.so
"""
_PAM_ROOT = "auth     sufficient pam_rootok.so\n" + _PAM
_PAM_DENY = """\
auth     required pam_deny.so
account  required pam_deny.so
password required pam_deny.so
session  required pam_deny.so
"""

FILES = [  # path, text, mode, inside group
    ("/etc/passwd", """\
root:x:0:0:root:/root:/bin/sh
daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin
bin:x:2:2:bin:/bin:/usr/sbin/nologin
user:x:1000:1000:panel user:/home/user:/bin/sh
nobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin
""", 0o644, 0),
    ("/etc/group", """\
root:x:0:
daemon:x:1:
bin:x:2:
tty:x:5:
disk:x:6:
shadow:x:42:
users:x:100:
user:x:1000:
nogroup:x:65534:
""", 0o644, 0),
    ("/etc/shadow", f"""\
root:*:19000:0:99999:7:::
daemon:*:19000:0:99999:7:::
bin:*:19000:0:99999:7:::
user:{USER_HASH}:19000:0:99999:7:::
nobody:*:19000:0:99999:7:::
""", 0o640, 42),
    ("/etc/gshadow", "", 0o640, 42),
    ("/etc/nsswitch.conf", """\
passwd: files
group: files
shadow: files
gshadow: files
hosts: files
networks: files
protocols: files
services: files
""", 0o644, 0),
    ("/etc/login.defs", """\
MAIL_DIR /var/mail
ENV_SUPATH PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
ENV_PATH PATH=/usr/local/bin:/usr/bin:/bin
UMASK 022
UID_MIN 1000
UID_MAX 60000
GID_MIN 1000
GID_MAX 60000
PASS_MAX_DAYS 99999
PASS_MIN_DAYS 0
PASS_WARN_AGE 7
USERGROUPS_ENAB yes
ENCRYPT_METHOD SHA512
""", 0o644, 0),
    ("/etc/pam.d/chpasswd", "password required pam_unix.so sha512\n", 0o644, 0),
    ("/etc/pam.d/passwd", "password required pam_unix.so sha512\n", 0o644, 0),
    ("/etc/pam.d/su", _PAM_ROOT, 0o644, 0),
    ("/etc/pam.d/login", _PAM, 0o644, 0),
    ("/etc/pam.d/other", _PAM_DENY, 0o644, 0),
    ("/etc/hostname", "panel\n", 0o644, 0),
    ("/etc/hosts", "127.0.0.1 localhost panel\n::1 localhost panel\n", 0o644, 0),
    ("/etc/host.conf", "multi on\n", 0o644, 0),
    ("/etc/machine-id", "70616e656c70616e656c70616e656c70\n", 0o444, 0),
    ("/etc/fstab", f"{names.DRIVE_DEVICE} {names.DRIVE_FOLDER} auto defaults,nofail 0 0\n",
     0o644, 0),
    ("/etc/profile", "umask 022\n", 0o644, 0),
    ("/etc/shells", "/bin/sh\n/bin/bash\n", 0o644, 0),
]
