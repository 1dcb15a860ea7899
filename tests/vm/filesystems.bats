#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The drives that the virtual machine can have behave as real ones: what each file system refuses,
# and what is left of a file when a drive is full, fails or is pulled out.

load vm.bash

setup_file() {
    start_machine --drive 48 --add "$BATS_TEST_DIRNAME/drives.sh:/drives.sh"
}

teardown_file() {
    stop_machine
}

# on_drive <SCRIPT: runs a script of the machine's shell that has the functions of drives.sh.
on_drive() {
    vm sh -euc ". /drives.sh; $(cat)" sh "$@"
}

@test "vfat, exfat and ext4 keep what is written when the drive is pulled and plugged in again" {
    run on_drive <<'END'
for type in vfat exfat ext4; do
    new_drive $type
    grep -c " /mnt $type rw" /proc/mounts
    echo "kept on $type" >/mnt/file
    umount /mnt
    drive pull
    mount_drive $type
    cat /mnt/file
done
END
    expect 0 '1
kept on vfat
1
kept on exfat
1
kept on ext4'
}

@test "vfat and exfat take two names that differ in case for one, ext4 does not" {
    run on_drive <<'END'
for type in vfat exfat ext4; do
    new_drive $type
    echo first >/mnt/Package.zip
    echo second >/mnt/PACKAGE.ZIP
    cat /mnt/package.zip 2>/dev/null || echo neither
    ls /mnt | grep -vx lost+found
done
END
    expect 0 'second
Package.zip
second
Package.zip
neither
PACKAGE.ZIP
Package.zip'
}

@test "vfat and exfat refuse the names that they cannot hold" {
    run on_drive <<'END'
for type in vfat exfat ext4; do
    new_drive $type
    refused=
    for name in 'a:b' 'a*b' 'a?b' 'a"b' 'a<b' 'a>b' 'a|b' 'a\b'; do
        (: >"/mnt/$name") 2>/dev/null || refused="$refused $name"
    done
    echo "$type:$refused"
    # Dots at the end are dropped.
    : >/mnt/end..
    ls /mnt | grep end
done
END
    expect 0 'vfat: a:b a*b a?b a"b a<b a>b a|b a\b
end
exfat: a:b a*b a?b a"b a<b a>b a|b a\b
end
ext4:
end..'
}

@test "a file on vfat ends below 4 GiB, however much room there is" {
    run on_drive <<'END'
new_drive vfat
for place in 4294967294 4294967295; do
    printf x | dd of=/mnt/file bs=1 seek=$place conv=notrunc 2>&1 | grep -o '[A-Z].*'
done
END
    expect 0 'No space left on device
File too large'
}

@test "a full drive is told, and takes a file again when there is room" {
    run on_drive <<'END'
for type in vfat exfat ext4; do
    new_drive $type
    dd if=/dev/zero of=/mnt/large bs=1M 2>&1 | grep -o 'No space.*'
    [ "$(df -m /mnt | awk 'NR == 2 {print $4}')" = 0 ]
    rm /mnt/large
    dd if=/dev/zero of=/mnt/small bs=1M count=10 conv=fsync 2>/dev/null
    wc -c </mnt/small
done
END
    expect 0 'No space left on device
10485760
No space left on device
10485760
No space left on device
10485760'
}

@test "a drive that cannot be written tells it when a file is synced" {
    run on_drive <<'END'
for type in vfat exfat; do
    new_failing_drive $type
    fail_writes
    # The cache takes it.
    dd if=/dev/zero of=/mnt/file bs=64k count=16 2>/dev/null && echo written
    dd if=/dev/zero of=/mnt/other bs=64k count=16 conv=fsync 2>&1 | grep -o 'Input/output error'
    mend_writes
    rm -f /mnt/file /mnt/other
done
END
    expect 0 'written
Input/output error
written
Input/output error'
}

@test "a drive that is pulled while it is written has what came before, and the writer hears of it" {
    run on_drive <<'END'
for type in vfat exfat ext4; do
    new_drive $type
    echo kept >/mnt/before
    sync
    {
        sleep 0.5
        drive pull
    } &
    status=0
    while [ $status -eq 0 ]; do
        dd if=/dev/zero of=/mnt/file bs=1M count=20 conv=fsync 2>/dev/null || status=$?
    done
    wait
    echo "$status $(ls /dev/sd* 2>/dev/null)"
    umount /mnt
    mount_drive $type
    cat /mnt/before
done
END
    expect 0 '1 
kept
1 
kept
1 
kept'
}
