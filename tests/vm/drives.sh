# shellcheck shell=sh
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# For scripts in the virtual machine: drives of every kind on /mnt.

export DM_DISABLE_UDEV=1 # there is none

# new_drive TYPE: a drive on /mnt with one partition and nothing on it.
new_drive() {
    plug_drive
    format "$1" "$DRIVE"
    mount -t "$1" "$DRIVE" /mnt
}

# new_failing_drive TYPE: the same, for fail_writes and what else stands there.
new_failing_drive() {
    plug_drive
    echo "0 $(blockdev --getsz "$DRIVE") linear $DRIVE 0" | dmsetup create failing
    format "$1" /dev/mapper/failing
    mount -t "$1" /dev/mapper/failing /mnt
}

# mount_drive TYPE: mounts the drive as it is, after plugging it in again if it was pulled out.
mount_drive() {
    plug_drive
    mount -t "$1" "$DRIVE" /mnt
}

# Leaves the partition in $DRIVE; nothing is mounted.
plug_drive() {
    while umount /mnt 2>/dev/null; do :; done
    dmsetup remove failing 2>/dev/null || true
    if ! find_partition; then
        disk=$(drive plug)
        until find_partition; do
            partition "$disk"
            sleep 0.05
        done
    fi
}

find_partition() {
    DRIVE=/dev/$(basename /sys/block/sd?/sd?1)
    [ -b "$DRIVE" ]
}

# The partition of a drive that has one is there a moment after the drive.
partition() {
    if ! fdisk -l "$1" | grep -q "^${1}1"; then
        printf '%s\n' o n p 1 '' '' t c w | fdisk "$1" >/dev/null 2>&1 || true
    fi
}

format() {
    case $1 in
        vfat) set -- mkfs.vfat -F 32 "$2" ;;
        exfat) set -- mkfs.exfat "$2" ;;
        ext4) set -- mkfs.ext4 -q -F "$2" ;;
    esac
    if ! "$@" >/tmp/mkfs.log 2>&1; then
        cat /tmp/mkfs.log >&2
        return 1
    fi
}

# From here on every write to the drive fails; what the cache holds was not written.
fail_writes() {
    change_table "flakey $DRIVE 0 0 3600 1 error_writes"
}

# From here on the drive takes every write and forgets it.
drop_writes() {
    change_table "flakey $DRIVE 0 0 3600 1 drop_writes"
}

mend_writes() {
    change_table "linear $DRIVE 0"
}

change_table() {
    dmsetup suspend --nolockfs --noflush failing
    echo "0 $(blockdev --getsz "$DRIVE") $1" | dmsetup load failing
    dmsetup resume failing
}

# Leaves in $sectors what was written to the drive; starts nothing, so that it is quick.
sectors_written() {
    read -r _ _ _ _ _ _ sectors _ <"/sys/class/block/${DRIVE#/dev/}/stat"
}

# when_written MiB COMMAND...: runs a command in the background when so much more has been written to
# the drive.
when_written() {
    sectors_written
    end=$((sectors + 2048 * $1))
    shift
    {
        while [ "$sectors" -lt "$end" ]; do sectors_written; done
        "$@"
    } &
}

# leave_free CLUSTERS: fills the drive with one file, filler, but for so many clusters.
leave_free() {
    cluster=$(stat -f -c %S /mnt)
    bytes=$((($(stat -f -c %a /mnt) - $1) * cluster))
    {
        dd if=/dev/zero bs=1M count=$((bytes >> 20))
        dd if=/dev/zero bs="$cluster" count=$((bytes % (1 << 20) / cluster))
    } >/mnt/filler 2>/dev/null
    sync
    rest=$(stat -f -c %a /mnt)
    [ "$rest" -eq "$1" ] || { echo "$rest clusters are free instead of $1" >&2 && return 1; }
}

# needed_for NAME JSON: a number of what `kx-package stick --json` tells to be needed.
needed_for() {
    echo "$2" | sed -n "s/.*\"needed\":{[^}]*\"$1\":\([0-9]*\).*/\1/p"
}
