#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Folders that travel in one archive (fast = true): built by kx-package, installed on the sandboxed
# device, compared with the same folder without.

load device

setup() {
    device_setup
    TREE=$WORK/tree
    # A panel that has BusyBox and no other tools for what the steps do.
    BUSYBOX=()
    local tool
    for tool in chmod cp df du mkdir rm rmdir sh tar wc; do
        BUSYBOX+=(--share "$(command -v busybox)=/usr/bin/$tool")
    done
}

# tree: everything that a folder may hold.
tree() {
    local name=nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn
    local long=$TREE/$name/$name/$name
    mkdir -p "$TREE"/{sub/deep,empty/inside,.hidden} "$long"
    printf 'a\n' >"$TREE/a"
    printf '#!/bin/sh\nexit 0\n' >"$TREE/sub/run"
    : >"$TREE/sub/deep/nothing"
    printf 'dash' >"$TREE/-rf"
    printf 'blank' >"$TREE/.hidden/in the  name"
    printf 'utf-8' >"$TREE/Grüße 漢字"
    printf 'secret' >"$TREE/sub/secret"
    printf 'shared' >"$TREE/sub/shared"
    printf 'long' >"$long/$name.$name.$name"
    head -c 300000 /dev/urandom >"$TREE/sub/deep/large"
}

# build NAME [LINE...]: makes a package of the tree, with further lines for the step, and "> LINE"
# for the folder.
build() {
    local name=$1 step='' folder='' line
    shift
    for line; do
        case $line in
            '> '*) folder+=${line#> }$'\n' ;;
            *) step+=$line$'\n' ;;
        esac
    done
    cat >"$WORK/package.toml" <<END
[package]
name = "$name"
title = "Fast"
version = "1"
model = "TP-0700"
os-version = "2.1.0"
date = 2026-11-21
updater = "$KX_UPDATER"
[[steps]]
kind = "copy-folder"
$step
[[steps.folders]]
source = "tree"
target = "/opt/new/tree"
$folder
END
    "$KX_PACKAGE" build "$WORK/package.toml" -o "$WORK/" >"$OUT" 2>"$ERR" || fail 'not built'
    unpack "$name"
}

# unpack NAME: what the window does with a package.
unpack() {
    rm -rf "${PACKAGES:?}/$1"
    unzip -q "$WORK/$1.kx-update" -d "$PACKAGES/$1"
    rm "$PACKAGES/$1/kx_Updater"
}

# What a panel has of the tree: kinds, modes, owners, names, contents.
# By their full names, as BusyBox's shell takes its own tools otherwise.
LOOK='cd /opt/new && /usr/bin/find . -type d -printf "d %m %U:%G %p\n" -o -printf "%y %m %U:%G %s %p\n" | sort
    /usr/bin/find . -type f -exec /usr/bin/sha256sum {} + | sort'
MODES=('> executable = ["sub/run"]' '> modes = { "sub/secret" = "600", "sub/shared" = "666" }')

# with_umask MASK NAME [OPTION...]: unpacks and installs a package under a umask.
with_umask() {
    local mask=$1 name=$2
    shift 2
    (umask "$mask" && unpack "$name" && chmod a+rx "$PACKAGES/$name")
    # shellcheck disable=SC2016 # expanded inside
    device "$@" -- sh -c 'umask "$1" && exec "$0" -unzipedDir "$2"' "$UPDATER" "$mask" \
        "/packages/$name"
    expect_status 0
    expect_silence
}

# look_like NAME: what the panel looks like must be what it looked like before.
look_like() {
    expect_panel <"$WORK/$1"
}

@test "a new folder is the same as without, byte for byte and mode for mode" {
    tree
    build Plain "${MODES[@]}"
    build Fast 'fast = true' "${MODES[@]}"
    local mask
    for mask in 022 077 000; do
        with_umask "$mask" Plain --look "$LOOK"
        cp "$PANEL" "$WORK/plain"
        [ "$(grep -c '^f ' "$WORK/plain")" -eq 10 ] || fail 'files are missing'

        with_umask "$mask" Fast --look "$LOOK"
        look_like plain
        with_umask "$mask" Fast --look "$LOOK" "${BUSYBOX[@]}"
        look_like plain
    done
}

@test "the commands are the planned ones, and the record has nothing that is not there" {
    tree
    build Foo 'fast = true' "${MODES[@]}"

    install Foo --look 'cat /var/lib/KxUserPackages/Foo/installedFile.list; ls -A /opt/new'

    expect_status 0
    expect_silence
    expect_installing Foo <<'END'
[mkdir -p "/opt/new/"]
[cp -f "/packages/Foo/0/0/files.tar" "/opt/new/tree.kx-fast.tar" ]
[chmod 600 "/opt/new/tree.kx-fast.tar" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
END
    expect_out <<'END'
**** Installation step 1/2
**** Installation step 2/2
Installation succeeded.
END
    expect_panel <<'END'
 #dir
/var/lib/KxUserPackages/Foo
 #file
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
tree
END
}

# existing NAME [OPTION...]: installs a package where there are files already: one with a mode, an
# owner and a second name, links to a file and to a folder, and a file of others.
existing() {
    local name=$1
    shift
    cat >"$WORK/before" <<'END'
mkdir -p /opt/new/tree/sub /opt/new/elsewhere && cd /opt/new || exit
echo before >tree/a && chmod 640 tree/a && chown 7:8 tree/a && ln tree/a second
echo before >linked && ln -s ../../linked tree/sub/run && ln -s ../../elsewhere tree/sub/deep
echo before >tree/sub/other && chmod 700 tree/sub
END
    # shellcheck disable=SC2016 # expanded inside
    device "$@" --share "$WORK/before=$KIT/before" --look 'cd /opt/new
        /usr/bin/find tree/a tree/sub second linked elsewhere ! -name secret ! -name shared \
            \( -type d -printf "%M %U:%G %p\n" -o -printf "%M %U:%G %n %p %l\n" \) | sed "s/ \$//" | sort -k 3
        head -n 3 second linked tree/sub/other tree/a tree/sub/run' -- \
        sh -c '. "$0" && exec "$1" -unzipedDir "$2"' "$KIT/before" "$UPDATER" "/packages/$name"
    expect_status 0
    expect_silence
}

@test "what differs in an existing folder is what the guide says" {
    tree
    build Plain "${MODES[@]}"
    build Fast 'fast = true' "${MODES[@]}"

    existing Plain
    expect_panel <<'END'
-rw-r--r-- 0:0 1 elsewhere/large
-rw-r--r-- 0:0 1 elsewhere/nothing
-rw-r--r-- 0:0 1 linked
lrwxrwxrwx 0:0 1 tree/sub/deep ../../elsewhere
-rw-r--r-- 0:0 1 tree/sub/other
lrwxrwxrwx 0:0 1 tree/sub/run ../../linked
-rw-r----- 7:8 2 second
-rw-r----- 7:8 2 tree/a
drwxr-xr-x 0:0 elsewhere
drwx------ 0:0 tree/sub
==> second <==
a

==> linked <==
#!/bin/sh
exit 0

==> tree/sub/other <==
before

==> tree/a <==
a

==> tree/sub/run <==
#!/bin/sh
exit 0
END
    existing Fast
    expect_panel <<'END'
-rw-r--r-- 0:0 1 elsewhere/large
-rw-r--r-- 0:0 1 elsewhere/nothing
-rw-r--r-- 0:0 1 linked
-rw-r----- 7:8 1 second
-rw-r--r-- 0:0 1 tree/a
lrwxrwxrwx 0:0 1 tree/sub/deep ../../elsewhere
-rw-r--r-- 0:0 1 tree/sub/other
-rwxr-xr-x 0:0 1 tree/sub/run
drwxr-xr-x 0:0 elsewhere
drwx------ 0:0 tree/sub
==> second <==
before

==> linked <==
before

==> tree/sub/other <==
before

==> tree/a <==
a

==> tree/sub/run <==
#!/bin/sh
exit 0
END
    cp "$PANEL" "$WORK/gnu"
    existing Fast "${BUSYBOX[@]}"
    look_like gnu
}

# refused LINE: the installation of Foo failed in its script, which said that, and left no archive.
refused() {
    expect_status 101
    grep -qxF "kx-fast: $1" "$OUT" || fail "the log does not say: $1"
    grep -qx 'Script execution returned an error(=256) in step no 2' "$OUT" || fail 'another step'
    expect_panel </dev/null
}

@test "without tar, or without room, nothing is left but what the log explains" {
    tree
    build Foo 'fast = true'
    build Other 'fast = true' '> archive = "/tmp/files.tar"'
    local archives='find /opt/new /tmp -name "*.tar"'

    install Foo --missing tar --look "$archives"
    refused 'this panel has no tar to unpack /opt/new/tree.kx-fast.tar'

    # The archive itself does not get there.
    install Foo --full /opt/new --look "ls -A /opt/new"
    refused '/opt/new/tree.kx-fast.tar has 0 of 311296 bytes: is there room for it?'
    grep -q '^File copy error(= 256) is corrupted\.' "$OUT" || fail 'the copy is not reported'

    # It gets there, and the tree does not.
    install Other --full /opt/new --look "ls -A /opt/new/tree; $archives"
    refused 'no room in /opt/new/tree: 10 files need 301 KiB beside their archive, 0 are free'
    # How much is free is not known.
    # Some of the files may be there: as with plain copies.
    install Other --full /opt/new --missing df --look "$archives"
    refused 'tar could not unpack all of the 10 files of /tmp/files.tar to /opt/new/tree'
}

@test "a target that cannot be made, or is no folder, is told" {
    tree
    build Foo 'fast = true' '> archive = "/tmp/files.tar"'
    local archives='find /tmp /opt/new -name "*.tar"'

    device --put "$TREE/a=/opt/new/tree" --look "$archives" -- "$UPDATER" -unzipedDir /packages/Foo
    refused 'cannot make the folder /opt/new/tree'

    # A file where the tree has a folder.
    device --put "$TREE/a=/opt/new/tree/sub" --look "$archives" -- "$UPDATER" -unzipedDir /packages/Foo
    refused 'tar could not unpack all of the 10 files of /tmp/files.tar to /opt/new/tree'
    device --put "$TREE/a=/opt/new/tree/sub" "${BUSYBOX[@]}" --look "$archives" -- "$UPDATER" \
        -unzipedDir /packages/Foo
    refused 'tar could not unpack all of the 10 files of /tmp/files.tar to /opt/new/tree'

    # A folder of which the name is a file's.
    device --put "$TREE/a=/opt/new/tree/empty" --look "$archives" -- "$UPDATER" \
        -unzipedDir /packages/Foo
    refused 'cannot make the folder /opt/new/tree/./empty/inside'
}

@test "an installation may be repeated, and goes on after the power was cut" {
    tree
    build Foo 'fast = true' "${MODES[@]}"
    install Foo --look "$LOOK"
    cp "$PANEL" "$WORK/whole"

    # Before the script; while it unpacks; before it has removed the archive.
    local cut shares
    # shellcheck disable=SC2016 # expanded inside
    for cut in '' 'head -c 100000 "$5" | /usr/bin/gtar -x -C "$7"' '/usr/bin/gtar "$@"'; do
        printf '#!/bin/sh\n%s\nkill -9 -1\n' "$cut" >"$WORK/tar"
        chmod 755 "$WORK/tar"
        shares=(--share "$(command -v tar)=/usr/bin/gtar" --share "$WORK/tar=/usr/bin/tar")
        [ -n "$cut" ] || shares=(--share "$WORK/tar=/tmp/Zt/temp.sh")
        install Foo --keep "${shares[@]}"
        [ "$status" -ne 0 ] || fail 'the power was not cut'
        device --keep -- ls /opt/new/tree.kx-fast.tar
        expect_status 0
        device --keep -- ls /var/lib/KxUserPackages/Foo
        expect_status 2

        install Foo --keep --look "$LOOK"
        expect_status 0
        look_like whole
        install Foo --keep --look "$LOOK"
        expect_status 0
        look_like whole
        "$RUN" --erase --state "$STATE"
    done
}

@test "a new version replaces what an old one has left of its archive" {
    tree
    build Foo 'fast = true'
    head -c 900000 /dev/urandom >"$WORK/old"

    device --put "$WORK/old=/opt/new/tree.kx-fast.tar" --look 'ls -A /opt/new; ls /opt/new/tree/a' \
        -- "$UPDATER" -unzipedDir /packages/Foo

    expect_status 0
    expect_silence
    expect_panel <<'END'
tree
/opt/new/tree/a
END
}

@test "the uninstall script removes the files that came, and nothing else" {
    tree
    build Foo 'fast = true' "${MODES[@]}"
    "$KX_PACKAGE" show --json "$PACKAGES/Foo" | jq -r '.steps[1].uninstall' >"$WORK/uninstall"
    local tools
    for tools in '' "${BUSYBOX[*]}"; do
        # shellcheck disable=SC2016,SC2086 # expanded inside; options
        device $tools --share "$WORK/uninstall=$KIT/uninstall" --look 'find /opt/new | sort' -- \
            sh -c '"$0" -unzipedDir /packages/Foo && cd /opt/new/tree &&
                echo mine >sub/mine && mkdir own && echo mine >own/a && rm a && cd / &&
                sh "$1"' "$UPDATER" "$KIT/uninstall"
        expect_status 0
        expect_silence
        expect_panel <<'END'
/opt/new
/opt/new/tree
/opt/new/tree/own
/opt/new/tree/own/a
/opt/new/tree/sub
/opt/new/tree/sub/mine
END
    done

    device --share "$WORK/uninstall=$KIT/uninstall" -- sh "$KIT/uninstall"
    expect_status 0
    expect_silence
}
