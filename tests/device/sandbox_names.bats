#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The names of the panel, which stand once, are those of the panel that is made.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox_helper

setup() {
    require_device
    cd "$BATS_TEST_TMPDIR" || return
}

@test "a fresh panel has the folders that its names tell, and no other" {
    python3 - "$DEVICE_HOME" >names <<'END'
import sys
sys.path.insert(0, sys.argv[1])
from kxdevice import names
print("\n".join(sorted(names.FOLDERS)))
END

    mapfile -t named <names

    # The machine's own are told by the names, too, but only those that one can count on.
    run --separate-stderr device -- sh -c '
        find / /dev -xdev -mindepth 1 -type d ! -path "/etc/*" | LC_ALL=C sort -u
        for path; do [ -d "$path" ] || echo "no $path"; done' - "${named[@]}"

    [ "$status" -eq 0 ]
    diff <(grep -vE '^/(bin|lib|sbin|etc/.*|usr/.*)$' names) <(echo "$output")
}

@test "the stand-ins know the panel by the names that it has" {
    run python3 - "$DEVICE_HOME" <<'END'
import re, sys
sys.path.insert(0, sys.argv[1])
from kxdevice import names
with open(sys.argv[1] + "/bin/stand-in", encoding="utf-8") as file:
    told = dict(re.findall(r'^([A-Z]+) = b?(".*")$', file.read(), re.M))
print({name: eval(text) for name, text in told.items()}
      == {"MARKER": names.MARKER, "ADDRESS": names.ADDRESS})
END

    [ "$output" = True ]
}

@test "a fresh panel's files have the modes and owners of a real one's" {
    run device -- sh -c 'find / -xdev ! -path "/etc/*" ! -path /proc ! -path /usr ! -type l \
            -printf "%m %u:%g %p\n" | LC_ALL=C sort -k 3
        stat -c "%a %U:%G %n" /dev/shm /etc/passwd /etc/group /etc/shadow /etc/gshadow /etc/pam.d/su'

    # Without id ranges there is only root.
    local user=user:user shadow=shadow
    [ "$(device -- cat /proc/self/uid_map | awk '{ count += $3 } END { print count }')" -gt 1 ] ||
        user=root:root shadow=root
    diff <(echo "$output") - <<END
755 root:root /
444 root:root /.kx-device
755 root:root /dev
755 root:root /etc
755 root:root /home
755 $user /home/user
755 root:root /mnt
755 root:root /mnt/usb
755 root:root /mnt/user
755 root:root /opt
700 root:root /root
755 root:root /run
1777 root:root /tmp
755 root:root /var
755 root:root /var/cache
755 root:root /var/lib
755 root:root /var/log
1777 root:root /var/tmp
1777 root:root /dev/shm
644 root:root /etc/passwd
644 root:root /etc/group
640 root:$shadow /etc/shadow
640 root:$shadow /etc/gshadow
644 root:root /etc/pam.d/su
END
}
