#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package stick on real drives: what it promises holds when the drive is pulled out at once, and
# whatever the drive does, an older package is whole or the new one is.

# shellcheck disable=SC2016 # much is for the machine's shell

load vm.bash

# The machine is emulated: a build that starts quickly is asked where there is one.
KX_PACKAGE=${KX_SECOND:-${KX_PACKAGE:-$ROOT/build/dev/kx-package}}

setup_file() {
    cd "$BATS_FILE_TMPDIR" || return
    mkdir older newer large
    package older 200000
    package newer 1000000
    # Large enough to be caught while it is written.
    package large 10000000
    # What debuggers need is most of the program.
    strip -o kx-package "$KX_PACKAGE"
    start_machine --seconds 850 --memory 512 --drive 48 \
        --add "$BATS_TEST_DIRNAME/drives.sh:/drives.sh" \
        --add "$PWD/kx-package:/usr/bin/kx-package" --add "$PWD/older:/older" \
        --add "$PWD/newer:/newer" --add "$PWD/large:/large" --add /usr/bin/fallocate
}

teardown_file() {
    stop_machine
}

# package FOLDER BYTES: demo.kx-update in the folder, with a payload that cannot be packed.
package() {
    mkdir source
    head -c "$2" /dev/urandom >source/data.bin
    mkdir source/many
    local number
    for number in {1..80}; do
        echo "$number" >"source/many/a name that takes more than one entry in its folder $number"
    done
    printf '\x7fELF\x01\x01\x01\0\0\0\0\0\0\0\0\0\x03\0\x28\0' >updater
    printf '\0%.0s' {1..44} >>updater
    printf 'UserPackage.kx-project' >>updater
    cat >source/package.toml <<'END'
[package]
name = "demo"
title = "Demo"
version = "1.0"
comment = "for tests"
model = "TP-0700"
os-version = "2.1.0"
date = 2026-11-21
processor = "arm"

[[steps]]
kind = "copy-files"
files = [{ source = "data.bin", target = "/mnt/user/data.bin", mode = "644" }]

[[steps]]
kind = "copy-folder"
folders = [{ source = "many", target = "/mnt/user/many" }]
END
    "$KX_PACKAGE" build source --updater updater -o "$1/demo.kx-update"
    rm -r source updater
}

# on_drive <SCRIPT: runs a script of the machine's shell that has the functions of drives.sh.
on_drive() {
    run vm sh -euc ". /drives.sh; $(cat)" sh
    echo "$output"
}

@test "the drive may be pulled when it is said, and has the package then" {
    on_drive <<'END'
for type in vfat exfat ext4; do
    new_drive $type
    kx-package stick /newer/demo.kx-update /mnt
    drive pull
    mount_drive $type
    cmp /newer/demo.kx-update /mnt/demo.kx-update
    ls -A /mnt | grep -vx lost+found
done 2>&1
END
    expect 0 'demo.kx-update: written to /mnt and read back; the drive may be pulled
demo.kx-update
kx-package: /mnt: not every panel reads exfat; FAT32 (vfat) is the usual one
demo.kx-update: written to /mnt and read back; the drive may be pulled
demo.kx-update
kx-package: /mnt: not every panel reads ext4; FAT32 (vfat) is the usual one
demo.kx-update: written to /mnt and read back; the drive may be pulled
demo.kx-update'
}

@test "a package that is there already is read back from the drive, too" {
    on_drive <<'END'
for type in vfat exfat; do
    new_drive $type
    cp /older/demo.kx-update /mnt
    kx-package stick /older/demo.kx-update /mnt 2>/dev/null
    drive pull
    mount_drive $type
    cmp /older/demo.kx-update /mnt/demo.kx-update
done
END
    expect 0 'demo.kx-update: was on /mnt already and read back; the drive may be pulled
demo.kx-update: was on /mnt already and read back; the drive may be pulled'
}

@test "an older package of that name is replaced, and is gone for good" {
    on_drive <<'END'
for type in vfat exfat; do
    new_drive $type
    cp /older/demo.kx-update /mnt
    kx-package stick /newer/demo.kx-update /mnt 2>/dev/null
    drive pull
    mount_drive $type
    cmp /newer/demo.kx-update /mnt/demo.kx-update
    ls -A /mnt
done
END
    expect 0 'demo.kx-update: written to /mnt and read back; the drive may be pulled
demo.kx-update
demo.kx-update: written to /mnt and read back; the drive may be pulled
demo.kx-update'
}

@test "a drive that is full keeps the older package and nothing else" {
    on_drive <<'END'
for type in vfat exfat; do
    new_drive $type
    cp /older/demo.kx-update /mnt
    leave_free 100
    kx-package stick /newer/demo.kx-update /mnt >/tmp/out 2>/tmp/err && status=0 || status=$?
    [ $status -eq 1 ]
    [ ! -s /tmp/out ]
    grep -q 'remove what else is on the drive, or take a larger one' /tmp/err
    [ "$(tail -n 1 /tmp/err)" = 'kx-package: nothing was written to /mnt' ]
    mount_drive $type
    cmp /older/demo.kx-update /mnt/demo.kx-update
    ls -A /mnt
done
END
    expect 0 'demo.kx-update
filler
demo.kx-update
filler'
}

@test "a drive with just the room that was computed holds the package, and what it unpacks to" {
    on_drive <<'END'
for type in vfat exfat; do
    new_drive $type
    told=$(kx-package stick --json /older/demo.kx-update /mnt | tr -d ' \n')
    needed=$(($(needed_for package "$told") + $(needed_for unpacked "$told")))
    rm /mnt/demo.kx-update
    cluster=$(stat -f -c %S /mnt)
    leave_free $((needed / cluster - 1))
    kx-package stick /older/demo.kx-update /mnt >/dev/null 2>&1 && status=0 || status=$?
    truncate -s $(($(stat -c %s /mnt/filler) - cluster)) /mnt/filler
    sync
    [ "$(stat -f -c %a /mnt)" -eq $((needed / cluster)) ]
    kx-package stick /older/demo.kx-update /mnt >/dev/null 2>&1
    unzip -q /mnt/demo.kx-update -d /mnt/demo_unpacked
    sync
    echo "$type: $status, then $(find /mnt/demo_unpacked -type f | wc -l) files"
done
END
    expect 0 'vfat: 1, then 83 files
exfat: 1, then 83 files'
}

@test "on vfat and exfat a name in other letters is the package's, and --replace gives it its own" {
    on_drive <<'END'
for type in vfat exfat; do
    new_drive $type
    cp /older/demo.kx-update /mnt/DEMO.KX-Update
    cp /older/demo.kx-update /mnt/other.kx-update
    echo hidden >/mnt/._demo.kx-update
    kx-package stick /older/demo.kx-update /mnt 2>/tmp/err && status=0 || status=$?
    grep -v 'not every panel' /tmp/err
    echo $status
    kx-package stick --replace /older/demo.kx-update /mnt 2>/tmp/err
    grep -v 'not every panel' /tmp/err || true
    drive pull
    mount_drive $type
    cmp /older/demo.kx-update /mnt/demo.kx-update
    ls -A /mnt
done
END
    local told="kx-package: /mnt/._demo.kx-update: is a hidden file that some desktop systems leave; \
the panel counts it as a second package, and installs none; --replace removes it
kx-package: /mnt/DEMO.KX-Update: is the package's name in other letters; the drive would keep these, \
and the panel would see them; --replace removes it
kx-package: /mnt/other.kx-update: is another package; of several the panel installs none; \
--replace removes it
kx-package: nothing was written to /mnt
1
/mnt/._demo.kx-update: removed
/mnt/DEMO.KX-Update: removed
/mnt/other.kx-update: removed
demo.kx-update: written to /mnt and read back; the drive may be pulled
demo.kx-update"
    expect 0 "$told
$told"
}

@test "a drive that gets full while it is written keeps the older package and nothing else" {
    on_drive <<'END'
new_drive vfat
cp /older/demo.kx-update /mnt
sync
: >/mnt/other
kx-package stick /large/demo.kx-update /mnt 2>&1 &
writer=$!
when_written 1 kill -STOP $writer
wait $!
until /usr/bin/fallocate -n -l "$(df -k /mnt | awk 'NR == 2 {print $4}')K" /mnt/other; do :; done
kill -CONT $writer
wait $writer && status=0 || status=$?
mount_drive vfat
cmp /older/demo.kx-update /mnt/demo.kx-update
ls -A /mnt
exit $status
END
    expect 3 'kx-package: /mnt/demo.kx-update: cannot write: No space left on device; remove what else is on the drive
demo.kx-update
other'
}

@test "a drive that cannot be written is told, and keeps the older package" {
    on_drive <<'END'
for type in vfat exfat; do
    new_failing_drive $type
    cp /older/demo.kx-update /mnt
    sync
    fail_writes
    kx-package stick /newer/demo.kx-update /mnt 2>/tmp/err && status=0 || status=$?
    echo "$status $(grep -v -e 'not every panel' -e 'no partitions' /tmp/err)"
    mend_writes
    mount_drive $type
    cmp /older/demo.kx-update /mnt/demo.kx-update
    ls -A /mnt
done
END
    local told='3 kx-package: /mnt/demo.kx-update: cannot write: Input/output error; is the drive still plugged in? If it is, take another one'
    expect 0 "$told
demo.kx-update
$told
demo.kx-update"
}

@test "a drive that forgets what it takes is found out when it is read back" {
    on_drive <<'END'
for type in vfat exfat; do
    new_failing_drive $type
    drop_writes
    kx-package stick /newer/demo.kx-update /mnt 2>/tmp/err && status=0 || status=$?
    echo "$status $(grep -v -e 'not every panel' -e 'no partitions' /tmp/err |
        sed 's/byte [0-9]*/byte N/')"
    mend_writes
done
END
    local told='3 kx-package: /mnt/demo.kx-update: what was read back differs from what was written, from byte N on; the drive is not to be trusted; take another one'
    expect 0 "$told
$told"
}

@test "a drive that is pulled out while it is written has the older package, or none" {
    on_drive <<'END'
for type in vfat exfat; do
    new_drive $type
    cp /older/demo.kx-update /mnt
    sync
    when_written 1 drive pull
    kx-package stick /large/demo.kx-update /mnt >/tmp/out 2>/tmp/err && status=0 || status=$?
    wait
    echo "$status $(cat /tmp/out)$(grep -c '^kx-package: /mnt/demo.kx-update: cannot ' /tmp/err)"
    mount_drive $type
    cmp /older/demo.kx-update /mnt/demo.kx-update
    ls /mnt
done
END
    local told='3 1'
    expect 0 "$told
demo.kx-update
$told
demo.kx-update"
}

@test "a signal while the drive is written leaves the older package and nothing else" {
    on_drive <<'END'
for type in vfat exfat; do
    new_drive $type
    cp /older/demo.kx-update /mnt
    sync
    kx-package stick /large/demo.kx-update /mnt 2>/dev/null &
    writer=$!
    when_written 1 kill $writer
    { wait $writer && status=0 || status=$?; } 2>/dev/null
    wait
    echo $status
    cmp /older/demo.kx-update /mnt/demo.kx-update
    ls -A /mnt
done
END
    expect 0 '143
demo.kx-update
143
demo.kx-update'
}

@test "a drive that is write-protected is told" {
    on_drive <<'END'
new_drive vfat
mount -o remount,ro /mnt
kx-package stick /older/demo.kx-update /mnt 2>&1
END
    expect 3 'kx-package: /mnt: is mounted read-only; mount it for writing; some drives have a switch against it'
}

@test "a drive without partitions is written, and told as one that no panel finds" {
    on_drive <<'END'
new_failing_drive vfat
kx-package stick /older/demo.kx-update /mnt 2>&1
END
    expect 0 'kx-package: /mnt: /dev/mapper/failing has no partitions, and a panel looks for the first one, /dev/sda1
demo.kx-update: written to /mnt and read back; the drive may be pulled'
}
