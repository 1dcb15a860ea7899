#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The updater is killed in the middle: what is left, and how the next installation goes.

load device

LOOK='cd /opt/demo; grep . *; ls -A /var/lib; ls -A /packages/Foo'

setup() {
    device_setup
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "644", "from step 1\n"), record=True)
script("#!/bin/sh\necho waiting >/root/ready\nread -r line </root/never\n")
copy_file(item("c", "/opt/demo/c", "644", "from step 3\n"), record=True)
END
    cat >"$PACKAGES/kill.sh" <<'END'
mkfifo /root/ready /root/never
"$1" -unzipedDir /packages/Foo &
read -r line </root/ready
kill -s "$2" $!
wait $!
END
}

# kill_by SIGNAL: kills the updater while the script of step 2 waits; the exit status is its own.
kill_by() {
    device --keep --look "$LOOK" -- sh /packages/kill.sh "$UPDATER" "$1"
}

# expect_half: the first step's file is there, nothing of the third, no record, the whole package.
expect_half() {
    expect_out <<'END'
**** Installation step 1/3
**** Installation step 2/3
END
    # There is no second sync.
    expect_commands <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/opt/demo/"]
[cp -f "/packages/Foo/0/0/a" "/opt/demo/a" ]
[chmod 644 "/opt/demo/a" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
END
    expect_panel <<'END'
from step 1
0
2
UserPackage.kx-project
END
}

@test "killed while a script waits: files of earlier steps, no record, no second sync" {
    kill_by KILL
    expect_status 137
    expect_half
}

@test "asked to end while a script waits: the same" {
    kill_by TERM
    expect_status 143
    expect_half
}

@test "an interrupt while a command runs ends the command, not the updater" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
script("#!/bin/sh\nkill -s INT $(sed -n 's/^PPid:[^0-9]*//p' /proc/$PPID/status)\necho goes on\n")
script("#!/bin/sh\nkill -s INT $$\n")
END

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/2
goes on
**** Installation step 2/2
Script execution returned an error(=33280) in step no 2
Installation failed in step 2.
END
    [ "$(commands | tail -n 1)" = '[sync]' ]
}

@test "the installation after a killed one does everything anew" {
    kill_by KILL
    expect_status 137
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "600", "anew\n"), record=True)
script("#!/bin/sh\nexit 0\n")
copy_file(item("c", "/opt/demo/c", "644", "from step 3\n"), record=True)
END

    install Foo --keep --look 'cd /opt/demo; grep . *
        cat /var/lib/KxUserPackages/Foo/installedFile.list'

    expect_status 0
    expect_panel <<'END'
a:anew
c:from step 3
 #dir
/var/lib/KxUserPackages/Foo
 #file
/opt/demo/a
/opt/demo/c
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "killed within a copy: the old record is gone, the new one is not there" {
    rm -r "$PACKAGES/Foo"
    package Foo </dev/null
    install Foo --keep
    expect_status 0
    rm -r "$PACKAGES/Foo"
    # The shell that copies has the updater as its parent.
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "644", "from step 1\n"))
copy_file(item("b", "/opt/demo/$(kill -s KILL $PPID)b", "644"))
END

    install Foo --keep
    expect_status 137
    expect_out <<'END'
**** Installation step 1/2
**** Installation step 2/2
END

    device --keep -- sh -c 'cat /opt/demo/a; ls -A /var/lib/KxUserPackages'
    expect_out <<<'from step 1'
}

@test "killed while the record is written: a folder without a list is no record, and is replaced" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "644"), record=True)
put("tools/cp", "#!/bin/sh\n"
    "case $3 in\n"
    "    */KxUserPackages/*) /bin/cp \"$@\"; kill -s KILL $(sed -n 's/^PPid:[^0-9]*//p' /proc/$PPID/status) ;;\n"
    "    *) exec /bin/cp \"$@\" ;;\n"
    "esac\n", 0o755)
END

    install Foo --keep --env PATH=/packages/Foo/tools:/usr/bin:/bin
    expect_status 137
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END

    install Foo --keep --look 'ls -A /var/lib/KxUserPackages/Foo'
    expect_status 0
    [ "$(commands | sed -n 3p)" = '[rm -r "/var/lib/KxUserPackages/Foo"]' ]
    expect_panel <<'END'
UserPackage.kx-project
installedFile.list
END
}
