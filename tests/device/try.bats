#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package try: what is told of installations, repeated ones, and ones that are made to fail.

load try

setup() {
    try_setup
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
  added: 4 folders, 5 files
settings
  Level=8
records
  Foo: added
a reboot was asked for

Recorded as Foo: 2 folders, 3 files

What scripts and tools printed
  | hello
  | rm: cannot remove '/etc/motd': No such file or directory
END
    try --verbose Foo.kx-update
    expect_status 0
    expect_silence
    expect_out <<'END'
Foo.kx-update: installed

What the installation changed
  added    drwxr-xr-x  root:root        /opt/demo  (recorded)
  added    -rwxr-xr-x  root:root     8  /opt/demo/app  (recorded)
  added    lrwxrwxrwx  root:root     3  /opt/demo/link -> app
  added    drwxr-xr-x  root:root        /tmp/Zt
  added    -rwxr-xr-x  root:root    69  /tmp/Zt/temp.sh
  added    drwxr-xr-x  root:root        /var/lib/KxUserPackages
  added    drwxr-xr-x  root:root        /var/lib/KxUserPackages/Foo  (recorded)
  added    -rw-r--r--  root:root  2433  /var/lib/KxUserPackages/Foo/UserPackage.kx-project  (recorded)
  added    -rw-r--r--  root:root   164  /var/lib/KxUserPackages/Foo/installedFile.list  (recorded)
settings
  Level=8
users
  none
records
  Foo: added
a reboot was asked for

Recorded as Foo: 2 folders, 3 files

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
{"formatVersion": 1, "package": "Foo.kx-update", "recordName": "Foo", "verdict": "installed",
 "reason": null,
 "installed": true, "restart": null, "shell": null, "kept": null,
 "installations": [{
  "unpacked": true, "verdict": "installed", "reason": null, "installed": true, "exitCode": 0,
  "remarks": [], "failedSteps": [], "programs": [],
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

    try -v Foo.kx-update

    expect_status 1
    expect_silence
    expect_out <<'END'
Foo.kx-update: not installed, exit code 101
  step 2 (script) failed: exit status 7: "/tmp/Zt/temp.sh"

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

@test "the short form tells what was there before and what is the panel's own, and how much else" {
    # shellcheck disable=SC2016 # expanded on the panel
    hello Foo.kx-update 'script("#!/bin/sh\nmkdir /opt/many; for n in $(seq 30); do echo >/opt/many/$n; done\n"
"echo >/etc/new; echo x >>/etc/profile; rm /etc/nsswitch.conf; seq 25\n")'

    try Foo.kx-update

    expect_status 0
    sed -n '/^What the/,/^records/p; /^What scripts/,$p' "$OUT" | sed 's/  *[0-9]*  \/etc/  N  \/etc/' >seen
    { cat <<'END' && seq -f '  | %g' 6 25; } >wanted
What the installation changed
  added: 4 folders, 34 files
  changed: 1 file
  removed: 1 file
  removed  -rw-r--r--  root:root  N  /etc/nsswitch.conf
  changed  -rw-r--r--  root:root  N  /etc/profile
  added    -rw-r--r--  root:root  N  /etc/new
records
What scripts and tools printed
  | ... 5 more; see --verbose
END
    diff wanted seen
}

# ---- steps that fail ----

@test "a step that failed and was skipped stands in the first line and in the JSON" {
    hello Foo.kx-update 'script("#!/bin/sh\nexit 3\n", skip=True)
copy_file(item("a", "/dev/null/a", "755", "a\n"), item("b", "/opt/b", "755", "b\n"), item("c", "/dev/null/c"), skip=True)
copy_folder(folder("/dev/null/d", {"x": "x\n"}), skip=True)
script("#!/bin/sh\nprintf no-end-of-line\n")
hardware(setting("User", ("User", "nobody-here"), ("Password", "geheim")), skip=True)'

    try Foo.kx-update

    expect_status 0
    [ "$(head -n 5 "$OUT")" = "Foo.kx-update: installed; steps 1, 2, 3 and 5 failed and were skipped
  step 1 (script) failed and was skipped: exit status 3: \"/tmp/Zt/temp.sh\"
  step 2 (copy-files) failed and was skipped: exit status 1: cp -f \"/mnt/usb/Foo.temp/1/0/a\" \"/dev/null/a\"; and 1 more of its items
  step 3 (copy-folder) failed and was skipped: exit status 1: cp -f \"/mnt/usb/Foo.temp/2/0/x\" \"/dev/null/d/x\"
  step 5 (settings) failed and was skipped: the setting 'user' failed: echo 'nobody-here:********' | chpasswd" ]
    try --json Foo.kx-update
    expect_status 0
    [ "$(told '.verdict')" = installed ]
    jq -e '.installations[0].failedSteps[0] == {"step": 1, "kind": "script", "why": "exit status 3",
        "command": "\"/tmp/Zt/temp.sh\"", "failures": 1, "skipped": true}' "$OUT"
    [ "$(told '.installations[0].failedSteps[] | "\(.step) \(.failures)"')" = $'1 1\n2 2\n3 1\n5 1' ]
    [ "$(grep -c geheim "$OUT")" -eq 0 ]
}

@test "what scripts print in the updater's words is not believed" {
    hello Foo.kx-update 'script("#!/bin/sh\n"
    "echo \"Script execution returned an error(=256) in step no 1\"\n"
    "echo \"H/W setting failed in x in.\"; echo \"**** Installation step 5/9\"\n"
    "echo \"File copy error(= 256) is corrupted. From a to b  (Permissions=)\"\n")
copy_file(item("a", "/opt/a", "755", "a\n"), skip=True)'

    try --json Foo.kx-update

    expect_status 0
    [ "$(told '.installations[0].failedSteps | length')" -eq 0 ]
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

    try --twice --verbose Foo.kx-update

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
