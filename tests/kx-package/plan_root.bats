#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package plan --root: a panel's files.

load plan

# ---- a panel's files ----

@test "a root: what is there is not made, an older record is cleared" {
    make Foo <<'END'
copy_file(item("a", "/opt/demo/a", "755"), record=True)
copy_folder(folder("/opt/share", {"b": "b"}), record=True)
END
    mkdir -p root/opt/demo root/opt/share root/mnt/usb/Foo.temp/old root/var/lib/KxUserPackages/Foo
    : >root/var/lib/KxUserPackages/Foo/installedFile.list
    find root | sort >before

    kx plan --json --root root Foo

    [ "$status" -eq 0 ]
    expect_commands '.process == "installer"' <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[rm -r "/var/lib/KxUserPackages/Foo"]
[cp -f "/mnt/usb/Foo.temp/0/0/a" "/opt/demo/a" ]
[chmod 755 "/opt/demo/a" ]
[cp -f "/mnt/usb/Foo.temp/1/0/b" "/opt/share/b" ]
[mkdir -p "/var/lib/KxUserPackages/Foo"]
[cp -f "/mnt/usb/Foo.temp/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" ]
[sync]
END
    [ "$(jq -c .recordedFolders out)" = '["/var/lib/KxUserPackages/Foo"]' ]
    find root | sort | diff before -
}

@test "a root: another package on the drive, and the window refuses both" {
    make Foo </dev/null
    mkdir -p root/mnt/usb
    : >root/mnt/usb/Foo.kx-update
    kx plan --root root Foo
    [ "$status" -eq 0 ]

    : >root/mnt/usb/Other.kx-update
    kx plan --root root Foo

    [ "$status" -eq 1 ]
    [ "$(tail -n 1 out)" = 'The window finds another package beside this one, and refuses both.' ]
    kx plan --json --root root Foo
    [ "$(commands | tr -d '\n')" = '[sync][/usr/bin/kxsystem/usb_umount][/sbin/reboot]' ]
    jq -e '.found or .unpacked | not' out
}

@test "a root: files in the way of folders, and folders in the way of files" {
    make Foo <<'END'
copy_file(item("a", "/opt/file/a"), skip=True)
copy_file(item("b", "/opt/folder"))
END
    mkdir -p root/opt/folder/b
    : >root/opt/file

    kx plan --json --root root Foo

    [ "$status" -eq 1 ]
    expect_commands '.step != null' <<'END'
[mkdir -p "/opt/file/"]
[cp -f "/mnt/usb/Foo.temp/0/0/a" "/opt/file/a" ]
[cp -f "/mnt/usb/Foo.temp/1/0/b" "/opt/folder" ]
END
}

@test "a root: a record that cannot be written is told as such" {
    make Foo </dev/null
    mkdir -p root/var/lib
    : >root/var/lib/KxUserPackages

    kx plan --root root Foo

    [ "$status" -eq 1 ]
    [ "$(tail -n 1 out)" = 'The steps succeed, but the package cannot be recorded.' ]
}

@test "a root: links lead to what they mean on the panel, never out of it" {
    mkdir -p outside/share root/usr/bin root/mnt
    : >outside/file
    ln -s usr/bin root/bin
    ln -s "$PWD/outside" root/away
    ln -s "../../../../../../..$PWD/outside" root/mnt/up
    make Foo <<'END'
copy_file(item("a", "/bin/a", "755"))
copy_folder(folder("/away/share", {"b": "b"}), skip=True)
copy_folder(folder("/mnt/up/share", {"c": "c"}), skip=True)
END

    kx plan --json --root root Foo

    [ "$status" -eq 0 ]
    # Neither folder is there on the panel: links that lead nowhere are in the way.
    expect_commands '.step != null' <<'END'
[cp -f "/mnt/usb/Foo.temp/0/0/a" "/bin/a" ]
[chmod 755 "/bin/a" ]
[mkdir -p "/away/share"]
[cp -f "/mnt/usb/Foo.temp/1/0/b" "/away/share/b" ]
[mkdir -p "/mnt/up/share"]
[cp -f "/mnt/usb/Foo.temp/2/0/c" "/mnt/up/share/c" ]
END
    jq -e '.log | map(select(startswith("File copy error( = 256)"))) | length == 2' out
}

@test "a root with FIFOs, sockets and a file without end is only looked at" {
    mkdir -p root/opt/in
    mkfifo root/opt/fifo root/opt/in/fifo
    truncate -s 1T root/opt/huge
    /usr/bin/python3 -c 'import socket; socket.socket(socket.AF_UNIX).bind("root/opt/socket")'
    make Foo <<'END'
copy_file(item("a", "/opt/fifo", "600"), item("b", "/opt/socket", "600"), item("c", "/opt/huge", "600"))
copy_folder(folder("/srv", {"l": link("/opt")}), skip=True)
END

    bounded plan --json --root root Foo

    [ "$status" -eq 0 ]
    [ "$(commands | grep -cE '^\[(cp -f|chmod).*/opt/(fifo|socket|huge)" \]$')" -eq 6 ]
    # A link of the payload leads to the panel's folder; what is there is copied.
    expect_commands '.step == 2' <<'END'
[mkdir -p "/srv"]
[mkdir -p "/srv/l"]
[cp -f "/mnt/usb/Foo.temp/1/0/l/fifo" "/srv/l/fifo" ]
[cp -f "/mnt/usb/Foo.temp/1/0/l/huge" "/srv/l/huge" ]
[mkdir -p "/srv/l/in"]
[cp -f "/mnt/usb/Foo.temp/1/0/l/in/fifo" "/srv/l/in/fifo" ]
[cp -f "/mnt/usb/Foo.temp/1/0/l/socket" "/srv/l/socket" ]
END
}

@test "a root: a description that is a link to a huge file of the panel is not read whole" {
    mkdir -p root/opt Foo
    truncate -s 1T root/opt/huge
    ln -s /opt/huge Foo/UserPackage.kx-project

    bounded plan --root root Foo
    # The updater takes no file whose size an int cannot tell.
    [ "$status" -eq 1 ]
    [ "$(tail -n 1 out)" = 'The window cannot load the package: Unable to access /mnt/usb/Foo.temp/UserPackage.kx-project file. UserPackage.kx-project is a link to '"'/opt/huge'." ]
    truncate -s 300M root/opt/huge
    bounded plan --root root Foo
    expect 3 '' $'kx-package: root/opt/huge: is larger than 256.0 MiB\n'
}

@test "a root with a folder that may not be read is an error, not an empty one" {
    make Foo <<'END'
copy_file(item("a", "/opt/closed/sub/a"))
END
    mkdir -p root/opt/closed/sub
    chmod 000 root/opt/closed

    without_rights plan --root root Foo

    chmod 755 root/opt/closed
    expect 3 '' $'kx-package: root/opt/closed/sub: cannot look at: Permission denied\n'
    make Bar <<'END'
copy_folder(folder("/srv", {"l": link("/opt/closed")}))
END
    chmod 311 root/opt/closed
    without_rights plan --json --root root Bar
    chmod 755 root/opt/closed
    [ "$status" -eq 3 ]
    [ "$(jq -c .error out)" = '{"code":3,"message":"cannot list: Permission denied","place":"root/opt/closed","remedy":""}' ]
    [ ! -s err ]
}

@test "a root: the description of a panel names it, --root counts more" {
    mkdir -p tp/root/mnt/user/bin other
    echo 'root = "root"' >tp/panel.toml
    make Foo <<'END'
copy_file(item("a", "/mnt/user/bin/a", "600"))
END
    kx plan --json --root tp/root Foo
    mv out wanted
    kx plan --json --panel tp/panel.toml Foo
    [ "$status" -eq 0 ]
    cmp out wanted
    kx plan --json --root other Foo
    mv out wanted
    kx plan --json --panel tp/panel.toml --root other Foo
    cmp out wanted
    kx plan --panel none.toml Foo
    [ "$status" -eq 1 ]
}
