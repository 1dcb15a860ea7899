#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The mistakes that authors make most often, each planted in the same good package: told before there
# is a package, where it is written, and told of the finished one, both times with a remedy.

load package

# The package: a program, its folder, a script and settings, for an armhf panel.
author() {
    mkdir -p pkg/share
    "$ELF_OF" --loader /lib/ld-linux-armhf.so.3 >pkg/app
    echo text >pkg/share/text
    cat >pkg/package.toml <<'END'
[package]
name = "m"
panel = "panel.toml"
title = "Machine"
version = "1.0"
model = "TP-0700"
os-version = "2.1.0"
date = 2026-11-21
processor = "armhf"

[[steps]]
kind = "copy-files"
files = [{ source = "app", target = "/opt/app", mode = "755" }]

[[steps]]
kind = "copy-folder"
folders = [{ source = "share", target = "/opt/share" }]

[[steps]]
kind = "script"
install = "#!/bin/sh\necho installed\n"

[[steps]]
kind = "settings"
[[steps.settings]]
kind = "backlight"
values = { Level = "8" }
[[steps.settings]]
kind = "auto-start"
script = "#!/bin/sh\n/opt/app\n"
END
    cat >pkg/panel.toml <<'END'
processor = "arm"
float-abi = "hard"
c-library = "2.31"
libraries = ["libc.so.6"]
interpreters = ["/bin/sh", "/lib/ld-linux-armhf.so.3"]
[[places]]
path = "/opt/share"
size-mib = 1
[settings]
Level = { range = [0, 15] }
StartUpScript = {}
END
    "$ELF_OF" --loader /lib/ld-linux-armhf.so.3 --rest UserPackage.kx-project >hard-updater
    author_updater=hard-updater
}

# told SEVERITY ID TEXT: expects the finding twice: of the manifest, at the line with that text and
# with a remedy, and of the package that is built of it.
told() {
    local file=pkg/package.toml at
    at=$(grep -nF -- "$3" $file | head -n 1 | cut -d: -f1)
    kx check --json pkg
    one "$1" "$2" ".place.file == \"$file\" and .place.line == ${at:-0} and .place.column > 0" || return
    kx build pkg --updater "$author_updater"
    [ -e m.kx-update ] || { cat err; return 1; }
    grep -q "^$1: $2: $file:$at:" err || { cat err; return 1; }
    kx check --panel pkg/panel.toml --json m.kx-update
    one "$1" "$2" true
}

# one SEVERITY ID CONDITION: out has a finding like this, which says what to do.
one() {
    jq -e --arg severity "$1" --arg id "$2" \
        "[.findings[] | select(.severity == \$severity and .id == \$id)
          | select((.remedy | length) > 0 and (.message | length) > 0) | select($3)] | length > 0" out >/dev/null ||
        { echo "no $1 $2 with $3:" && jq -c '.findings[]' out; return 1; }
}

# told_hint TEXT: expects a hint at the copied folder, which only its sources can give.
told_hint() {
    kx check --json pkg
    one warning manifest-hint ".place.line == 17 and (.message | contains(\"$1\"))" || return
    kx build pkg --updater hard-updater
    grep -q '^warning: manifest-hint: pkg/package.toml:17:' err
}

@test "the good package has nothing" {
    author
    kx check --strict pkg
    [ "$status" -eq 0 ]
    [ "$(jq '.findings | map(select(.severity != "note")) | length' <("$KX_PACKAGE" check --json pkg))" -eq 0 ]
    kx build --strict pkg --updater hard-updater
    [ "$status" -eq 0 ]
}

@test "a program for another processor" {
    author
    cp /bin/ls pkg/app
    told error program-processor 'source = "app"'
}

@test "a soft-float program for a hard-float panel" {
    author
    "$ELF_OF" --flags 0x5000200 --loader /lib/ld-linux.so.3 >pkg/app
    told error program-float 'source = "app"'
}

@test "a program whose loader the panel lacks" {
    author
    "$ELF_OF" --loader /lib/ld-musl-armhf.so.1 >pkg/app
    told error program-loader 'source = "app"'
}

@test "a program whose library neither the package nor the panel brings" {
    author
    "$ELF_OF" --loader /lib/ld-linux-armhf.so.3 --needed libfoo.so.2 >pkg/app
    told error program-library 'source = "app"'
}

@test "a program for a newer C library" {
    author
    "$ELF_OF" --loader /lib/ld-linux-armhf.so.3 --version GLIBC_2.34 >pkg/app
    told error program-version 'source = "app"'
}

@test "a soft-float updater in a package for armhf" {
    author
    "$ELF_OF" --flags 0x5000200 --loader /lib/ld-linux.so.3 --rest UserPackage.kx-project >soft-updater
    kx build pkg --updater soft-updater
    [ "$status" -ne 0 ]
    grep -q 'soft-updater' err
    grep -qE 'armel|soft' err
}

@test "another program as updater" {
    author
    kx build pkg --updater /bin/ls
    [ "$status" -ne 0 ]
    grep -q '/bin/ls' err
    sed -i 's/"armhf"/"x86_64"/; /^panel = /d' pkg/package.toml
    kx build pkg --updater /bin/ls
    grep -q '^warning: updater-other: ' err
    grep -q '^  /bin/ls is another program$' err
    kx check m.kx-update
    grep -q '^warning: updater-other: ' out
}

@test "a script with Windows line ends" {
    author
    printf '#!/bin/sh\r\necho\r\n' >pkg/app
    told error script-first-line 'source = "app"'
}

@test "a script with a byte-order mark" {
    author
    printf '\xef\xbb\xbf#!/bin/sh\necho\n' >pkg/app
    told error script-mark 'source = "app"'
}

@test "a script whose interpreter the panel lacks" {
    author
    printf '#!/usr/bin/python3\n' >pkg/app
    told error script-missing 'source = "app"'
    author
    sed -i 's,#!/bin/sh\\necho inst,#!/usr/bin/perl\\necho inst,' pkg/package.toml
    told error script-missing '#!/usr/bin/perl'
}

@test "a script that no shell can read, in a file and in the description: a warning that names the shell" {
    author
    printf '#!/bin/sh\nif true\n' >pkg/app
    told warning script-syntax 'source = "app"'
    jq -e '[.findings[].message] | any(test("says (sh|dash|bash|/bin/sh)"))' out
    author
    sed -i 's/echo installed/if true/' pkg/package.toml
    told warning script-syntax 'if true'
}

@test "a script that the panel's own shell cannot read is an error" {
    author
    sed -i '/^libraries/i shell = "bash"' pkg/panel.toml
    sed -i 's/echo installed/if true/' pkg/package.toml
    told error script-syntax 'if true'
}

@test "system files as targets" {
    local target
    for target in /bin/sh /sbin/init /etc/shadow /boot/zImage; do
        author
        sed -i "s,target = \"/opt/app\",target = \"$target\"," pkg/package.toml
        told warning target-system "$target" || return
    done
    author
    sed -i 's,target = "/opt/share",target = "/etc",' pkg/package.toml
    told warning target-system 'target = "/etc"'
}

@test "a target with .." {
    author
    sed -i 's,target = "/opt/app",target = "/opt/../app",' pkg/package.toml
    told warning target-up '/opt/../app'
}

@test "the same setting twice" {
    author
    printf '[[steps.settings]]\nkind = "backlight"\nvalues = { Level = "9" }\n' >>pkg/package.toml
    told warning setting-twice 'Level = "9"'
}

@test "a start-up script that is copied and set" {
    author
    sed -i 's,target = "/opt/app",target = "/mnt/user/startup.sh",' pkg/package.toml
    told warning startup-twice '/mnt/user/startup.sh'
}

@test "an empty level" {
    author
    sed -i 's/Level = "8"/Level = ""/' pkg/package.toml
    told warning setting-empty 'Level = ""'
}

@test "an empty title and an empty version" {
    author
    sed -i 's/^title = .*/title = ""/' pkg/package.toml
    told warning identity-empty 'title = ""'
    author
    sed -i 's/^version = .*/version = ""/' pkg/package.toml
    told warning identity-empty 'version = ""'
}

@test "names and values that the setting tool does not take" {
    author
    sed -i 's/Level = "8"/Level = "16"/' pkg/package.toml
    told error setting-refused 'Level = "16"'
    author
    sed -i 's/Level = {/Brightness = {/' pkg/panel.toml
    told error setting-refused 'Level = "8"'
}

@test "more bytes than a place holds" {
    author
    head -c 1100000 /dev/zero >pkg/share/large
    told error target-space 'target = "/opt/share"'
}

@test "names of the package's file that make a second record" {
    author
    kx build pkg --updater hard-updater -o m-1.0.kx-update
    grep -q '^warning: name-version: pkg/package.toml:2:' err
    local name
    for name in 'm (1)' 'm - Copy'; do
        cp m-1.0.kx-update "$name.kx-update"
        kx check --json "$name.kx-update"
        one warning name-copy true || return
    done
}

@test "the missing mark of the description, indented or not, is one finding" {
    author
    kx build pkg --updater hard-updater
    local indent severity=error
    for indent in '' ' ' '  ' '   ' '      '; do
        # Three blanks are skipped in the mark's place, and nothing is lost.
        [ "${#indent}" -lt 3 ] || severity=warning
        rm -rf unpacked
        unzip -q m.kx-update -d unpacked
        kx check --json unpacked
        jq -r '.findings[].id' out | sort >before
        sed -i '1s/^\xef\xbb\xbf//' unpacked/UserPackage.kx-project
        sed -i "s/^/$indent/" unpacked/UserPackage.kx-project
        kx check --json unpacked
        one $severity description-mark true || return
        jq -r '.findings[].id' out | sort | comm -13 before - | diff - <(echo description-mark) || return
    done
}

@test "an exclude that fits nothing is told like an executable that fits nothing" {
    author
    sed -i 's/source = "share"/&, exclude = ["*.bak"], executable = ["*.bin"]/' pkg/package.toml
    kx check --json pkg
    one error manifest-mistake '.place.line == 17 and (.message | contains("of '\''executable'\''"))'
    sed -i 's/, executable = \["\*.bin"\]//' pkg/package.toml
    told_hint "of 'exclude'"
}

@test "a program that may not be started is hinted at, a shared library is not" {
    author
    "$ELF_OF" --library libx.so.1 >pkg/share/libx.so.1
    kx check --json pkg
    jq -e '[.findings[] | select(.id == "manifest-hint")] == []' out
    cp pkg/app pkg/share/tool
    told_hint 'tool looks like a program'
}
