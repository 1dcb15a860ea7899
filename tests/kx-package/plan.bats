#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package plan, as a user starts it. That its commands are those of the real window and its child
# is tested on the device.

load plan

# ---- what it tells ----

@test "plan tells people the commands, who runs them, and what is recorded" {
    demo pkg
    kx build pkg --updater arm-updater

    kx plan demo.kx-update

    expect 0 "$(cat "$BATS_TEST_DIRNAME/golden/demo.plan")"$'\n' ''
}

@test "plan's JSON is stable" {
    demo pkg
    kx build pkg --updater arm-updater

    kx plan --json demo.kx-update

    expect 0 "$(cat "$BATS_TEST_DIRNAME/golden/demo.plan.json")"$'\n' ''
}

@test "the package as an archive, its folder and the folder's own name give the same plan" {
    demo pkg
    kx build pkg --updater arm-updater
    kx plan --json demo.kx-update
    mv out archive.json
    unzip -q demo.kx-update -d demo.temp
    mkdir other
    cp -R demo.temp other/demo

    kx plan --json demo.temp
    diff archive.json out
    kx plan --json other/demo///
    diff archive.json out
    cd demo.temp
    kx plan --json .
    diff ../archive.json out
    cd 0
    kx plan --json ..
    diff ../../archive.json out
}

@test "every kind of command is planned, letter for letter" {
    make Foo.kx-update <<'END'
copy_file(item(r"C:\work\a.bin", "/opt/demo/a", "755"), item("b", "/top", ""), item("c", "/opt/demo/", "640"))
copy_folder(folder("/opt/tree", {"z": "", ".h": "", "sub": {"x y": ""}, "empty": {}}))
copy_folder(folder("/", {"etc": {"new": {"conf": ""}}}))
script("#!/bin/sh\n")
hardware(setting("Backlight", ("Level", "8")), setting("Sound", ("Volume", "5"), used=False),
         setting("User", ("User", "user"), ("Password", "pass word")),
         setting("AutoStartupMode", ("CustomScript", "#!/bin/sh\n"), ("Mode", "script")))
END

    kx plan --show-secrets --json Foo.kx-update

    [ "$status" -eq 0 ]
    expect_commands 'true' <<'END'
[sync]
[rm -r "/mnt/usb/Foo.temp"]
[mkdir -p "/mnt/usb/Foo.temp"]
[unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" ]
[sync]
[/usr/bin/kxsystem/wprotect_off]
[mkdir -p "/opt/demo/"]
[cp -f "/mnt/usb/Foo.temp/0/0/a.bin" "/opt/demo/a" ]
[chmod 755 "/opt/demo/a" ]
[cp -f "/mnt/usb/Foo.temp/0/1/b" "/top" ]
[chmod 777 "/top" ]
[cp -f "/mnt/usb/Foo.temp/0/2/c" "/opt/demo/" ]
[chmod 640 "/opt/demo/" ]
[mkdir -p "/opt/tree"]
[cp -f "/mnt/usb/Foo.temp/1/0/.h" "/opt/tree/.h" ]
[mkdir -p "/opt/tree/empty"]
[mkdir -p "/opt/tree/sub"]
[cp -f "/mnt/usb/Foo.temp/1/0/sub/x y" "/opt/tree/sub/x y" ]
[cp -f "/mnt/usb/Foo.temp/1/0/z" "/opt/tree/z" ]
[mkdir -p "/etc/new"]
[cp -f "/mnt/usb/Foo.temp/2/0/etc/new/conf" "/etc/new/conf" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
[echo 'user:pass word' | chpasswd]
[chmod 777 "/mnt/user/startup.sh" ]
[kx-setting-cui set Level=8 Mode=script ]
[mkdir -p "/var/lib/KxUserPackages/Foo"]
[cp -f "/mnt/usb/Foo.temp/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" ]
[sync]
[rm -r "/mnt/usb/Foo.temp"]
[/usr/bin/kxsystem/usb_umount]
[/sbin/reboot]
END
    [ "$(jq -c '[.commands[] | .process[0:1]] | join("")' out)" = '"wwwwiiiiiiiiiiiiiiiiiiiiiiiiiiwww"' ]
    [ "$(jq -c '[.commands[].step] | unique' out)" = '[null,1,2,3,4,5]' ]
}

@test "passwords are masked unless they are asked for" {
    make Foo <<'END'
hardware(setting("User", ("User", "user"), ("Password", "pass: w'ord")),
         setting("Lan", ("Ip", "1"), ("password", "hidden"), ("Mask", "2")))
END

    for options in '' --json; do
        # shellcheck disable=SC2086 # no option is no word
        kx plan $options Foo
        grep -F "echo 'user:********' | chpasswd" out
        grep -F 'kx-setting-cui set Ip=1 password=********' out
        ! grep -E "pass:|w'ord|hidden" out || return 1
    done
    kx plan --show-secrets Foo
    grep -F "echo 'user:pass: w'ord' | chpasswd" out
    grep -F 'kx-setting-cui set Ip=1 password=hidden Mask=2' out

    kx show Foo
    ! grep -E 'pass:|hidden' out || return 1
    kx show --show-secrets Foo
    grep -F "pass: w'ord" out
    grep -F hidden out
}

@test "what the shell reads differently, what is not known, and what a script decides is marked" {
    make Foo <<'END'
copy_file(item("a", "/opt/$HOME/a", "u+x;x"))
script("#!/bin/sh\n")
copy_file(item("b", "/opt/b/b", "755"))
hardware(setting("User", ("User", "user"), ("Password", "it's")), setting("Lan", ("Ip", "`x`")))
END

    kx plan --show-secrets --json Foo

    expect_commands .readDifferently <<'END'
[mkdir -p "/opt/$HOME/"]
[cp -f "/mnt/usb/Foo.temp/0/0/a" "/opt/$HOME/a" ]
[chmod u+x;x "/opt/$HOME/a" ]
[echo 'user:it's' | chpasswd]
[kx-setting-cui set Ip=`x` ]
END
    expect_commands .unknownResult <<'END'
["/tmp/Zt/temp.sh"]
[echo 'user:it's' | chpasswd]
[kx-setting-cui set Ip=`x` ]
END
    expect_commands .afterScript <<'END'
[mkdir -p "/opt/b/"]
[cp -f "/mnt/usb/Foo.temp/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" ]
END
    kx plan --show-secrets Foo
    grep -qxF '  mkdir -p "/opt/b/"  [depends on an earlier script]' out
    grep -qxF "  echo 'user:it's' | chpasswd  [the shell reads this differently]  [result not known]" out
}

@test "plan --at plans another folder of the panel" {
    demo pkg
    kx build pkg --updater arm-updater

    kx plan --json --at /media/stick demo.kx-update

    [ "$status" -eq 0 ]
    [ "$(jq -r .packageFile out)" = /media/stick/demo.kx-update ]
    [ "$(commands | grep -c '"/media/stick/demo.temp')" -eq 8 ]
    [ "$(commands | grep -c /mnt/usb)" -eq 0 ]
}

# ---- how it may end ----

@test "a package without a description cannot be loaded" {
    mkdir Foo
    : >Foo/unused

    kx plan Foo

    expect 1 'window
  sync
  rm -r "/mnt/usb/Foo.temp"
  mkdir -p "/mnt/usb/Foo.temp"
  unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" 
  rm -r "/mnt/usb/Foo.temp"
  /usr/bin/kxsystem/usb_umount
  /sbin/reboot

The window cannot load the package: Unable to access /mnt/usb/Foo.temp/UserPackage.kx-project file.
' ''
}

@test "broken descriptions: the log is the panel's" {
    mkdir Foo
    local told
    while IFS='|' read -r description told; do
        printf '%b' "$description" >Foo/UserPackage.kx-project
        kx plan --json Foo
        [ "$status" -eq 1 ]
        [ "$(jq -r '.log | join("/")' out | tr '\n' '^')" = "$told^" ] || {
            echo "$description: $(jq -c .log out)" >&2
            return 1
        }
        jq -e '(.shown or .started or .installed or .aborted) | not' out
    done <<'END'
|/mnt/usb/Foo.temp/UserPackage.kx-project file is corrupted.
\xef\xbb\xbf|/mnt/usb/Foo.temp/UserPackage.kx-project file is corrupted.
{"$type":"x"}| Unable to analyze the data in /mnt/usb/Foo.temp/UserPackage.kx-project file.
\xef\xbb\xbf{}|$type is nothing//mnt/usb/Foo.temp/UserPackage.kx-project file is not kx-package.^ Root object of this file is not DB_KxUserProject.
\xef\xbb\xbf{"$type":"x"}|x is unknown class.//mnt/usb/Foo.temp/UserPackage.kx-project file is not kx-package.^ Root object of this file is not DB_KxUserProject.
END
}

@test "a description that is no object ends the window at once" {
    mkdir Foo
    printf '\xef\xbb\xbf[]' >Foo/UserPackage.kx-project

    kx plan Foo

    [ "$status" -eq 1 ]
    [ "$(tail -n 1 out)" = 'The window ends by SIGABRT: the description is no JSON object.' ]
    kx plan --json Foo
    [ "$status" -eq 1 ]
    jq -e '.aborted and (.commands | length) == 4' out
}

@test "a package without an updater, or with one that nobody may execute, has no installer" {
    make Foo </dev/null
    local end='The package'\''s updater cannot be started: kx_Updater is missing or not executable.'

    chmod 644 Foo/kx_Updater
    kx plan Foo
    [ "$status" -eq 1 ]
    [ "$(tail -n 1 out)" = "$end" ]
    rm Foo/kx_Updater
    kx plan Foo
    [ "$status" -eq 1 ]
    [ "$(tail -n 1 out)" = "$end" ]
    [ "$(grep -c installer out)" -eq 0 ]
    mkdir Foo/kx_Updater
    kx plan Foo
    [ "$(tail -n 1 out)" = "$end" ]
    rmdir Foo/kx_Updater
    echo 'no program' >Foo/real
    chmod 755 Foo/real
    ln -s real Foo/kx_Updater
    kx plan Foo
    [ "$status" -eq 0 ]
    grep -qxF 'The installation succeeds.' out
}

@test "a name that is not ASCII: the window does not find the updater" {
    make Foo </dev/null
    mv Foo Föö

    kx plan Föö

    [ "$status" -eq 1 ]
    [ "$(tail -n 1 out)" = "The package's updater cannot be started: the window does not find it, as the package's name is not plain ASCII." ]
    kx plan --json Föö
    jq -e '.shown and (.started | not)' out
}

@test "a file that the window does not take for a package is not planned further" {
    make Foo.kx-update </dev/null
    local name
    for name in Foo.zip Foo.KX-UPDATE Foo .kx-update; do
        mv Foo.kx-update "$name"
        kx plan --json "$name"
        [ "$status" -eq 1 ]
        [ "$(commands | tr -d '\n')" = '[sync][/usr/bin/kxsystem/usb_umount][/sbin/reboot]' ]
        jq -e '.found | not' out
        kx plan "$name"
        [ "$(tail -n 1 out)" = "The window finds no package: the file's name does not end in .kx-update." ]
        mv "$name" Foo.kx-update
    done
}

@test "a step that fails ends the plan, with its line" {
    make Foo <<'END'
copy_file(item("a", "/opt/a", "755"))
copy_file(item("b", "/opt/b", "99"))
copy_file(item("c", "/opt/c", "755"))
END

    kx plan Foo

    [ "$status" -eq 1 ]
    [ "$(tail -n 1 out)" = 'The installation fails: Installation failed in step 2.' ]
    [ "$(grep -c /opt/c out)" -eq 0 ]
    [ "$(grep -c '^Recorded' out)" -eq 0 ]
    kx plan --json Foo
    jq -e '.failedStep == 2 and .unpacked and (.recordedFolders + .recordedFiles | length) == 0' out
    [ "$(jq -r '.log[2]' out)" = 'File copy error(= 256) is corrupted. From /mnt/usb/Foo.temp/1/0/b to /opt/b  (Permissions=99)' ]
}

@test "a target without a name fails, and a line that is too long for the shell" {
    make Foo <<'END'
copy_file(item("a", ""), skip=True)
copy_file(item("b", "/opt/" + "n" * 140000), skip=True)
END

    kx plan --json Foo

    [ "$status" -eq 0 ]
    [ "$(jq -r '.log[1]' out)" = 'File copy error(= 256) is corrupted. From /mnt/usb/Foo.temp/0/0/a to   (Permissions=)' ]
    [ "$(jq -r '.log[3][0:24]' out)" = 'File copy error(= 32512)' ]
    [ "$(commands | grep -c chmod)" -eq 0 ]
}
