#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package try: packages on the sandboxed device, as their authors install them.
#   KX_PACKAGE   the program (default: build/asan/kx-package)
#   KX_UPDATER   the updater that installs

# shellcheck disable=SC2154 # stderr is what run sets
load device

HELLO='copy_file(item("app", "/opt/demo/app", "755", "program\n"), record=True)'

setup() {
    device_setup
    cd "$WORK" || return
    export TMPDIR=$WORK/tmp LC_ALL=C.UTF-8
    unset KX_DEVICE NO_COLOR
    # The rehearsal for --fail keeps what the updater keeps until its end.
    export LSAN_OPTIONS=suppressions=$WORK/lsan.supp:print_suppressions=0
    mkdir "$TMPDIR"
}

# try ARGUMENT...: leaves $status and the files out and err; standard input is empty, and nothing may
# be left where temporary files lie.
try() {
    prepare_try "$@"
    status=0
    timeout 120 "${TRY[@]}" </dev/null >"$OUT" 2>"$ERR" || status=$?
    nothing_is_left
}

# prepare_try ARGUMENT...: sets the array TRY to the command line, for tests with streams of their own.
prepare_try() {
    TRY=("$KX_PACKAGE" try --updater "$KX_UPDATER" --env ASAN_OPTIONS=detect_leaks=0 "$@")
}

nothing_is_left() {
    [ -z "$(ls -A "$TMPDIR")" ] || fail "left behind: $(ls -A "$TMPDIR")"
}

# told FILTER: what jq finds in the JSON of the last run.
told() {
    jq -r "$1" "$OUT"
}

# expect_error STATUS LINE: nothing but one error.
expect_error() {
    expect_status "$1"
    expect_out </dev/null
    expect_err <<<"kx-package: $2"
}

# hello NAME [RECIPE]: an archive with its updater.
hello() {
    package_file "$1" <<<"${2:-$HELLO}"$'\nput("kx_Updater", "#!/bin/sh\\n", 0o755)'
}

# ---- what is told ----

@test "an installation is told: files, settings, users, record and log" {
    hello Foo.kx-update 'copy_file(item("app", "/opt/demo/app", "755", "program\n"), record=True)
script("#!/bin/sh\necho hello; ln -s app /opt/demo/link; rm /etc/motd; reboot\n")
hardware(setting("Backlight", ("Level", "8")))'

    try Foo.kx-update

    expect_status 0
    expect_silence
    expect_out <<'END'
Foo.kx-update: installed

What the installation changed
  added    drwxr-xr-x  root:root        /opt/demo
  added    -rwxr-xr-x  root:root     8  /opt/demo/app
  added    lrwxrwxrwx  root:root     3  /opt/demo/link -> app
  added    drwxr-xr-x  root:root        /tmp/Zt
  added    -rwxr-xr-x  root:root    69  /tmp/Zt/temp.sh
  added    drwxr-xr-x  root:root        /var/lib/KxUserPackages
  added    drwxr-xr-x  root:root        /var/lib/KxUserPackages/Foo
  added    -rw-r--r--  root:root  2433  /var/lib/KxUserPackages/Foo/UserPackage.kx-project
  added    -rw-r--r--  root:root   164  /var/lib/KxUserPackages/Foo/installedFile.list
settings
  Level=8
users
  none
records
  Foo: added
a reboot was asked for

Recorded as Foo
  /opt/demo/  (folder)
  /var/lib/KxUserPackages/Foo  (folder)
  /opt/demo/app
  /var/lib/KxUserPackages/Foo/UserPackage.kx-project
  /var/lib/KxUserPackages/Foo/installedFile.list

What the updater printed
  | **** Installation step 1/3
  | **** Installation step 2/3
  | hello
  | rm: cannot remove '/etc/motd': No such file or directory
  | **** Installation step 3/3
  | Installation succeeded.
END
}

@test "as JSON it tells the same, and nothing else is printed" {
    hello Foo.kx-update

    try --json Foo.kx-update

    expect_status 0
    expect_silence
    jq -S 'del(.installations[].files[] | select(.path | startswith("/var/")))' "$OUT" >told
    jq -S . <<'END' >expected
{"package": "Foo.kx-update", "recordName": "Foo", "installed": true, "shell": null,
 "installations": [{
  "unpacked": true, "installed": true, "exitCode": 0, "remarks": [],
  "files": [
   {"change": "added", "path": "/opt/demo", "type": "d", "mode": "0755", "owner": "root",
    "group": "root"},
   {"change": "added", "path": "/opt/demo/app", "type": "-", "mode": "0755", "owner": "root",
    "group": "root", "size": 8}],
  "settings": [], "users": [], "records": [{"name": "Foo", "change": "added"}],
  "rebootAsked": false,
  "record": {"folders": ["/opt/demo/", "/var/lib/KxUserPackages/Foo"],
   "files": ["/opt/demo/app", "/var/lib/KxUserPackages/Foo/UserPackage.kx-project",
    "/var/lib/KxUserPackages/Foo/installedFile.list"]},
  "log": ["**** Installation step 1/1", "Installation succeeded."], "logOmitted": 0}]}
END
    diff expected told
}

@test "a folder is tried like its archive" {
    hello Foo.kx-update 'copy_file(item("app", "/opt/demo/app", "755", "program\n"), record=True)
hardware(setting("User", ("User", "user"), ("Password", "other")))'
    unzip -q Foo.kx-update -d Foo.temp
    cp -r Foo.temp Foo
    try --json Foo.kx-update
    jq 'del(.package)' "$OUT" >expected

    for folder in Foo Foo.temp ./Foo/ "$WORK/Foo" Foo/0/..; do
        try --json "$folder"

        expect_status 0
        diff expected <(jq 'del(.package)' "$OUT")
    done
    [ "$(told '.installations[0].users[] | .name + " " + .change')" = 'user password changed' ]
    (cd Foo && try --json . && diff "$WORK/expected" <(jq 'del(.package)' "$OUT"))
}

@test "a failing installation is told with what it leaves" {
    hello Foo.kx-update "$HELLO"$'\nscript("#!/bin/sh\\nexit 7\\n")'

    try Foo.kx-update

    expect_status 1
    expect_silence
    expect_out <<'END'
Foo.kx-update: not installed, exit code 101

What the installation changed
  added    drwxr-xr-x  root:root      /opt/demo
  added    -rwxr-xr-x  root:root   8  /opt/demo/app
  added    drwxr-xr-x  root:root      /tmp/Zt
  added    -rwxr-xr-x  root:root  17  /tmp/Zt/temp.sh
settings
  none
users
  none
records
  none

There is no record of it

What the updater printed
  | **** Installation step 1/2
  | **** Installation step 2/2
  | Script execution returned an error(=1792) in step no 2
  | Installation failed in step 2.
END
}

@test "the panel has the drive, and the updater the unpacked package on it" {
    hello Foo.kx-update 'script("#!/bin/sh\nls /mnt/usb /mnt/usb/Foo.temp; ls /dev/sda1\n")'

    try --json Foo.kx-update

    [ "$(told '.installations[0].log[1:-1] | join(" ")')" = \
        '/mnt/usb: Foo.kx-update Foo.temp  /mnt/usb/Foo.temp: UserPackage.kx-project kx_Updater /dev/sda1' ]
}

@test "the environment of the panel can be added to" {
    # shellcheck disable=SC2016 # expanded on the panel
    hello Foo.kx-update 'script("#!/bin/sh\necho $GREETING $LANG\n")'

    try --json --env GREETING='good morning' --env LANG=ja_JP.UTF-8 Foo.kx-update

    [ "$(told '.installations[0].log[1]')" = 'good morning ja_JP.UTF-8' ]
    try --env 1=2 Foo.kx-update
    expect_error 2 "$ROOT/device/run: --env: '1' is not a name of a variable; see kx-package try --help"
}

# ---- twice, and failing ----

@test "a second installation over the first changes nothing" {
    hello Foo.kx-update

    try --twice --json Foo.kx-update

    expect_status 0
    [ "$(told '.installations | map(.installed) | join(" ")')" = 'true true' ]
    [ "$(told '.installations[1].files | map(.change + " " + .path) | join(" ")')" = \
        'changed /var/lib/KxUserPackages/Foo/installedFile.list' ]
    [ "$(told '.installations[1].record.folders | join(" ")')" = /var/lib/KxUserPackages/Foo ]
}

@test "what only works once is found by the second installation" {
    hello Foo.kx-update 'script("#!/bin/sh\nmkdir /opt/once\n")'

    try --twice Foo.kx-update

    expect_status 1
    grep -qx 'Foo.kx-update, the first time: installed' "$OUT"
    grep -qx 'Foo.kx-update, the second time: not installed, exit code 101' "$OUT"
    sed -n '/^What the second/,/^settings/p' "$OUT" >second
    same second 'the second part' <<'END'
What the second installation changed
  removed  drwxr-xr-x  root:root       /var/lib/KxUserPackages/Foo
  removed  -rw-r--r--  root:root  814  /var/lib/KxUserPackages/Foo/UserPackage.kx-project
  removed  -rw-r--r--  root:root  139  /var/lib/KxUserPackages/Foo/installedFile.list
settings
END
}

@test "a step that is made to fail ends the installation, whatever its scripts run before" {
    hello Foo.kx-update 'script("#!/bin/sh\nmkdir -p /opt/demo; cp /etc/passwd /opt/demo/1\n"
       "chmod 600 /opt/demo/1; chmod +x /tmp/Zt/temp.sh\n")
copy_file(item("a", "/opt/demo/a", "755", "a\n"))
script("#!/bin/sh\necho never\n")
copy_folder(folder("/opt/demo", {"b": "b\n"}))'
    local told=()

    for step in 1 2 3 4; do
        try --json --fail "$step" Foo.kx-update

        expect_status 1
        told+=("$(told '.installations[0] | .remarks[], .log[-1]')")
    done

    printf '%s\n' "${told[@]}" >seen
    same seen 'what was told' <<'END'
made to fail: step 1, chmod +x "/tmp/Zt/temp.sh"
Installation failed in step 1.
made to fail: step 2, cp -f "/mnt/usb/Foo.temp/1/0/a" "/opt/demo/a"
Installation failed in step 2.
made to fail: step 3, chmod +x "/tmp/Zt/temp.sh"
Installation failed in step 3.
made to fail: step 4, cp -f "/mnt/usb/Foo.temp/3/0/b" "/opt/demo/b"
Installation failed in step 4.
END
}

@test "a failing step that may be skipped, or is not looked at, is told" {
    hello Foo.kx-update 'copy_file(item("a", "/opt/a", "755", "a\n"), skip=True)
hardware(setting("Backlight", ("Level", "8")))'

    try --json --fail 1 Foo.kx-update
    expect_status 0
    [ "$(told '.installations[0].remarks[1]')" = 'the installation went on: the step may be skipped, or the updater does not look at this command'"'"'s result' ]

    try --json --fail 2 Foo.kx-update
    expect_status 0
    [ "$(told '.installations[0].remarks[0]')" = 'made to fail: step 2, kx-setting-cui set Level=8' ]
    [ "$(told '.installations[0].settings | length')" -eq 0 ]
}

@test "passwords do not show in what is made to fail" {
    hello Foo.kx-update 'hardware(setting("User", ("User", "user"), ("Password", "geheim")))'

    try --fail 1 Foo.kx-update

    expect_status 1
    grep -qF "made to fail: step 1, echo 'user:********' | chpasswd" "$OUT"
    [ "$(grep -c geheim "$OUT")" -eq 0 ]
}

@test "an installation that failed is repaired by a second one" {
    hello Foo.kx-update "$HELLO"$'\ncopy_file(item("b", "/opt/demo/b", "755", "b\\n"))'

    try --json --twice --fail 2 Foo.kx-update

    expect_status 0
    [ "$(told '.installations | map(.installed) | join(" ")')" = 'false true' ]
    [ "$(told '.installations[1].files[0].path')" = /opt/demo/b ]
    [ "$(told '.installations[1].remarks | length')" -eq 0 ]
}

@test "a command that is not reached is told" {
    hello Foo.kx-update 'script("#!/bin/sh\nexit 1\n")'"
$HELLO"

    try --json --fail 2 Foo.kx-update

    expect_status 1
    [ "$(told '.installations[0].remarks[0]')" = 'the command that was to fail was not reached: step 2, cp -f "/mnt/usb/Foo.temp/1/0/app" "/opt/demo/app"' ]
}

@test "a step that cannot be made to fail is refused" {
    hello Foo.kx-update 'hardware(setting("Backlight", ("Level", "8"), used=False))
copy_file(item("a", "/opt/a", "99", "a\n"))
copy_file(item("b", "/opt/b", "755", "b\n"))'

    try --fail 4 Foo.kx-update
    expect_error 2 '--fail: there is no step 4, the package has 3 steps'
    try --fail 0 Foo.kx-update
    expect_error 2 '--fail: there is no step 0, the package has 3 steps'
    try --fail 3 Foo.kx-update
    expect_error 2 '--fail: the installation ends before step 3; see kx-package plan and kx-package check'
    try --fail 1 Foo.kx-update
    expect_error 2 '--fail: step 1 runs no command that could fail; kx-package plan shows the commands of every step'
    try --fail -1 Foo.kx-update
    expect_status 2
    try --fail 1 --json - <Foo.kx-update
    expect_status 2
    [ "$(told .error.message)" = 'needs the package in a file or folder' ]
}

# ---- names and places ----

@test "packages of any name are tried" {
    local names=('two words' "it's" 'a[b]*?' -- '-o' 'Länge日本' $'\xff\xfe' 'a=b' '.hidden'
        'dots.and.more' '&;|<>')
    hello plain.kx-update
    for name in "${names[@]}"; do
        cp plain.kx-update "./$name.kx-update"
        mkdir "./$name" && unzip -q plain.kx-update -d "./$name"

        try --json "./$name.kx-update"
        expect_status 0
        jq '.recordName, .installations[0].record' "$OUT" >archive
        try --json "./$name"
        expect_status 0

        diff archive <(jq '.recordName, .installations[0].record' "$OUT")
    done
    try --json ./Länge日本.kx-update
    [ "$(told .recordName)" = Länge日本 ]
    try $'./\xff\xfe.kx-update'
    head -n 1 "$OUT" >first
    same first 'the first line' <<<'./\xff\xfe.kx-update: installed'
}

@test "a name that the shell reads does so on the panel, and only there" {
    local name
    hello plain.kx-update
    # shellcheck disable=SC2016 # the names are to stay as they are
    for name in 'say "hi"' '$(touch x)' '`touch x`'; do
        cp plain.kx-update "./$name.kx-update"

        try --json "./$name.kx-update"

        expect_status 1
        [[ "$(told '.installations[0].remarks[0]')" == "the panel's shell reads the "*" in the package's name; see kx-package check" ]]
        [ ! -e x ] || fail 'the shell of this machine read the name'
    done
}

@test "a package comes from standard input" {
    hello Foo.kx-update
    prepare_try --json -

    # shellcheck disable=SC2002 # a pipe is what is tried
    cat Foo.kx-update | "${TRY[@]}" >"$OUT"

    [ "$(told '.package + " " + .recordName + " " + (.installed | tostring)')" = '- package true' ]
    nothing_is_left
    try -
    expect_status 1
    prepare_try --json --disk 16 -
    head -c 17M /dev/zero | "${TRY[@]}" >"$OUT" || status=$?
    [ "$status" -eq 3 ]
    [ "$(told .error.message)" = 'is larger than 16.0 MiB' ]
    nothing_is_left
}

@test "names and lines from the panel cannot play with the terminal" {
    # shellcheck disable=SC2016 # expanded on the panel
    hello Foo.kx-update 'script("#!/bin/sh\nprintf \"\\\\033[2Jx\\\\n\"; echo >\"/opt/$(printf \"a\\\\033\\\\377\")\"\n")'

    try Foo.kx-update

    expect_status 0
    grep -qF '/opt/a\x1b\xff' "$OUT"
    grep -qF '| \x1b[2Jx' "$OUT"
    [ "$(grep -c $'\x1b' "$OUT")" -eq 0 ]
    try --json Foo.kx-update
    [ "$(told '.installations[0].files[0].path')" = '/opt/a\x1b\xff' ]
}

# ---- packages that are none ----

@test "a package that does not unpack is not installed" {
    echo text >text.kx-update
    : >empty.kx-update
    hello Foo.kx-update
    head -c 300 Foo.kx-update >cut.kx-update
    for name in text empty cut; do
        try --json --twice "$name.kx-update"

        expect_status 1
        [ "$(told '.installations | length')" -eq 1 ]
        [ "$(told '.installations[0] | .unpacked, .exitCode, .record, .files[]')" = \
            $'false\nnull\nnull' ]
        [ "$(told '.installations[0].remarks[0]')" = \
            'a panel cannot unpack the package: unzip ends with 9; see kx-package check' ]
    done
    try text.kx-update
    # The panel removes what an earlier attempt may have left, whether there is anything or not.
    [ "$(head -n 6 "$OUT")" = "text.kx-update: not installed
  a panel cannot unpack the package: unzip ends with 9; see kx-package check

What the unpacking printed
  | rm: cannot remove '/mnt/usb/text.temp': No such file or directory
  | Archive:  /mnt/usb/text.kx-update" ]
}

@test "a file that a panel does not take for a package is not installed" {
    hello Foo.zip

    try Foo.zip

    expect_status 1
    expect_out <<'END'
Foo.zip: not installed
  a panel finds no package: the file's name does not end in .kx-update
END
}

@test "the panel is left as the window leaves it" {
    hello Foo.kx-update
    prepare_try --shell Foo.kx-update

    type_into $'ls -A /mnt/usb | sed s/^/left:/; echo seen $?; exit\n'

    expect_status 0
    grep -qx 'seen 0' screen
    [ "$(grep -c '^left:' screen)" -eq 0 ]
}

@test "a package without its description, or its updater, is told so" {
    hello Foo.kx-update
    zip -q -d Foo.kx-update UserPackage.kx-project
    try --json Foo.kx-update
    expect_status 1
    [ "$(told '.installations[0].remarks[0]')" = \
        'the package has no UserPackage.kx-project at its top level; see kx-package check' ]

    package_file Bar.kx-update <<<"$HELLO"
    try --json Bar.kx-update
    expect_status 0
    [ "$(told '.installations[0].remarks[0]')" = \
        'the package has no kx_Updater that a panel could start; see kx-package check' ]
}

@test "what cannot be read is told in one line" {
    try none.kx-update
    expect_error 3 'none.kx-update: cannot open: No such file or directory'
    mkfifo pipe.kx-update
    try pipe.kx-update
    expect_error 3 'pipe.kx-update: is neither a file nor a folder; name a package or the folder of an unpacked one'
    try /
    expect_error 3 '/: is not a package; name a package or the folder of an unpacked one'
    try --json none.kx-update
    expect_status 3
    expect_silence
    [ "$(told '.error.place + ": " + .error.message')" = \
        'none.kx-update: cannot open: No such file or directory' ]
    hello Foo.kx-update
    TMPDIR=$WORK/nowhere run --separate-stderr "$KX_PACKAGE" try --updater "$KX_UPDATER" Foo.kx-update
    [ "$status" -eq 3 ]
    [ "$stderr" = "kx-package: $WORK/nowhere: cannot make a folder for the trial: No such file or directory" ]
}

@test "wrong use is told" {
    hello Foo.kx-update
    for arguments in "" "Foo.kx-update more" "--seconds 0 Foo.kx-update" "--disk x Foo.kx-update" \
        "--memory 1 Foo.kx-update" "--processes 1 Foo.kx-update" "--fail x Foo.kx-update"; do
        # shellcheck disable=SC2086
        try $arguments
        expect_status 2
        [ "$(wc -l <"$ERR")" -eq 1 ]
    done
}

# ---- device and updater ----

@test "without a device or an updater nothing is tried" {
    hello Foo.kx-update
    try --device nowhere Foo.kx-update
    expect_error 3 "nowhere/run: there is no sandboxed device; name the folder that holds its program 'run' with --device DIR or KX_DEVICE"
    KX_DEVICE=elsewhere try Foo.kx-update
    expect_error 3 "elsewhere/run: there is no sandboxed device; name the folder that holds its program 'run' with --device DIR or KX_DEVICE"
    KX_DEVICE=elsewhere try --device "$ROOT/device" Foo.kx-update
    expect_status 0
    KX_DEVICE=$ROOT/device try Foo.kx-update
    expect_status 0

    run --separate-stderr "$KX_PACKAGE" try --updater none Foo.kx-update
    [ "$status $stderr" = '3 kx-package: none: cannot open the updater: No such file or directory' ]
    echo text >text
    run --separate-stderr "$KX_PACKAGE" try --updater text Foo.kx-update
    [ "$status $stderr" = '3 kx-package: text: is not a program that can be started; name an updater with --updater PATH' ]
    printf '\x7fELF\x02\x01\x01\0\0\0\0\0\0\0\0\0\x03\0\xf3\0%044d' 0 >riscv
    chmod 755 riscv
    run --separate-stderr "$KX_PACKAGE" try --updater riscv Foo.kx-update
    [ "$status" -eq 3 ]
    [[ "$stderr" == "kx-package: riscv: is a program for riscv64, and this machine is "*"; name an updater for this machine with --updater PATH" ]]
}

@test "a panel that cannot be made is an error, and nothing is started elsewhere" {
    hello Foo.kx-update
    mkdir device
    cat >device/run <<'END'
#!/bin/sh
echo "$1" >>"${0%/*}/calls"
echo "device/run: cannot make the sandboxed device: this system gives no namespaces; allow them" >&2
exit 125
END
    chmod 755 device/run

    try --device device Foo.kx-update

    expect_error 3 "$WORK/device/run: cannot make the sandboxed device: this system gives no namespaces; allow them; without a sandboxed device nothing is installed"
    [ "$(cat device/calls)" = $'--state\n--erase' ]
    printf '#!/no/such/interpreter\n' >device/run
    try --device device Foo.kx-update
    expect_error 3 "$WORK/device/run: cannot start: No such file or directory"
    printf '#!/bin/sh\necho "{}" >device/changes; exit 0\n' >device/run
    try --device device Foo.kx-update
    expect_status 3
}

@test "it works from an installation, which can be moved" {
    hello Foo.kx-update
    cmake --install "$(dirname "$KX_PACKAGE")" --prefix "$WORK/first" >/dev/null
    [ ! -e first/lib/kx_Updater/device/probe ]
    [ -x first/lib/kx_Updater/device/drive ]
    mv first second
    local folder
    folder=$(cd second && pwd -P)
    ASAN=(--env ASAN_OPTIONS=detect_leaks=0)

    run --separate-stderr env PATH="$folder/bin:$PATH" kx-package try "${ASAN[@]}" --json Foo.kx-update

    [ "$status" -eq 0 ]
    [ "$(jq .installed <<<"$output")" = true ]
    nothing_is_left
    rm -r second/lib/kx_Updater/device
    run --separate-stderr second/bin/kx-package try Foo.kx-update
    [ "$status" -eq 3 ]
    [ "$stderr" = "kx-package: $folder/lib/kx_Updater/device/run: there is no sandboxed device; name the folder that holds its program 'run' with --device DIR or KX_DEVICE" ]
    rm second/bin/kx_Updater
    run --separate-stderr second/bin/kx-package try --device "$ROOT/device" Foo.kx-update
    [ "$status" -eq 3 ]
    [[ "$stderr" == "kx-package: $folder/lib/kx_Updater/"*"/kx_Updater: there is no updater for "* ]]
}

@test "an ordinary user tries packages, too" {
    make_public_copy
    hello "$PUBLIC/Foo.kx-update"
    cp "$KX_PACKAGE" "$KX_UPDATER" "$PUBLIC/"
    chmod -R a+rX "$PUBLIC"
    # A program built for coverage leaves its counts there.
    mkdir -m 777 "$PUBLIC/counts"
    export GCOV_PREFIX=$PUBLIC/counts
    cd "$PUBLIC/open"

    TMPDIR=$PUBLIC/open run --separate-stderr as_ordinary_user "$PUBLIC/kx-package" try --json \
        --device "$PUBLIC/device" --updater "$PUBLIC/kx_Updater" \
        --env ASAN_OPTIONS=detect_leaks=0 "$PUBLIC/Foo.kx-update"

    [ "$status" -eq 0 ]
    [ "$(jq -r '.installations[0].files[1] | .path + " " + .owner' <<<"$output")" = '/opt/demo/app root' ]
    [ -z "$(ls -A "$PUBLIC/open")" ]
    chmod 000 "$PUBLIC/Foo.kx-update"
    [ "$(id -u)" -ne 0 ] || chown 65534 "$PUBLIC/Foo.kx-update"
    run --separate-stderr as_ordinary_user "$PUBLIC/kx-package" try "$PUBLIC/Foo.kx-update"
    [ "$status" -eq 3 ]
    [ "$stderr" = "kx-package: $PUBLIC/Foo.kx-update: cannot open: Permission denied" ]
    cd "$WORK"
    rm -rf "$PUBLIC"
}

# ---- bounds ----

@test "an installation without end is ended, and told as far as it came" {
    hello Foo.kx-update "$HELLO"$'\nscript("#!/bin/sh\\necho waiting\\nexec sleep 93.25\\n")'

    try --json --seconds 2 Foo.kx-update

    expect_status 1
    [ "$(told '.installed')" = false ]
    [ "$(told '.installations[0].remarks[0]')" = 'ended after the time limit of 2 seconds' ]
    [ "$(told '.installations[0].log[-1]')" = waiting ]
    [ "$(told '.installations[0].files[1].path')" = /opt/demo/app ]
    host_lacks_process 'sleep 93.25'
}

@test "a package that fills the disk, or takes all memory, is ended" {
    hello Disk.kx-update 'script("#!/bin/sh\nyes >/var/full; sleep 60\n")'
    try --json --disk 40 Disk.kx-update
    expect_status 1
    [ "$(told '.installations[0].remarks[0]')" = "ended because the panel's files take more than 40 MiB; see --disk" ]

    # shellcheck disable=SC2016 # expanded on the panel
    hello Memory.kx-update 'script("#!/bin/sh\nx=$(yes)\n")'
    try --json --memory 300 --seconds 60 Memory.kx-update
    expect_status 1
    [ "$(told '.installations[0].remarks[0]')" = 'the memory limit of 300 MiB was reached' ]
}

@test "endless output is kept in part" {
    hello Foo.kx-update 'script("#!/bin/sh\nseq 1000000; echo end\n")'

    try --json Foo.kx-update

    expect_status 0
    [ "$(told '.installations[0].log[1]')" = 1 ]
    [ "$(told '.installations[0].log[-2]')" = end ]
    [ "$(told '.installations[0].logOmitted > 3000000')" = true ]
    [ "$(stat -c %s "$OUT")" -lt 3000000 ]
}

@test "interrupting ends everything and leaves nothing" {
    hello Foo.kx-update 'script("#!/bin/sh\ntrap \"\" INT TERM HUP\nsleep 97.25 & sleep 97.25\n")'
    prepare_try Foo.kx-update
    local signal number begin
    for signal in INT TERM HUP; do
        env --default-signal=INT "${TRY[@]}" >"$OUT" 2>"$ERR" </dev/null &
        number=$!
        wait_until host_has_process 'sleep 97.25'
        begin=$SECONDS
        kill "-$signal" "$number"
        status=0
        wait "$number" || status=$?

        [ $((SECONDS - begin)) -lt 60 ] # and not at the end of the script
        expect_status "$((128 + $(kill -l "$signal")))"
        expect_out </dev/null
        expect_silence
        wait_until host_lacks_process 'sleep 97.25'
        nothing_is_left
    done
}

@test "the panel ends with a tool that is killed" {
    hello Foo.kx-update 'script("#!/bin/sh\nexec sleep 98.25\n")'
    prepare_try Foo.kx-update
    "${TRY[@]}" >"$OUT" 2>"$ERR" </dev/null &
    local number=$!
    wait_until host_has_process 'sleep 98.25'

    kill -KILL "$number"

    wait_until host_lacks_process 'sleep 98.25'
    local folder
    for folder in "$TMPDIR"/*/panel; do
        wait_until "$RUN" --erase --state "$folder" 2>/dev/null
    done
}

# ---- the shell ----

# type_into TYPED...: starts the array TRY on a terminal of its own; types each text after a prompt
# was shown. What the terminal showed stands in the file screen.
type_into() {
    cat >typist.py <<'END'
import os, pty, re, select, sys
mark, typed = sys.argv.index("--"), []
typed, words = sys.argv[1:mark], sys.argv[mark + 1:]
process, terminal = pty.fork()
if process == 0:
    os.execvp(words[0], words)
screen, seen = b"", 0
while select.select([terminal], [], [], 60)[0]:
    try:
        piece = os.read(terminal, 65536)
    except OSError:
        break
    if not piece:
        break
    screen += piece
    if typed and screen.find(b"panel:/# ", seen) >= 0:
        seen = len(screen)
        text = typed.pop(0).encode()
        os.write(terminal, text)
        if b"sleep" in text:
            while b"STARTED" not in screen[seen:].replace(b"echo STARTED", b""):
                screen += os.read(terminal, 65536)
            seen = len(screen)
            os.write(terminal, b"\x03")
open("screen", "wb").write(re.sub(rb"\r|\x1b\[\?2004[hl]", b"", screen))
sys.exit(os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]))
END
    status=0
    timeout 120 /usr/bin/python3 typist.py "$@" -- "${TRY[@]}" || status=$?
}

@test "a shell shows the panel after the installation, and what it changed is told" {
    hello Foo.kx-update
    prepare_try --shell Foo.kx-update

    type_into $'cat /opt/demo/app; echo mine >/opt/mine\n' $'id -u; exit 3\n'

    expect_status 0
    grep -qF "The package is installed. This is a shell on the panel; leave it with 'exit'." screen
    grep -qx program screen
    sed -n 's/\x1b\[[0-9]*m//g; /^What the shell changed/,/^settings/p' screen >part
    same part 'what the shell changed' <<'END'
What the shell changed
  added    -rw-r--r--  root:root  5  /opt/mine
settings
END
    nothing_is_left
}

@test "keys such as Ctrl-C reach the shell's commands only" {
    hello Foo.kx-update 'script("#!/bin/sh\nexit 1\n")'
    prepare_try --shell Foo.kx-update

    # Said by the command that gets the key: the terminal is its own by then.
    type_into $'sh -c "echo STARTED; exec sleep 96.25"\n' $'echo status $?; exit\n'

    expect_status 1
    grep -qF 'The package is not installed.' screen
    grep -qx 'status 130' screen
    host_lacks_process 'sleep 96.25'
    nothing_is_left
}

@test "the shell's result goes to a file as JSON, what it shows to the terminal" {
    hello Foo.kx-update
    prepare_try --json --shell Foo.kx-update
    # shellcheck disable=SC2016 # expanded by the inner shell
    TRY=(sh -c 'exec "$@" >out.json' sh "${TRY[@]}")

    type_into $'echo x >/opt/x; exit 4\n'

    expect_status 0
    [ "$(jq -r '.shell | .exitStatus, .files[].path' out.json)" = $'4\n/opt/x' ]
}

@test "the shell needs a terminal" {
    hello Foo.kx-update

    try --shell Foo.kx-update

    expect_error 2 '--shell: needs a terminal, and standard input is none; start it from a terminal, or leave --shell out'
}
