#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The record of an installation: its name, its life, its failures.

load device

REGISTRY=/var/lib/KxUserPackages

# install_from FOLDER [OPTION...]: installs the package Foo from a folder of another name.
install_from() {
    local folder=$1
    shift
    mv "$PACKAGES/Foo" "$PACKAGES/$folder"
    install "$folder" "$@"
    mv "$PACKAGES/$folder" "$PACKAGES/Foo"
}

@test "the record's name is the folder's, five characters shorter when .temp is in it anywhere" {
    package Foo </dev/null

    local folder
    for folder in Foo.temp plain a.temporary x.temp.y .temp12345 'blanks in it.temp' UPPER.TEMP; do
        install_from "$folder" --keep
        expect_status 0
    done

    device --keep -- find "$REGISTRY" -mindepth 1 -maxdepth 1 -printf '%f\n'
    LC_ALL=C sort -o "$OUT" "$OUT"
    expect_out <<'END'
.temp
Foo
UPPER.TEMP
a.temp
blanks in it
plain
x.t
END
}

@test "an installation is recorded under its new name in the list as well" {
    package Foo.temp <<'END'
copy_file(item("a", "/opt/demo/a"), record=True)
END

    install Foo.temp --look "cat $REGISTRY/Foo/installedFile.list"

    expect_status 0
    expect_commands <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/opt/demo/"]
[cp -f "/packages/Foo.temp/0/0/a" "/opt/demo/a" ]
[chmod 777 "/opt/demo/a" ]
[mkdir -p "/var/lib/KxUserPackages/Foo"]
[cp -f "/packages/Foo.temp/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" ]
[sync]
END
    expect_panel <<'END'
 #dir
/opt/demo/
/var/lib/KxUserPackages/Foo
 #file
/opt/demo/a
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "a backslash and a colon in the folder's name start the record's name" {
    package 'C:\work\Bar' </dev/null
    package 'a:b' </dev/null

    install 'C:\work\Bar' --keep
    expect_status 0
    install a:b --keep --look "ls -A $REGISTRY"

    expect_status 0
    expect_panel <<'END'
Bar
b
END
}

@test "a slash behind the folder makes the registry itself the record: all records are gone" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"), record=True)
END
    install Foo --keep
    expect_status 0

    device --keep --look "find $REGISTRY | sort; cat $REGISTRY/installedFile.list" -- \
        "$UPDATER" -unzipedDir /packages/Foo/

    expect_status 0
    expect_silence
    expect_commands <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[rm -r "/var/lib/KxUserPackages/"]
[cp -f "/packages/Foo//0/0/a" "/opt/demo/a" ]
[chmod 777 "/opt/demo/a" ]
[mkdir -p "/var/lib/KxUserPackages/"]
[cp -f "/packages/Foo//UserPackage.kx-project" "/var/lib/KxUserPackages//UserPackage.kx-project" ]
[sync]
END
    expect_panel <<'END'
/var/lib/KxUserPackages
/var/lib/KxUserPackages/UserPackage.kx-project
/var/lib/KxUserPackages/installedFile.list
 #dir
/var/lib/KxUserPackages/
 #file
/opt/demo/a
/var/lib/KxUserPackages//UserPackage.kx-project
/var/lib/KxUserPackages//installedFile.list
END
}

@test "a folder named .temp does the same" {
    package Foo </dev/null
    package .temp </dev/null
    install Foo --keep
    expect_status 0

    install .temp --keep --look "ls -A $REGISTRY"

    expect_status 0
    [ "$(commands | sed -n 3p)" = '[rm -r "/var/lib/KxUserPackages/"]' ]
    expect_panel <<'END'
UserPackage.kx-project
installedFile.list
END
}

@test "a relative folder and the dot: the name is what stands behind the last slash" {
    package Foo </dev/null

    device --keep --chdir /packages --look "ls -A $REGISTRY" -- "$UPDATER" -unzipedDir Foo
    expect_status 0
    expect_commands <<'END'
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/var/lib/KxUserPackages/Foo"]
[cp -f "Foo/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" ]
[sync]
END

    device --keep --chdir /packages/Foo --look "ls -A $REGISTRY" -- "$UPDATER" -unzipedDir .
    expect_status 0
    # rm refuses to remove the dot.
    [ "$(commands | sed -n 3p)" = '[rm -r "/var/lib/KxUserPackages/."]' ]
    [ -s "$ERR" ]
    expect_panel <<'END'
Foo
UserPackage.kx-project
installedFile.list
END
}

@test "the old record is gone before the first step runs" {
    package Foo <<'END'
script("#!/bin/sh\nls /var/lib/KxUserPackages | wc -l\n")
END
    install Foo --keep
    expect_status 0

    install Foo --keep

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
0
Installation succeeded.
END
}

@test "a second installation that fails leaves no record of that name, and those of others" {
    package Foo </dev/null
    package Other </dev/null
    install Foo --keep
    install Other --keep
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
script("#!/bin/sh\nexit 1\n")
END

    install Foo --keep --look "ls -A $REGISTRY"

    expect_status 101
    expect_failing <<'END'
[rm -r "/var/lib/KxUserPackages/Foo"]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
END
    expect_panel <<<Other
}

@test "a description that cannot be read leaves the old record alone" {
    package Foo </dev/null
    install Foo --keep
    : >"$PACKAGES/Foo/UserPackage.kx-project"

    install Foo --keep --look "ls -A $REGISTRY/Foo"

    expect_status 101
    expect_commands <<'END'
[sync]
[sync]
END
    expect_panel <<'END'
UserPackage.kx-project
installedFile.list
END
}

@test "a step that uses the record's own folder is recorded once" {
    package Foo <<'END'
copy_folder(folder("/var/lib/KxUserPackages/Foo", {"extra": "x", "installedFile.list": "old"}),
            record=True)
END

    install Foo --look "cat $REGISTRY/Foo/installedFile.list"

    expect_status 0
    expect_panel <<'END'
 #dir
/var/lib/KxUserPackages/Foo
 #file
/var/lib/KxUserPackages/Foo/extra
/var/lib/KxUserPackages/Foo/installedFile.list
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
END
}

@test "a file in the record's place: the copy of the description fails" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"))
END

    device -- sh -c "mkdir -p $REGISTRY && touch $REGISTRY/Foo && exec $UPDATER -unzipedDir /packages/Foo"

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END
    [ "$(commands | tail -n 1)" = '[sync]' ]
}

@test "a record that does not fit on the disk ends with 101 after the installation succeeded" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"))
END

    install Foo --full "$REGISTRY" --look "ls -A $REGISTRY/Foo; cat /opt/demo/a"

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END
    expect_installing Foo <<'END'
[mkdir -p "/opt/demo/"]
[cp -f "/packages/Foo/0/0/a" "/opt/demo/a" ]
[chmod 777 "/opt/demo/a" ]
END
    grep -q 'No space left on device' "$ERR"
    # The file was created before its contents found no room; no list was written.
    expect_panel <<'END'
UserPackage.kx-project
payload
END
}

@test "a read-only registry and a failing copy of the description end with 101, without a list" {
    package Foo </dev/null

    install Foo --read-only /var/lib --look "ls -A /var/lib"
    expect_status 101
    expect_out <<<'Installation succeeded.'
    [ "$(commands | tail -n 1)" = '[sync]' ]

    install Foo --fail cp=1 --look "ls -A $REGISTRY/Foo"
    expect_status 101
    expect_out <<<'Installation succeeded.'
    expect_panel </dev/null
}

@test "a list that cannot be written ends with 101" {
    package Foo <<'END'
copy_folder(folder("/var/lib/KxUserPackages/Foo/installedFile.list", {"in": "the way"}))
END

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END
    expect_silence
}

@test "an old record that cannot be removed does not stop the installation" {
    package Foo </dev/null
    install Foo --keep

    install Foo --keep --fail rm=1 --look "cat $REGISTRY/Foo/installedFile.list"

    expect_status 0
    expect_out <<<'Installation succeeded.'
    expect_panel <<'END'
 #dir
/var/lib/KxUserPackages/Foo
 #file
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}
