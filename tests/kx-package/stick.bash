# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the tests of kx-package stick. Drives are file systems in memory, in mounts that nobody
# but the test sees.

load package

# What it says of every such drive.
DOUBT='tmpfs is on no disk of its own: nothing can be pulled and plugged into a panel'

# on_drive OPTIONS: runs the script on standard input beside a drive, ./drive, in mounts of its own.
on_drive() {
    mkdir -p drive
    cat >script
    export KX_PACKAGE DOUBT
    export -f kx expect
    # shellcheck disable=SC2016 # expanded by that bash
    unshare --user --map-root-user --mount bash -euc '
        mount -t tmpfs -o "$1" none drive
        . ./script' - "$1"
}
