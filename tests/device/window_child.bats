#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The window and its child: children that fail, that cannot be started, that write too much, nothing
# or rubbish, that do not end. The window lives on, and cleans up once.

# shellcheck disable=SC2016 # what is in single quotes is for the shell on the device

load window

setup() {
    window_setup
    # Starts the updater, known by its process id; the child leaves its own in /tmp/child.
    printf '%s\n' 'echo $$ >/tmp/window' 'exec "$@"' >"$PACKAGES/known"
    printf '%s\n' 'kill -"$1" "$(cat "$2")"' >"$PACKAGES/send"
    # Waits for the end of a process.
    printf '%s\n' 'tail -s 0.05 --pid="$(cat "$1")" -f /dev/null' >"$PACKAGES/wait-for"
}

# expect_failed [LINE...]: an installation that has failed with these lines in the log.
expect_failed() {
    printf '%s\n' "$FAILED" "$@" "$REMOVE" | expect_transcript
}

# ---- children that fail ----

@test "a step that fails in the middle: earlier steps stay, nothing is recorded" {
    drive_package Foo <<'END'
copy_file(item("a", "/opt/demo/a"), record=True)
script("exit 5\n")
copy_file(item("b", "/opt/demo/b"), record=True)
END

    window --keep --look 'ls -A /opt/demo /var/lib/KxUserPackages' <<<"$TO_THE_END"

    expect_status 0
    expect_failed '**** Installation step 1/3' '**** Installation step 2/3' \
        'Script execution returned an error(=1280) in step no 2' 'Installation failed in step 2.'
    expect_window Foo <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/opt/demo/"]
[cp -f "/mnt/usb/Foo.temp/0/0/a" "/opt/demo/a" ]
[chmod 777 "/opt/demo/a" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
[sync]
END
    expect_children 'imp_proc_finished  exitCode = 101, ExitStatus=0'
    expect_panel <<'END'
ls: cannot access '/var/lib/KxUserPackages': No such file or directory
/opt/demo:
a
END
    expect_drive <<<'./Foo.kx-update'
}

@test "a child that ends with a code has failed, whatever it says" {
    drive_child <<<'echo Installation succeeded.; exit 3'

    window --keep <<<"$TO_THE_END"

    expect_failed 'Installation succeeded.'
    expect_window Foo </dev/null
    expect_children 'imp_proc_finished  exitCode = 3, ExitStatus=0'
    expect_drive <<<'./Foo.kx-update'
}

@test "a child that crashes is told twice and cleaned up after once" {
    drive_child <<<'echo before; kill -SEGV $$'

    window --keep <<<"$TO_THE_END"

    expect_failed before
    expect_window Foo </dev/null
    expect_children 'imp_proc_finished  exitCode = 11, ExitStatus=1'
    expect_drive <<<'./Foo.kx-update'
}

@test "a child killed from outside" {
    drive_child <<'END'
echo $$ >/tmp/child
echo waiting
cat /tmp/go
END

    window <<END
$INSTALL
wait log waiting
run sh /packages/send KILL /tmp/child
wait button OkButton
state
press OkButton
state
END

    expect_failed
    expect_window Foo </dev/null
    expect_children 'imp_proc_finished  exitCode = 9, ExitStatus=1'
}

@test "a child that is not there, cannot be executed, or needs a shell that is not there" {
    local recipe
    for recipe in none 'put("kx_Updater", "#!/bin/sh\n", 0o644)' \
        'put("kx_Updater", "#!/bin/no-such-shell\n", 0o755)'; do
        rm -f "$DRIVE/Foo.kx-update"
        package_file "$DRIVE/Foo.kx-update" <<<"${recipe/none/}"

        window <<<"$TO_THE_END"

        expect_failed
        expect_window Foo </dev/null
        expect_children
    done
}

@test "a child of another processor fails" {
    package_file "$DRIVE/Foo.kx-update" <<'END'
data = bytearray(open(os.environ["KX_UPDATER"], "rb").read(4096))
data[18:20] = b"\xf3\x00" # the processor
put("kx_Updater", bytes(data), 0o755)
END

    window <<<"$INSTALL
wait button OkButton
state
press OkButton
state"

    expect_failed
    expect_window Foo </dev/null
}

@test "a child that the window has no descriptors left for: the log names the command" {
    # A sanitizer needs two descriptors whenever it meets an object of a new class.
    export KX_UPDATER=$ROOT/build/release/kx_Updater
    drive_package Foo </dev/null
    cat >"$PACKAGES/no-descriptors" <<'END'
process=$(cat /tmp/window)
free=0
while [ -e "/proc/$process/fd/$free" ]; do
    free=$((free + 1))
done
prlimit --pid "$process" --nofile=$free:
END

    # Memory shared with the X server would come as a descriptor, too.
    window --keep --env QT_XCB_NO_MITSHM=1 -- \
        sh /packages/known "$UPDATER" -upDir /mnt/usb <<END
wait button InstallButton
run sh /packages/no-descriptors
$TO_THE_END
press tab Log
state
END

    expect_status 0
    expect_transcript <<END
$FAILED
Cannot start : /mnt/usb/Foo.temp/kx_Updater -unzipedDir /mnt/usb/Foo.temp
$REMOVE
${REMOVE/Install/Log}
END
    expect_window Foo </dev/null
    expect_children
    expect_drive <<<'./Foo.kx-update'
}

@test "a child for which the panel has no room: the log names the command, nothing can clean up" {
    drive_package Foo </dev/null
    printf '%s\n' 'prlimit --pid "$(cat /tmp/window)" --nproc="$1:"' >"$PACKAGES/processes"

    window --keep -- sh /packages/known "$UPDATER" -upDir /mnt/usb <<END
wait button InstallButton
run sh /packages/processes 1
press InstallButton
wait button OkButton
state
log
run sh /packages/processes 100
press OkButton
state
press tab Log
state
END

    expect_status 0
    expect_transcript <<END
$FAILED
Cannot start : /mnt/usb/Foo.temp/kx_Updater -unzipedDir /mnt/usb/Foo.temp
$REMOVE
${REMOVE/Install/Log}
END
    # The clean-up has had its turn when no process could be started, and gets no other.
    expect_commands <<'END'
[sync]
[rm -r "/mnt/usb/Foo.temp"]
[mkdir -p "/mnt/usb/Foo.temp"]
[unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" ]
[sync]
END
    expect_children
    [ -d "$STATE/drive/Foo.temp" ] || fail 'the unpacked folder is gone'
}

# ---- children that write ----

@test "each piece of output is followed by an empty line, and brings the log to the front" {
    drive_child <<'END'
mkfifo /tmp/then
cat /tmp/go
printf 'one\ntwo\n'
cat /tmp/then
printf 'half' >&2
END

    window <<END
$INSTALL
state
$LET_GO
wait log two
state
log
press tab Install
wait tab Install
run cp /dev/null /tmp/then
wait button OkButton
log
END

    # Byte for byte here.
    same "$TRANSCRIPT" 'the transcript' <<END
$INSTALLING
$LOGGING
one
two


one
two

half

END
}

@test "10,000 lines: all of them are in the log, in order" {
    drive_child <<'END'
i=0
while [ $i -lt 10000 ]; do
    i=$((i + 1))
    echo $i
done
END

    window <<END
$INSTALL
wait button OkButton
state
log
END

    { echo "$INSTALLED" && seq 10000; } | expect_transcript
    expect_children 'imp_proc_finished  exitCode = 0, ExitStatus=0'
}

@test "1 MiB without a line break: the panel goes on, and the log holds it all" {
    drive_child <<'END'
head -c 1048576 /dev/zero | tr '\0' x
echo
echo waiting
cat /tmp/go
END

    window <<END
$INSTALL
wait log waiting
press tab Install
wait tab Install
press InstalledListButton
wait front InstalledListDialog
press closeButton
wait front MainWindow
$LET_GO
wait button OkButton
state
log-size
END

    # Every piece adds a line break.
    [ "$(head -n 1 "$TRANSCRIPT")" = "$INSTALLED" ]
    local size
    size=$(sed -n '2s/ characters, at the end$//p' "$TRANSCRIPT")
    [ "$size" -gt 1048576 ] && [ "$size" -lt 1100000 ] || fail "the log has '$size' characters"
}

@test "output that is no text: a piece ends at its zero byte, odd bytes are odd characters" {
    drive_child <<'END'
mkfifo /tmp/then
printf 'A\377B\tC\000lost\nlost, too\n'
cat /tmp/go
printf '\000nothing is left of this piece'
cat /tmp/then
printf '\360\237\230\200 \033[31mred\n'
END

    window <<END
$INSTALL
wait log C
$LET_GO
run cp /dev/null /tmp/then
wait button OkButton
state
log
END

    expect_transcript <<END
$INSTALLED
A$(printf '\357\277\275')B	C
😀 $(printf '\033')[31mred
END
}

# ---- children that go on ----

# The user looks around while the child is busy.
LOOK_AROUND="press tab Log
wait tab Log
press tab Install
wait tab Install
press InstalledListButton
wait front InstalledListDialog
press closeButton
wait front MainWindow
state"

@test "a child that closes its output goes on, and its code counts" {
    drive_child <<'END'
exec >&- 2>&-
cat /tmp/go >/dev/null
exit 4
END

    window <<END
$INSTALL
$LOOK_AROUND
$LET_GO
wait button OkButton
state
log
press OkButton
state
END

    expect_transcript <<END
$INSTALLING
$FAILED
$REMOVE
END
    expect_window Foo </dev/null
    expect_children 'imp_proc_finished  exitCode = 4, ExitStatus=0'
}

@test "a child that ends while one of its own keeps the output open has ended" {
    drive_child <<'END'
sh -c 'echo $$ >/tmp/child; echo begun; cat /tmp/go; echo late' &
while [ ! -s /tmp/child ]; do :; done
END

    window --keep <<END
$INSTALL
wait button OkButton
state
$LET_GO
run sh /packages/wait-for /tmp/child
press OkButton
state
log
END

    expect_transcript <<END
$INSTALLED
$REMOVE
begun
END
    expect_window Foo <<'END'
[echo $$ >/tmp/child; echo begun; cat /tmp/go; echo late]
END
    expect_drive <<<'./Foo.kx-update'
}

@test "the list that is open when the child ends gives back the tab that was in front before" {
    drive_child <<'END'
echo waiting
cat /tmp/go
END

    window <<END
$INSTALL
wait log waiting
press InstalledListButton
wait front InstalledListDialog
$LET_GO
wait message 'The installation completed successfully.'
press closeButton
wait front MainWindow
state
press tab Install
press OkButton
state
END

    expect_transcript <<END
${INSTALLED/Install | package/Log | package}
$REMOVE
END
    expect_window Foo </dev/null
}

@test "a window that ends while the child runs takes the child with it and leaves the rest" {
    drive_child <<'END'
echo $$ >/tmp/child
echo waiting
cat /tmp/go
END

    window --keep --look 'sh /packages/wait-for /tmp/child && ls /proc/$(cat /tmp/child)' <<END
$INSTALL
wait log waiting
$LOOK_AROUND
quit
END

    expect_status 0
    expect_transcript <<<"$INSTALLING"
    expect_commands <<'END'
[sync]
[rm -r "/mnt/usb/Foo.temp"]
[mkdir -p "/mnt/usb/Foo.temp"]
[unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" ]
[sync]
END
    grep -qF 'QProcess: Destroyed while process ("/mnt/usb/Foo.temp/kx_Updater") is still running.' \
        "$ERR"
    grep -q 'No such file' "$PANEL"
    [ -d "$STATE/drive/Foo.temp" ] || fail 'the unpacked folder is gone'
}

@test "the installer goes on to its end when the window is killed" {
    drive_package Foo <<'END'
script("#!/bin/sh\nsed -n 's/^PPid:[^0-9]*//p' /proc/$PPID/status >/tmp/child\n"
       "mkfifo /tmp/go\necho waiting\ncat /tmp/go\n")
copy_file(item("a", "/opt/demo/a"), record=True)
END

    window --look 'sh /packages/wait-for /tmp/child; ls -A /opt/demo /var/lib/KxUserPackages' \
        -- sh /packages/known "$UPDATER" -upDir /mnt/usb <<END
$INSTALL
wait log waiting
run sh /packages/send KILL /tmp/window
wait end
$LET_GO
END

    expect_status 137
    expect_panel <<'END'
/opt/demo:
a

/var/lib/KxUserPackages:
Foo
END
}
