# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the window's tests: the real window on the sandboxed device, its drive and its user.
#
#   drive_package Foo <<'END'   puts Foo.kx-update on the drive; recipe as for `package`
#   script("exit 5\n")
#   END
#   window [OPTION...] <<'END'  what the user does, action by action; device/operate --help
#   wait button InstallButton
#   state
#   END
#   expect_transcript <<'END'   then one expectation after the other
#   ...
#   END
#
# OUT, ERR, TRACE and PANEL are what they are for a console installation, those of the window.

# shellcheck source=tests/device/device.bash
. "$BATS_TEST_DIRNAME/device.bash"

WINDOW=$ROOT/device/window
PROBE=$ROOT/build/release/plugins
# A panel has neither a session bus nor OpenGL; what Qt does with the machine's own leaks memory.
PANEL_SETTINGS=(--env DBUS_SESSION_BUS_ADDRESS=disabled: --env QT_XCB_GL_INTEGRATION=none)
# What the window says in each state, as the transcript tells it.
# shellcheck disable=SC2034 # used by the tests
{
    INSTALLING=' Start the installation.\nDo not turn off the power during the installation.\nIf you turn off the power, the files may be corrupted. | normal | no button | Install | package'
    LOGGING=${INSTALLING/Install | package/Log | package}
    ASKING='Install the software on this device.\nAre you sure? | normal | InstallButton CancelButton | Install | package'
    INSTALLED='The installation completed successfully. | normal | OkButton | Install | package'
    FAILED='The installation failed. | error | OkButton | Install | package'
    UNREADABLE='Failed to load the installation file in the USB flash drive.\nThe file may be corrupted. | error | OkButton | Install | no package'
    REMOVE='Remove the USB flash drive.\nIf you remove, this will reboot. | normal | no button | Install | no package'
    REMOVED='Remove the USB flash drive.\nIf you remove, this will reboot. | normal | RebootButton | Install | no package'
    REBOOTING='Reboot.... | normal | no button | Install | no package'
}
# Parts of scripts.
# shellcheck disable=SC2034 # used by the tests
{
    PULL='run /usr/bin/kxsystem/drive pull'
    PLUG='run /usr/bin/kxsystem/drive plug'
    INSTALL='wait button InstallButton
press InstallButton'
    # An installation that has nobody to wait for: the end, the log, and what follows.
    TO_THE_END="$INSTALL
wait button OkButton
state
log
press OkButton
state"
    LET_GO='run cp /dev/null /tmp/go' # what waits for the FIFO goes on
}

# window_setup: what every test begins with.
window_setup() {
    device_setup
    export KX_UPDATER # for the recipes
    DRIVE=$WORK/drive           # the files of the drive that is plugged in
    TRANSCRIPT=$WORK/transcript # what the script noted
    mkdir "$DRIVE"
    [ -e "$PROBE/generic/libkxprobe.so" ] ||
        fail "there is no probe in $PROBE: cmake --build --preset release --target kx_probe"
}

setup() {
    window_setup
}

# ---- packages ----

# drive_package NAME <RECIPE: puts a package file on the drive that brings the updater along.
drive_package() {
    {
        echo 'put("kx_Updater", open(os.environ["KX_UPDATER"], "rb").read(), 0o755)'
        cat
    } | package_file "$DRIVE/$1.kx-update"
}

# drive_child <SCRIPT: puts Foo.kx-update on the drive, whose updater is a shell script. The FIFO
# /tmp/go is there for it to wait.
drive_child() {
    CHILD="#!/bin/sh
mkfifo /tmp/go
$(cat)" package_file "$DRIVE/Foo.kx-update" <<<'put("kx_Updater", os.environ["CHILD"], 0o755)'
}

# ---- runs ----

# window [OPTION...] [-- COMMAND...] <SCRIPT: shows the window on a panel with the drive plugged in
# and plays the user. Options of device/window and of `device`; COMMAND is the updater with -upDir.
window() {
    local options=("${PANEL_SETTINGS[@]}")
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    [ $# -gt 0 ] && shift
    [ $# -gt 0 ] || set -- "$UPDATER" -upDir /mnt/usb
    cat >"$WORK/script"
    RUN=$WINDOW prepare --updater "$KX_UPDATER" --probe "$PROBE" \
        --usb "$DRIVE" --script "$WORK/script" --out "$WORK/window" "${options[@]}" -- "$@"
    rm -rf "$WORK/window"
    status=0
    "${DEVICE[@]}" </dev/null >"$WORK/problems" 2>&1 || status=$?
    case $status in
        3 | 4 | 124 | 125) fail "$(cat "$WORK/problems")" ;;
    esac
    mv "$WORK/window/updater.out" "$OUT"
    mv "$WORK/window/updater.err" "$ERR"
    mv "$WORK/window/transcript" "$TRANSCRIPT"
    # The X server has its keymap compiled by a shell.
    sed -i '\,^shell\t"/usr/bin/xkbcomp" ,d' "$TRACE"
    finish
}

# ---- expectations ----

# expect_transcript: what the script noted, without empty lines. In the log one follows every piece
# of output, and whether two lines of the child come in one piece is a matter of luck.
expect_transcript() {
    sed -i '/^$/d' "$TRANSCRIPT"
    same "$TRANSCRIPT" 'the transcript'
}

# expect_trace: all that happened on the panel, in order.
expect_trace() {
    same "$TRACE" 'the trace'
}

# expect_window NAME: all commands of a window that unpacks and cleans up once; what it and its child
# do in between stands on standard input.
expect_window() {
    {
        printf '[%s]\n' sync "rm -r \"/mnt/usb/$1.temp\"" "mkdir -p \"/mnt/usb/$1.temp\"" \
            "unzip -o \"/mnt/usb/$1.kx-update\" -d \"/mnt/usb/$1.temp\" "
        cat
        printf '[%s]\n' "rm -r \"/mnt/usb/$1.temp\"" /usr/bin/kxsystem/usb_umount sync
    } | expect_commands
}

# expect_children LINE...: how the window's child processes ended, as the window tells it.
expect_children() {
    { grep -a '^imp_proc_finished' "$OUT" || true; } >"$WORK/children"
    printf '%s' "${@/%/$'\n'}" | same "$WORK/children" 'the ends of the children'
}

# expect_drive: the names of the files on the drive, found by `--keep`.
expect_drive() {
    (cd "$STATE/drive" && LC_ALL=C find . -mindepth 1 | LC_ALL=C sort) >"$WORK/files"
    same "$WORK/files" 'the files of the drive'
}
