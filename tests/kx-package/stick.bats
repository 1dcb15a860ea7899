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
        expect 3 '' $'kx-package: demo.kx-update: cannot open: Not a directory\n'
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
        [ "$status" -eq 3 ]
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
        expect 3 '' $'kx-package: none.kx-update: cannot open: No such file or directory\n'
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
