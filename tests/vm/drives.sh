# shellcheck shell=sh
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# For scripts in the virtual machine: drives of every kind on /mnt.

export DM_DISABLE_UDEV=1 # there is none

# new_drive TYPE: a drive on /mnt with nothing on it, and no other one.
new_drive() {
    remove_drive
    DRIVE=$(drive plug)
    format "$1" "$DRIVE"
    mount -t "$1" "$DRIVE" /mnt
}

# new_failing_drive TYPE: the same, for fail_writes and mend_writes.
new_failing_drive() {
    remove_drive
    DRIVE=$(drive plug)
    echo "0 $(blockdev --getsz "$DRIVE") linear $DRIVE 0" | dmsetup create failing
    format "$1" /dev/mapper/failing
    mount -t "$1" /dev/mapper/failing /mnt
}

# mount_drive TYPE: plugs the drive in that was pulled out, and mounts it as it is.
mount_drive() {
    DRIVE=$(drive plug)
    mount -t "$1" "$DRIVE" /mnt
}

remove_drive() {
    while umount /mnt 2>/dev/null; do :; done
    dmsetup remove failing 2>/dev/null || true
    drive pull 2>/dev/null || true
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
    change_table "0 $(blockdev --getsz "$DRIVE") flakey $DRIVE 0 0 3600 1 error_writes"
}

mend_writes() {
    change_table "0 $(blockdev --getsz "$DRIVE") linear $DRIVE 0"
}

change_table() {
    dmsetup suspend --nolockfs --noflush failing
    echo "$1" | dmsetup load failing
    dmsetup resume failing
}
