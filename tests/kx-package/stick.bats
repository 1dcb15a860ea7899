#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package stick, as a user starts it.

load stick

# package: demo.kx-update.
package() {
    demo source
    mv source/share/{ä日本,plain}.txt
    kx build source --updater arm-updater -o demo.kx-update
    [ "$status" -eq 0 ]
}

@test "a package is written, read back, and the drive may be pulled" {
    package
    on_drive size=16m <<'END'
        kx stick demo.kx-update drive
        expect 0 $'demo.kx-update: written to drive and read back from memory, as this file system is not read past it; the drive may be pulled\n' \
            "kx-package: drive: $DOUBT"$'\n'
        cmp demo.kx-update drive/demo.kx-update
        [ "$(ls -A drive)" = demo.kx-update ]
        [ "$(stat -c %a drive/demo.kx-update)" = 644 ]

        kx stick demo.kx-update drive/
        expect 0 $'demo.kx-update: was on drive/ already and read back from memory, as this file system is not read past it; the drive may be pulled\n' \
            "kx-package: drive/: $DOUBT"$'\n'
END
}

@test "an older package of that name is replaced" {
    package
    on_drive size=16m <<'END'
        head -c 100000 /dev/zero >drive/demo.kx-update
        kx stick demo.kx-update drive
        [ "$status" -eq 0 ]
        cmp demo.kx-update drive/demo.kx-update
        [ "$(ls -A drive)" = demo.kx-update ]
END
}

@test "JSON tells the same, and nothing else" {
    package
    on_drive size=16m <<'END'
        kx stick --json demo.kx-update drive
        [ "$status" -eq 0 ]
        [ ! -s err ]
        [ "$(jq -c '[.formatVersion, .package, .ready, .written, .readBack, .errors]' out)" = \
            '[1,"demo.kx-update",true,true,"memory",0]' ]
        jq -e --arg doubt "$DOUBT" '.drive == {"folder": "drive", "fileSystem": "tmpfs",
            "source": "none", "size": 16777216, "free": .drive.free, "doubts": [$doubt]}' out
        kx stick --json demo.kx-update drive
        [ "$(jq -c '[.ready, .written, .readBack]' out)" = '[true,false,"memory"]' ]
END
}

@test "what is no drive is refused, and nothing is written" {
    package
    on_drive size=16m <<'END'
        remedy='; mount the drive, and name the folder where it is mounted'
        mkdir drive/sub part
        mount --bind drive/sub part
        kx stick demo.kx-update drive/sub
        expect 2 '' "kx-package: drive/sub: nothing is mounted here; it belongs to '$PWD/drive'$remedy"$'\n'
        kx stick demo.kx-update part
        expect 2 '' "kx-package: part: shows only the folder '/sub' of its file system; a panel looks at its top$remedy"$'\n'
        kx stick demo.kx-update /
        expect 2 '' "kx-package: /: belongs to this machine's own file system$remedy"$'\n'
        mkdir root
        mount --rbind / root
        kx stick demo.kx-update root
        expect 2 '' "kx-package: root: belongs to this machine's own file system$remedy"$'\n'
        kx stick demo.kx-update /proc
        expect 2 '' "kx-package: /proc: is no drive, but the system's own (proc)$remedy"$'\n'
        kx stick demo.kx-update demo.kx-update
        expect 1 '' $'kx-package: demo.kx-update: cannot open: Not a directory\n'
        [ -z "$(find drive -type f)" ]
END
}

@test "a drive is the same by a link, with dots, and mounted twice" {
    package
    on_drive size=16m <<'END'
        mkdir twice drive/sub
        mount --bind drive twice
        ln -s drive link
        for path in link ./drive/../drive/. "$PWD/drive" twice drive/sub/..; do
            rm -f drive/demo.kx-update
            kx stick demo.kx-update "$path"
            [ "$status" -eq 0 ]
            cmp demo.kx-update drive/demo.kx-update
        done
END
}

@test "what is mounted last at a folder is the drive" {
    package
    on_drive size=16m <<'END'
        mkdir below
        mount --bind drive below
        mount -t tmpfs none drive
        kx stick demo.kx-update drive
        [ "$status" -eq 0 ]
        [ -z "$(ls -A below)" ]
        cmp demo.kx-update drive/demo.kx-update
END
}

@test "a drive with a strange name" {
    package
    on_drive size=16m <<'END'
        mkdir $'my\tstick \\ ü'
        mount --bind drive $'my\tstick \\ ü'
        kx stick demo.kx-update $'my\tstick \\ ü'
        [ "$status" -eq 0 ]
        grep -qF 'written to my\x09stick \ ü and read back' out
END
}

@test "a drive that is mounted read-only is told" {
    package
    on_drive size=16m,ro <<'END'
        kx stick demo.kx-update drive
        expect 3 '' $'kx-package: drive: is mounted read-only; mount it for writing; some drives have a switch against it\n'
END
}

@test "a package with errors is not written, with --strict one with warnings neither" {
    package
    head -c 1000 demo.kx-update >cut.kx-update
    cp demo.kx-update 'demo (1).kx-update'
    on_drive size=16m <<'END'
        kx stick cut.kx-update drive
        [ "$status" -eq 1 ]
        [ ! -s out ]
        grep -q '^error: ' err
        [ "$(tail -n 1 err)" = 'kx-package: nothing was written to drive' ]
        kx stick --json --strict 'demo (1).kx-update' drive
        [ "$status" -eq 1 ]
        [ "$(jq -c '[.ready, .written, .readBack, .clean, .findings[0].id]' out)" = \
            '[false,false,null,false,"name-copy"]' ]
        cp demo.kx-update demo.zip
        kx stick demo.zip drive
        [ "$status" -eq 1 ]
        grep -q '^error: name-extension: demo.zip$' err
        # The drive itself is in doubt.
        kx stick --strict demo.kx-update drive
        [ "$status" -eq 1 ]
        [ -z "$(ls -A drive)" ]
        kx stick 'demo (1).kx-update' drive
        [ "$status" -eq 0 ]
END
}

@test "what lies beside the source does not matter" {
    package
    cp demo.kx-update ._demo.kx-update
    cp demo.kx-update other.kx-update
    on_drive size=16m <<'END'
        kx stick --json demo.kx-update drive
        [ "$status" -eq 0 ]
        jq -e '.findings | map(.id) | sort == ["description-latin1", "user-password"]' out
END
}

@test "a package is judged by its panel" {
    package
    printf 'format = 1\nprocessor = "riscv64"\n' >panel.toml
    on_drive size=16m <<'END'
        kx stick --panel panel.toml demo.kx-update drive
        [ "$status" -eq 1 ]
        [ -z "$(ls -A drive)" ]
        kx stick --panel none.toml demo.kx-update drive
        [ "$status" -eq 1 ]
END
}

@test "a package that is no file elsewhere is refused" {
    package
    on_drive size=16m <<'END'
        cp demo.kx-update drive/
        mkdir drive/sub
        cp demo.kx-update drive/sub/other.kx-update
        for path in drive/demo.kx-update drive/sub/other.kx-update; do
            kx stick "$path" drive
            expect 2 '' "kx-package: $path: lies on the drive itself; name the package on your disk, and another file on the drive is its copy"$'\n'
        done
        for path in source -; do
            kx stick "$path" drive
            expect 2 '' "kx-package: $path: is no package file; kx-package build makes one"$'\n'
        done
        kx stick none.kx-update drive
        expect 1 '' $'kx-package: none.kx-update: cannot open: No such file or directory\n'
END
}

@test "one writes to a drive at a time" {
    package
    on_drive size=16m <<'END'
        exec 9<drive
        flock 9
        kx stick demo.kx-update drive
        expect 3 '' $'kx-package: drive: another program holds the drive; wait until it has ended\n'
        exec 9<&-
        kx stick demo.kx-update drive
        [ "$status" -eq 0 ]
END
}

@test "what else a panel finds on the drive is told, and nothing is written" {
    package
    on_drive size=16m <<'END'
        cp demo.kx-update drive/other.kx-update
        cp demo.kx-update drive/._demo.kx-update
        mkdir -p drive/old.temp drive/Pictures
        touch drive/old.temp/UserPackage.kx-project drive/Pictures/p.kx-update drive/.demo.kx-update.12-0
        find drive | sort >before

        kx stick demo.kx-update drive

        expect 1 '' "kx-package: drive: $DOUBT
kx-package: drive/._demo.kx-update: is a hidden file that some desktop systems leave; the panel counts it as a second package, and installs none; --replace removes it
kx-package: drive/.demo.kx-update.12-0: was left by a kx-package that was stopped while it wrote; --replace removes it
kx-package: drive/old.temp: is a package that was unpacked for an installation, and left; --replace removes it
kx-package: drive/other.kx-update: is another package; of several the panel installs none; --replace removes it
kx-package: nothing was written to drive
"
        find drive | sort | diff before -
        kx stick --json demo.kx-update drive
        [ "$status" -eq 1 ]
        [ "$(jq -c '[.ready, .clean, (.others[] | [.name, .kind, .removed])]' out)" = \
            '[false,true,["._demo.kx-update","hidden-twin",false],[".demo.kx-update.12-0","unfinished",false],["old.temp","unpacked",false],["other.kx-update","package",false]]' ]
        [ "$(jq -c '.problems[3]' out)" = \
            '{"message":"is another package; of several the panel installs none","place":"drive/other.kx-update","remedy":"--replace removes it"}' ]
END
}

@test "--replace removes what belongs to packages, and nothing else" {
    package
    on_drive size=16m <<'END'
        cp demo.kx-update drive/other.kx-update
        cp demo.kx-update drive/._demo.kx-update
        mkdir -p drive/old.temp/0/0 drive/demo.temp/1 drive/my.temp drive/Pictures outside
        touch drive/old.temp/UserPackage.kx-project drive/my.temp/notes drive/Pictures/p.kx-update \
            drive/.kx-update drive/B.KX-UPDATE outside/kept
        ln -s "$PWD/outside" drive/old.temp/0/0/link

        kx stick --replace demo.kx-update drive

        expect 0 'drive/._demo.kx-update: removed
drive/demo.temp: removed
drive/old.temp: removed
drive/other.kx-update: removed
demo.kx-update: written to drive and read back from memory, as this file system is not read past it; the drive may be pulled
' "kx-package: drive: $DOUBT"$'\n'
        (cd drive && find . -mindepth 1 | sort) | diff - <(printf './%s\n' .kx-update B.KX-UPDATE \
            Pictures Pictures/p.kx-update demo.kx-update my.temp my.temp/notes)
        [ -e outside/kept ]
        cp demo.kx-update drive/other.kx-update
        kx stick --replace --json demo.kx-update drive
        [ "$status" -eq 0 ]
        [ "$(jq -c '[.written, .others[0].name, .others[0].removed]' out)" = \
            '[false,"other.kx-update",true]' ]
END
}

@test "what may be a person's own is never removed" {
    package
    on_drive size=16m <<'END'
        mkdir drive/demo.temp drive/album.kx-update
        touch drive/demo.temp/letter drive/album.kx-update/picture drive/._x.kx-update
        kx stick --replace demo.kx-update drive
        expect 1 '' "kx-package: drive: $DOUBT
kx-package: drive/album.kx-update: is a folder that the panel counts as a package; give it another name
kx-package: drive/demo.temp: is where the panel unpacks the package; it removes what is there before; give it another name, or the package
kx-package: nothing was written to drive
"
        # Nothing is removed where nothing can be written.
        [ -e drive/._x.kx-update ] && [ -e drive/demo.temp/letter ]
        [ ! -e drive/demo.kx-update ]
END
}

@test "what is mounted in something that is removed stays" {
    package
    on_drive size=16m <<'END'
        mkdir -p drive/old.temp/0 other
        touch drive/old.temp/UserPackage.kx-project other/kept
        mount -t tmpfs none drive/old.temp/0
        touch drive/old.temp/0/kept
        kx stick --replace demo.kx-update drive
        expect 3 '' "kx-package: drive: $DOUBT"$'\nkx-package: drive/old.temp: cannot remove: Device or resource busy\n'
        [ -e drive/old.temp/0/kept ]
END
}

@test "a drive without room for the package, or for what it unpacks to, is told" {
    package
    on_drive size=400k <<'END'
        kx stick --json demo.kx-update drive
        [ "$status" -eq 0 ]
        rm drive/demo.kx-update
        rest=$(jq '.drive.free - .needed.unpacked' out)
        # Just enough, and one page less.
        head -c "$rest" /dev/zero >drive/pictures
        kx stick demo.kx-update drive
        [ "$status" -eq 0 ]
        rm drive/demo.kx-update
        head -c "$((rest + 1))" /dev/zero >drive/pictures
        kx stick demo.kx-update drive
        [ "$status" -eq 1 ]
        grep -qE '^kx-package: drive: the package takes 4.0 KiB and, where the panel unpacks it beside itself, [0-9.]+ KiB; that is 4.0 KiB more than there is; remove what else is on the drive, or take a larger one$' err
        [ ! -e drive/demo.kx-update ]
END
}

@test "an older package without room beside it goes first with --replace" {
    demo source
    mv source/share/{ä日本,plain}.txt
    head -c 200000 /dev/urandom >source/share/random
    kx build source --updater arm-updater -o demo.kx-update
    on_drive size=520k <<'END'
        head -c 350000 /dev/zero >drive/demo.kx-update
        kx stick demo.kx-update drive
        [ "$status" -eq 1 ]
        grep -q 'there is no room for the package beside the older one, which stays until the new one is whole' err
        [ "$(stat -c %s drive/demo.kx-update)" -eq 350000 ]
        kx stick --replace demo.kx-update drive
        [ "$status" -eq 0 ]
        cmp demo.kx-update drive/demo.kx-update
END
}

@test "--replace counts on the room of what it removes" {
    package
    on_drive size=400k <<'END'
        mkdir -p drive/old.temp/0/0
        touch drive/old.temp/UserPackage.kx-project
        head -c 400000 /dev/zero >drive/old.temp/0/0/big
        kx stick demo.kx-update drive
        [ "$status" -eq 1 ]
        grep -q 'more than there is' err
        kx stick --replace demo.kx-update drive
        [ "$status" -eq 0 ]
        [ "$(ls -A drive)" = demo.kx-update ]
END
}

@test "a drive without room for so many files is told" {
    package
    on_drive size=16m,nr_inodes=10 <<'END'
        kx stick demo.kx-update drive
        [ "$status" -eq 1 ]
        grep -qE '^kx-package: drive: unpacking makes 1[0-9] files and folders; its file system has room for [0-9]; take another drive$' err
        [ -z "$(ls -A drive)" ]
END
}
