#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Standard streams in every condition: the installation does not depend on them.

load device

setup() {
    device_setup
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "644", "data of the file\n"))
script("#!/bin/sh\necho one; echo two\n")
copy_file(item("b", "/opt/demo/b", "644", "data of the other file\n"))
END
    prepare --keep -- "$UPDATER" -unzipedDir /packages/Foo
    cat >"$WORK/whole" <<'END'
**** Installation step 1/3
**** Installation step 2/3
one
two
**** Installation step 3/3
Installation succeeded.
END
}

# expect_installed: the package is complete, each file has its own contents and nothing else.
expect_installed() {
    expect_status 0
    expect_installing Foo <<'END'
[mkdir -p "/opt/demo/"]
[cp -f "/packages/Foo/0/0/a" "/opt/demo/a" ]
[chmod 644 "/opt/demo/a" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
[cp -f "/packages/Foo/2/0/b" "/opt/demo/b" ]
[chmod 644 "/opt/demo/b" ]
END
    device --keep -- sh -c 'cd /opt/demo; ls; cat *; cd /var/lib/KxUserPackages/Foo
        cmp UserPackage.kx-project /packages/Foo/UserPackage.kx-project; cat installedFile.list
        cat /tmp/Zt/temp.sh'
    expect_out <<'END'
a
b
data of the file
data of the other file
 #dir
/var/lib/KxUserPackages/Foo
 #file
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
#!/bin/sh
echo one; echo two
END
}

@test "a pipe and a file receive the same bytes" {
    "${DEVICE[@]}" </dev/null 2>"$ERR" | cat >"$OUT"
    finish
    expect_out <"$WORK/whole"
    expect_silence

    status=0
    "${DEVICE[@]}" </dev/null >"$OUT" 2>"$ERR" || status=$?
    expect_out <"$WORK/whole"
    expect_silence
    expect_status 0
}

@test "a file that is appended to keeps what it had" {
    echo 'from before' >"$OUT"
    status=0
    "${DEVICE[@]}" </dev/null >>"$OUT" 2>&1 || status=$?

    { echo 'from before' && cat "$WORK/whole"; } | expect_out
    expect_installed
}

@test "every line is there as soon as it is written, while a step still runs" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
script("#!/bin/sh\nmkfifo /root/go; read -r line <&0\n")
END
    mkfifo "$WORK/in" "$WORK/out-pipe"
    "${DEVICE[@]}" <"$WORK/in" >"$WORK/out-pipe" 2>"$ERR" 3>&- &
    local child=$! line
    exec 4>"$WORK/in" 5<"$WORK/out-pipe"

    # The step waits for its input: its line must come without anything behind it.
    read -r -t 60 line <&5
    [ "$line" = '**** Installation step 1/1' ]

    echo go >&4
    read -r -t 60 line <&5
    [ "$line" = 'Installation succeeded.' ]
    exec 4>&- 5<&-
    wait "$child"
}

@test "a closed standard output does not matter" {
    status=0
    "${DEVICE[@]}" </dev/null >&- 2>"$ERR" || status=$?
    finish

    # Only the script's echo minds.
    expect_installed
}

@test "a closed standard input does not matter" {
    status=0
    "${DEVICE[@]}" <&- >"$OUT" 2>"$ERR" || status=$?
    finish

    expect_out <"$WORK/whole"
    expect_silence
    expect_installed
}

@test "with all three streams closed no file receives what belongs to a stream" {
    status=0
    "${DEVICE[@]}" <&- >&- 2>&- || status=$?

    expect_installed
}

@test "a full standard output and a full standard error do not matter" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "644", "data of the file\n"))
script("#!/bin/sh\nexit 0\n")
copy_file(item("b", "/opt/demo/b", "644", "data of the other file\n"))
END
    status=0
    "${DEVICE[@]}" </dev/null >/dev/full 2>/dev/full || status=$?

    expect_status 0
    device --keep -- cat /opt/demo/a /opt/demo/b /var/lib/KxUserPackages/Foo/installedFile.list
    expect_out <<'END'
data of the file
data of the other file
 #dir
/var/lib/KxUserPackages/Foo
 #file
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "a failure keeps its exit code when nobody can read its message" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
script("#!/bin/sh\nexit 5\n")
END
    local stream
    for stream in '>&-' '>/dev/full' '<&- >&- 2>&-'; do
        status=0
        eval '"${DEVICE[@]}"' "$stream" || status=$?
        expect_status 101
        expect_failing <<'END'
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
END
    done
}

@test "the reader of standard output goes away: the installation goes on and succeeds" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
script("#!/bin/sh\nread -r line\n")
copy_file(item("a", "/opt/demo/a", "644", "data\n"))
script("#!/bin/sh\nkill -0 $$ && touch /root/third\n")
END
    mkfifo "$WORK/in" "$WORK/out-pipe"
    "${DEVICE[@]}" <"$WORK/in" >"$WORK/out-pipe" 2>"$ERR" 3>&- &
    local child=$! line
    exec 4>"$WORK/in" 5<"$WORK/out-pipe"
    read -r -t 60 line <&5
    [ "$line" = '**** Installation step 1/3' ]

    # Nobody reads from here on, and only then the first step ends.
    exec 5<&-
    echo go >&4
    exec 4>&-

    status=0
    wait "$child" || status=$?
    finish
    expect_status 0
    expect_silence
    device --keep -- sh -c 'cat /opt/demo/a; ls /root /var/lib/KxUserPackages'
    expect_out <<'END'
data
/root:
third

/var/lib/KxUserPackages:
Foo
END
}

# tell_ignored: makes a script, /packages/ignored inside, that tells which signals are ignored.
tell_ignored() {
    cat >"$PACKAGES/ignored" <<'END'
mask=0x$(sed -n 's/^SigIgn:[[:space:]]*//p' /proc/$$/status)
echo "SIGPIPE $((mask >> 12 & 1)), SIGCHLD $((mask >> 16 & 1))"
END
}

@test "commands get the default action for SIGPIPE and SIGCHLD" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
script("#!/bin/sh\n. /packages/ignored\n"
       "yes | head -n 1 >/dev/null && echo a pipe ends quietly\n")
END
    tell_ignored
    status=0
    "${DEVICE[@]}" </dev/null >"$OUT" 2>"$ERR" || status=$?
    finish

    expect_out <<'END'
**** Installation step 1/1
SIGPIPE 0, SIGCHLD 0
a pipe ends quietly
Installation succeeded.
END
    expect_silence
}

@test "a starter that ignores SIGCHLD gets the same installation" {
    install Foo --keep --ignore-sigchld

    expect_out <"$WORK/whole"
    expect_silence
    expect_installed
}

@test "a starter that ignores SIGPIPE gets the same installation, and its commands ignore it too" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
script("#!/bin/sh\n. /packages/ignored\n")
END
    tell_ignored
    device -- /usr/bin/python3 -c '
import os, signal, sys
signal.signal(signal.SIGPIPE, signal.SIG_IGN)
os.execv(sys.argv[1], sys.argv[1:])' "$UPDATER" -unzipedDir /packages/Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
SIGPIPE 1, SIGCHLD 0
Installation succeeded.
END
}
