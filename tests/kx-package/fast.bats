#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Folders whose files travel in one archive: what the commands know of them. What a panel does with
# them is tested on the sandboxed device.
#
# shellcheck disable=SC2016 # texts for jq, and commands that are run later

load package

# fast FOLDER [LINE...]: the source of a package with a fast folder, with further lines for it,
# between a plain step and a script.
fast() {
    local folder=$1 line
    shift
    mkdir -p "$folder"/{tree/sub,tree/empty,plain}
    echo one >"$folder/tree/a"
    echo two >"$folder/tree/sub/b"
    echo plain >"$folder/plain/c"
    {
        printf '%s\n' '[package]' 'name = "fast"' 'title = "Fast"' 'version = "1"' 'model = "TP"' \
            'os-version = "2"' 'date = 2026-11-21' 'processor = "arm"' '[[steps]]' \
            'kind = "copy-folder"' '[[steps.folders]]' 'source = "plain"' 'target = "/mnt/user/p"' \
            '[[steps]]' 'kind = "copy-folder"' 'fast = true' 'comment = "maps"'
        for line; do
            printf '%s\n' "$line"
        done
        printf '%s\n' '[[steps.folders]]' 'source = "tree"' 'target = "/mnt/user/maps"' \
            '[[steps]]' 'kind = "script"' 'install = "#!/bin/sh\nexit 0\n"'
    } >"$folder/package.toml"
}

# built [LINE...]: builds fast.kx-update.
built() {
    fast source "$@"
    kx build source --updater arm-updater
    [ "$status" -eq 0 ]
    grep -q '^fast.kx-update: ' out
}

# description EXPRESSION: changes the description of fast.kx-update by jq.
description() {
    rm -rf changed
    unzip -q fast.kx-update -d changed
    tail -c +4 changed/UserPackage.kx-project | jq "$1" >json
    { printf '\xef\xbb\xbf' && cat json; } >changed/UserPackage.kx-project
}

@test "show tells of one folder, and of the files that the record does not list" {
    built 'skip = true'

    kx show fast.kx-update

    [ "$status" -eq 0 ]
    sed -n '/^steps 2/,$p' out >told
    diff told - <<'END'
steps 2 and 3 of 4: copy-folder, fast, may fail (maps)
  tree -> /mnt/user/maps, 2 files, by way of /mnt/user/maps.kx-fast.tar, 3.0 KiB

step 4 of 4: script
  install:
    | #!/bin/sh
    | exit 0
  uninstall:
    | #!/bin/sh

recorded on the panel
  folders, where they have to be made:
    /mnt/user/p
    /var/lib/KxUserPackages/fast
  files:
    /mnt/user/p/c
    /var/lib/KxUserPackages/fast/UserPackage.kx-project
    /var/lib/KxUserPackages/fast/installedFile.list

unpacked on the panel
Unpacked to /mnt/user/maps in step 3, from /mnt/user/maps.kx-fast.tar: 2 files, which the uninstall script removes
  /mnt/user/maps/empty  (folder)
  /mnt/user/maps/sub  (folder)
  /mnt/user/maps/a
  /mnt/user/maps/sub/b
Files that are there already are replaced: their modes, owners and other names are lost,
and links to files become files.
END
    kx show --json fast.kx-update
    jq -c '.fastFolders, [.steps[].kind]' out | diff - <(cat <<'END'
[{"archive":"/mnt/user/maps.kx-fast.tar","archiveSize":3072,"fileCount":2,"files":["/mnt/user/maps/a","/mnt/user/maps/sub/b"],"folders":["/mnt/user/maps/empty","/mnt/user/maps/sub"],"isRecorded":true,"source":"tree","step":2,"target":"/mnt/user/maps"}]
["copy-folder","copy-files","script","script"]
END
    )
}

@test "plan tells what the script unpacks, once it gets there" {
    built

    kx plan fast.kx-update

    [ "$status" -eq 0 ]
    grep -qx 'Unpacked to /mnt/user/maps in step 3, from /mnt/user/maps.kx-fast.tar: 2 files, which the uninstall script removes' out
    grep -qx '  /mnt/user/maps/sub/b' out
    [ "$(tail -n 1 out)" = 'and links to files become files.' ]
    kx plan --json fast.kx-update
    jq -c '[.fastFolders[] | .step, .target, .files]' out | diff - <(
        echo '[2,"/mnt/user/maps",["/mnt/user/maps/a","/mnt/user/maps/sub/b"]]')

    # The first step fails.
    mkdir -p panel/mnt/user
    : >panel/mnt/user/file
    description '.DB_StepSets."$values"[0].PathSetDatas."$values"[0].DestinationPath =
        "/mnt/user/file/p"'
    kx plan --json --root panel changed
    [ "$status" -eq 1 ]
    [ "$(jq -c .fastFolders out)" = '[]' ]
}

@test "a folder that is not recorded is told without names" {
    built 'record = false'

    kx plan fast.kx-update

    [ "$(tail -n 3 out | head -n 1)" = 'Unpacked to /mnt/user/maps in step 3, from /mnt/user/maps.kx-fast.tar: 2 files' ]
    kx show --json fast.kx-update
    [ "$(jq -c '.fastFolders[0] | .isRecorded, .files, .fileCount' out)" = $'false\n[]\n2' ]
}

@test "unpack gives the manifest its word back, and build makes the same bytes" {
    local lines
    for lines in '' 'skip = true' 'record = false'; do
        rm -rf source unpacked
        built ${lines:+"$lines"}
        mv fast.kx-update first.kx-update
        kx unpack first.kx-update -o unpacked
        [ "$status" -eq 0 ]
        sed -n '/^# Step 2/,/^# Step 4/p' unpacked/package.toml >told
        diff told - <<END
# Step 2 and the next one bring a folder in one archive.
[[steps]]
kind = "copy-folder"
comment = "maps"
${lines:+$lines
}fast = true

[[steps.folders]]
source = "tree"
target = "/mnt/user/maps"

# Step 4 runs a script.
END
        diff -r source/tree unpacked/tree
        sed -i 's/^name = "first"/name = "fast"/' unpacked/package.toml
        kx build unpacked
        cmp first.kx-update fast.kx-update
    done
}

@test "unpack brings back where the archive lies, modes and names" {
    fast source
    echo three >source/tree/three
    sed -i 's|^target = "/mnt/user/maps"|&\narchive = "/tmp/maps.tar"\nmodes = { three = "640" }\nnames = { a = ".git/a" }|' \
        source/package.toml
    kx build source --updater arm-updater
    mv fast.kx-update first.kx-update

    kx unpack first.kx-update -o unpacked

    grep -qx 'archive = "/tmp/maps.tar"' unpacked/package.toml
    [ ! -e unpacked/tree/.git ]
    sed -i 's/^name = "first"/name = "fast"/' unpacked/package.toml
    kx build unpacked
    cmp first.kx-update fast.kx-update
}

@test "steps that are not just what build makes are steps like others" {
    built
    local change
    for change in '[1].CanSkip = false' '[1].IsRemove = true' '[1].Comment = "other"' \
        '[1].PathSetDatas."$values"[0].Permissions = "644"' \
        '[1].PathSetDatas."$values"[0].DestinationPath = "/mnt/other.tar"' \
        '[2].InstallScriptFunctionData.ScriptData += "\n"' \
        '[2].UninstallScriptFunctionData.ScriptData = "#!/bin/sh\n"'; do
        description ".DB_StepSets.\"\$values\"$change"
        cmp -s changed/UserPackage.kx-project <(unzip -p fast.kx-update UserPackage.kx-project) && return 1
        kx show --json changed
        # Without the names of the files this is a folder that is not recorded.
        case $change in
            *Uninstall*) [ "$(jq -c '[.fastFolders[].isRecorded]' out)" = '[false]' ] ;;
            *) [ "$(jq -c .fastFolders out)" = '[]' ] ;;
        esac
        rm -rf unpacked
        kx unpack changed -o unpacked
        [ "$status" -eq 0 ]
    done
}

@test "an archive that build would not make stays one" {
    built
    unzip -q fast.kx-update -d changed
    local place=changed/1/0/files.tar size change
    size=$(stat -c %s "$place")
    # The same files, packed by another program; another mode; a file more than the script knows.
    for change in 'tar --format=gnu --mtime=@1 --owner=9 -C source/tree -cf "$place" ./a ./sub/b' \
        'sed -i "s/0000644/0000600/" "$place"' 'printf x | dd of="$place" conv=notrunc status=none'; do
        cp "$place" kept
        eval "$change"
        truncate -s "$size" "$place"
        if cmp -s kept "$place"; then
            return 1
        fi
        rm -rf unpacked
        kx unpack changed -o unpacked
        [ "$status" -eq 0 ]
        [ "$(grep -c '^fast' unpacked/package.toml)" -eq 0 ]
        cmp "$place" unpacked/tree/files.tar
        cp kept "$place"
    done
    rm -rf unpacked
    kx unpack changed -o unpacked
    grep -qx 'fast = true' unpacked/package.toml
}

@test "check looks into the files, and at both places on the panel" {
    fast source
    cp updater source/tree/program
    sed -i 's|^target = "/mnt/user/maps"|&\narchive = "/etc/passwd/files.tar"\nexecutable = ["program"]|' \
        source/package.toml

    kx check source
    [ "$status" -eq 1 ]
    grep -v '^  [A-Z]' out >told
    diff told - <<'END'
error: target-conflict: source/package.toml:21:11
  '/etc/passwd/files.tar' or a folder above it is something else by that step
warning: program-processor: source/package.toml:19:10
  source/tree/program: is for x86_64, not for arm
source: 1 error, 1 warning, 0 notes
END

    kx build source --updater arm-updater
    kx check fast.kx-update
    grep -A1 '^[a-z]*: program' out >told
    diff told - <<'END'
warning: program-processor: 1/0/program
  is for x86_64, not for arm
END
    # A damaged archive is told as such.
    built
    unzip -q fast.kx-update -d damaged
    truncate -s 1000 damaged/1/0/files.tar
    kx check damaged --processor arm
    [ "$status" -le 1 ]
}

@test "diff compares the files, and tells when they travel otherwise" {
    built
    mv fast.kx-update first.kx-update
    echo other >source/tree/a
    echo new >source/tree/new
    rm source/tree/sub/b
    kx build source --updater arm-updater
    mv fast.kx-update second.kx-update
    mkdir one two
    mv first.kx-update one/fast.kx-update
    mv second.kx-update two/fast.kx-update

    kx diff one/fast.kx-update two/fast.kx-update

    expect 1 '--- one/fast.kx-update
+++ two/fast.kx-update

Files on the panel
  changed /mnt/user/maps/a: 4 bytes -> 6 bytes, another content
  added /mnt/user/maps/new: mode 644, 4 bytes
  gone /mnt/user/maps/sub/b: mode 644, 4 bytes

A panel with the first one keeps, unless a script removes it
  /mnt/user/maps/sub/b
' ''
    sed -i '/^fast = true/d' source/package.toml
    kx build source -o three.kx-update --updater arm-updater
    kx diff two/fast.kx-update source
    expect 1 '--- two/fast.kx-update
+++ source

Steps
  step 2, copy-folder: changed
-   fast: archive /mnt/user/maps.kx-fast.tar
' ''
}

@test "installed and verify know what the scripts have unpacked" {
    built
    local record=panel/var/lib/KxUserPackages/fast
    mkdir -p "$record" panel/mnt/user/p panel/mnt/user/maps/sub/b
    cp source/plain/c panel/mnt/user/p/
    unzip -q -d "$record" fast.kx-update UserPackage.kx-project
    printf '%s\n' ' #dir' /mnt/user/p "${record#panel}" ' #file' /mnt/user/p/c \
        "${record#panel}"/{UserPackage.kx-project,installedFile.list} >"$record/installedFile.list"

    kx installed --root panel
    expect 0 'fast 1: Fast
  comment:   
  for:       TP, system 2
  date:      2026/11/21
  recorded:  2 folders, 3 files
  unpacked:  2 files to /mnt/user/maps
panel/var/lib/KxUserPackages: 1 package
' ''
    kx installed --json --root panel
    [ "$(jq -c '[.packages[0].fastFolders[].files[]]' out)" = '["/mnt/user/maps/a","/mnt/user/maps/sub/b"]' ]

    kx verify --root panel fast
    expect 1 'fast 1: Fast
  missing:   /mnt/user/maps/empty (folder, unpacked)
  missing:   /mnt/user/maps/a (file, unpacked)
  replaced:  /mnt/user/maps/sub/b (file, unpacked) is a folder
fast: 4 of 5 folders and 3 of 5 files are there
' ''
    kx verify --json --root panel fast
    jq -c '[.deviations[] | .path, .line]' out | diff - <(
        echo '["/mnt/user/maps/empty",null,"/mnt/user/maps/a",null,"/mnt/user/maps/sub/b",null]')

    rm -r panel/mnt/user/maps
    cp -R source/tree panel/mnt/user/maps
    kx verify --root panel fast
    expect 0 'fast 1: Fast
fast: 5 of 5 folders and 5 of 5 files are there
' ''
}
