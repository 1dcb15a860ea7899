#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package plan, as a user starts it. That its commands are those of the real window and its child
# is tested on the device.

load package

# make FOLDER|FILE <RECIPE: makes a package with an updater; the recipe is explained in
# make_package.py.
make() {
    local option=()
    [[ $1 != *.kx-update ]] || option=(--update)
    {
        echo 'put("kx_Updater", b"no program", 0o755)'
        cat
    } >recipe
    KX_PACKAGE=$KX_PACKAGE "$ROOT/tests/device/make_package.py" "${option[@]}" "$1" <recipe
}

# commands [FILTER]: the planned commands, each in brackets so that blanks at the end show; FILTER
# selects among them, in jq's language.
commands() {
    jq -r ".commands[] | select(${1:-true}) | \"[\" + .command + \"]\"" out
}

# expect_commands FILTER: compares them with standard input.
expect_commands() {
    diff - <(commands "$1") || {
        cat err >&2
        return 1
    }
}

# bounded ARGUMENT...: starts kx-package with 1 GiB of memory and 60 seconds; leaves what kx leaves.
bounded() {
    status=0
    (
        case ${ASAN_OPTIONS:-}$(nm -D "$KX_PACKAGE" 2>/dev/null | grep -m 1 __asan_init || true) in
            '') ulimit -v 1048576 ;;
        esac
        exec timeout 60 "$KX_PACKAGE" "$@"
    ) >out 2>err </dev/null || status=$?
}

# without_rights ARGUMENT...: starts kx-package without root's right to read everything.
without_rights() {
    local user=()
    [ "$(id -u)" -ne 0 ] || user=(setpriv '--bounding-set=-dac_override,-dac_read_search')
    status=0
    "${user[@]}" "$KX_PACKAGE" "$@" >out 2>err </dev/null || status=$?
}

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

    kx plan --json Foo.kx-update

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

@test "what the shell reads differently, what is not known, and what a script decides is marked" {
    make Foo <<'END'
copy_file(item("a", "/opt/$HOME/a", "u+x;x"))
script("#!/bin/sh\n")
copy_file(item("b", "/opt/b/b", "755"))
hardware(setting("User", ("User", "user"), ("Password", "it's")), setting("Lan", ("Ip", "`x`")))
END

    kx plan --json Foo

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
    kx plan Foo
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

# ---- what cannot be read, and wrong use ----

@test "plan says what it cannot read" {
    kx plan none.kx-update
    expect 3 '' $'kx-package: none.kx-update: cannot open: No such file or directory\n'
    echo text >x.kx-update
    kx plan x.kx-update
    expect 3 '' $'kx-package: x.kx-update: cannot open the archive: Not a zip archive\n'
    : >empty.kx-update
    kx plan empty.kx-update
    [ "$status" -eq 3 ]
    kx plan /dev/null
    expect 3 '' $'kx-package: /dev/null: is neither a file nor a folder; name a package or the folder of an unpacked one\n'
}

@test "a description that cannot be read is no plan" {
    make Foo </dev/null
    chmod 000 Foo/UserPackage.kx-project

    without_rights plan Foo
    expect 3 '' $'kx-package: Foo/UserPackage.kx-project: cannot read: Permission denied\n'
}

# refused FILE: expects the plan of an archive that unzip itself does not unpack without complaint.
refused() {
    local unzipped=0
    mkdir -p unzipped
    unzip -o "$1" -d unzipped >/dev/null 2>&1 </dev/null || unzipped=$?
    [ "$unzipped" -ne 0 ]
    kx plan --json "$1"
    expect_commands true <<END
[sync]
[rm -r "/mnt/usb/${1%.kx-update}.temp"]
[mkdir -p "/mnt/usb/${1%.kx-update}.temp"]
[unzip -o "/mnt/usb/$1" -d "/mnt/usb/${1%.kx-update}.temp" ]
[rm -r "/mnt/usb/${1%.kx-update}.temp"]
[/usr/bin/kxsystem/usb_umount]
[/sbin/reboot]
END
    [ "$(jq -r '.log[-1]' out)" = "Unable to unpack /mnt/usb/$1 file to /mnt/usb/${1%.kx-update}.temp." ]
    [ "$(jq '.shown' out)" = false ]
    rm -r unzipped
}

@test "what unzip refuses or warns of is not installed by the plan either" {
    make Foo <<'END'
copy_folder(folder("/opt/f", {"d": {"x": "x"}}))
END
    (cd Foo && zip -q -0 -r ../Good.kx-update .)
    kx plan Good.kx-update
    grep -qx 'The installation succeeds.' out

    sed 's/Test package/Best package/' Good.kx-update >Sum.kx-update
    (echo '#!/bin/sh' && cat Good.kx-update) >Leading.kx-update
    (cd Foo && zip -q -P secret -r ../Encrypted.kx-update .)
    (cd Foo && 7z a -tzip -bd -mm=LZMA ../Method.kx-update . >/dev/null)
    /usr/bin/python3 - <<'END'
import zipfile

def copy(name, rename=lambda name: name, system=3, more=()):
    with zipfile.ZipFile("Good.kx-update") as good, zipfile.ZipFile(name, "w") as archive:
        for old in good.infolist():
            info = zipfile.ZipInfo("x", (2026, 11, 21, 0, 0, 0))
            info.filename, info.create_system = rename(old.filename), system
            info.external_attr = old.external_attr
            archive.writestr(info, good.read(old))
        for path in more:
            archive.writestr(path, "more")

copy("Backslash.kx-update", lambda name: name.replace("/", "\\"), system=0)
copy("Absolute.kx-update", lambda name: "/" + name)
copy("Up.kx-update", lambda name: "../" + name)
copy("Conflict.kx-update", more=["a", "a-b", "a/c"])
END

    for name in Sum Leading Encrypted Method Backslash Absolute Up Conflict; do
        refused "$name.kx-update"
        [ "$status" -eq 1 ]
    done
}

@test "a description beyond all measure is no plan" {
    mkdir Foo
    truncate -s 1T Foo/UserPackage.kx-project

    bounded plan Foo

    expect 3 '' $'kx-package: Foo:UserPackage.kx-project: is larger than 256 MiB\n'
}

@test "wrong use of plan" {
    demo pkg
    kx build pkg --updater arm-updater

    kx plan
    expect 2 '' $'kx-package: package is required; see kx-package --help\n'
    kx plan demo.kx-update --at mnt/usb
    expect 2 '' $'kx-package: --at: must be an absolute path; see kx-package --help\n'
    kx plan demo.kx-update --at ''
    [ "$status" -eq 2 ]
    kx plan demo.kx-update --root none
    expect 2 '' $'kx-package: --root: Directory does not exist: none; see kx-package --help\n'
    kx plan demo.kx-update --root demo.kx-update
    [ "$status" -eq 2 ]
    kx plan demo.kx-update other
    [ "$status" -eq 2 ]
    kx plan --json --what demo.kx-update
    [ "$status" -eq 2 ]
    jq -e '.error.code == 2' out
    [ ! -s err ]
    kx plan --help
    [ "$status" -eq 0 ]
    grep -q '^Examples:' out
}

@test "output that cannot be written is told" {
    demo pkg
    kx build pkg --updater arm-updater

    status=0
    "$KX_PACKAGE" plan demo.kx-update >/dev/full 2>err || status=$?

    [ "$status" -eq 3 ]
    [ "$(cat err)" = 'kx-package: standard output: cannot be written' ]
}

# ---- hostile packages ----

@test "names of any bytes: the plan is still JSON, and nothing plays with the terminal" {
    make Foo <<'END'
copy_folder(folder("/opt", {raw(b"\xff\xfe"): "", "tab\there": "", "\x1b[31mred": "", "two\nlines": "", "日本": ""}),
            record=True)
END

    kx plan --json Foo
    [ "$status" -eq 0 ]
    iconv -f UTF-8 -t UTF-8 out >/dev/null
    [ "$(jq -r '.commands[] | select(.commandHex) | .command' out)" = 'cp -f "/mnt/usb/Foo.temp/0/0/\xff\xfe" "/opt/\xff\xfe" ' ]
    jq -r '.commands[].commandHex // empty' out | /usr/bin/python3 -c 'import sys
assert bytes.fromhex(sys.stdin.read()) == b"cp -f \"/mnt/usb/Foo.temp/0/0/\xff\xfe\" \"/opt/\xff\xfe\" "'
    jq -e '.recordedFiles | index("/opt/\\xff\\xfe") and index("/opt/tab\there")' out

    kx plan Foo
    [ "$(LC_ALL=C tr -d '\12\40-\176\200-\377' <out | wc -c)" -eq 0 ]
    grep -qF '"/opt/\x1b[31mred" ' out
    grep -qF '  /opt/two\nlines' out
    grep -qF '"/opt/日本" ' out
    grep -qxF '  /opt/\xff\xfe' out
}

@test "a package whose name plays with the terminal and the shell" {
    make Foo </dev/null
    mv Foo $'F\e[2J$HOME'

    kx plan $'F\e[2J$HOME'

    [ "$status" -eq 1 ]
    # shellcheck disable=SC2016 # the name
    grep -qxF '  mkdir -p "/mnt/usb/F\x1b[2J$HOME.temp"  [the shell reads this differently]' out
    [ "$(grep -c $'\e' out)" -eq 0 ]
}

@test "links in a payload are followed as on the panel" {
    make Foo <<'END'
copy_folder(folder("/opt/one", {"a": "a", "file": link("a"), "gone": link("nowhere")}), skip=True)
copy_folder(folder("/opt/two", {"d": {"x": "x"}, "folder": link("d"), "other": link("../../0/0/a")}))
copy_folder(folder("/opt/three", {"home": link("/home")}))
END
    (cd Foo && zip -q -r -y ../Foo.kx-update .)

    kx plan --json Foo
    mv out folder.json
    kx plan --json Foo.kx-update
    diff folder.json out

    expect_commands '.step != null' <<'END'
[mkdir -p "/opt/one"]
[cp -f "/mnt/usb/Foo.temp/0/0/a" "/opt/one/a" ]
[cp -f "/mnt/usb/Foo.temp/0/0/file" "/opt/one/file" ]
[cp -f "/mnt/usb/Foo.temp/0/0/gone" "/opt/one/gone" ]
[mkdir -p "/opt/two"]
[mkdir -p "/opt/two/d"]
[cp -f "/mnt/usb/Foo.temp/1/0/d/x" "/opt/two/d/x" ]
[mkdir -p "/opt/two/folder"]
[cp -f "/mnt/usb/Foo.temp/1/0/folder/x" "/opt/two/folder/x" ]
[cp -f "/mnt/usb/Foo.temp/1/0/other" "/opt/two/other" ]
[mkdir -p "/opt/three"]
[mkdir -p "/opt/three/home"]
[mkdir -p "/opt/three/home/user"]
END
}

@test "a description and an updater that are links are followed, and told where they lead to nothing" {
    make Foo <<'END'
copy_folder(folder("/opt/f", {"x": "x"}))
END
    kx plan Foo
    mv out files.plan
    mkdir Foo/real
    mv Foo/UserPackage.kx-project Foo/kx_Updater Foo/real
    ln -s real/UserPackage.kx-project real/kx_Updater Foo
    (cd Foo && zip -q -r -y ../Foo.kx-update .)

    for package in Foo Foo.kx-update; do
        kx plan "$package"
        diff files.plan out
        kx show "$package"
        [ "$status" -eq 0 ]
        grep -q '^  updater:   .*[KM]iB$\|^  updater:   .* bytes$' out
    done

    rm -r Foo/real
    (cd Foo && rm -f ../Foo.kx-update && zip -q -r -y ../Foo.kx-update .)
    kx plan Foo.kx-update
    [ "$status" -eq 1 ]
    grep -qxF "The window cannot load the package: Unable to access /mnt/usb/Foo.temp/UserPackage.kx-project file. UserPackage.kx-project is a link to 'real/UserPackage.kx-project'." out
    kx show Foo.kx-update
    expect 3 '' $'kx-package: Foo.kx-update:UserPackage.kx-project: is a link to \'real/UserPackage.kx-project\', which is no file of the package; pack the file itself (zip without -y)\n'
}

@test "a link that leads round is followed until Linux refuses" {
    make Foo <<'END'
copy_folder(folder("/opt/tree", {"a": "a", "round": link(".")}))
END

    kx plan --json Foo

    [ "$status" -eq 1 ]
    [ "$(commands | grep -c '^.mkdir -p "/opt/tree')" -eq 41 ]
    [ "$(jq -r '.log[-1]' out)" = 'Installation failed in step 1.' ]
}

# two_ways FOLDER LEVELS: folders of which each has two links to the next: 2^LEVELS ways to the last.
two_ways() {
    local level
    for ((level = 0; level < $2; ++level)); do
        mkdir -p "$1/$level"
        ln -s "../$((level + 1))" "$1/$level/a"
        ln -s "../$((level + 1))" "$1/$level/b"
    done
    mkdir "$1/$2"
}

@test "lists in lists that double what is read: no plan, at once, and show still tells the rest" {
    mkdir Foo
    /usr/bin/python3 - >Foo/UserPackage.kx-project <<'END'
TYPE = '"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": ['
print("\ufeff" + '{"$type": "Zt.Plugins.DB_KxUserProject, Plexa", "Title": "t", "DB_StepSets": ' +
      ("{" + TYPE) * 30 + "]}" * 30 + "}")
END

    bounded plan Foo
    [ "$status" -eq 1 ]
    [ "$(cat err)" = 'kx-package: Foo:UserPackage.kx-project: takes too long to read: there are too many objects in it, and each list doubles what stands in it; look for lists in lists' ]
    bounded show Foo
    [ "$status" -eq 0 ]
    grep -qxF '  title:     t' out
    grep -qF '  nothing. Foo:UserPackage.kx-project: takes too long to read' out
}

@test "links that multiply folders: no plan, in bounded time and memory" {
    make Foo <<'END'
copy_folder(folder("/opt/tree", {}))
END
    two_ways Foo/0/0 38

    bounded plan Foo

    expect 1 '' $'kx-package: Foo: its installation takes more commands than can be planned; look for links that multiply its folders: find . -type l\n'
}

@test "nor is there where all of these folders are on the panel already, and no command is needed" {
    make Foo <<'END'
copy_folder(folder("/opt/tree", {}))
END
    two_ways Foo/0/0 38
    two_ways root/opt/tree 38

    bounded plan --json --root root Foo

    [ "$status" -eq 1 ]
    [ "$(jq -r .error.message out)" = 'its installation takes more commands than can be planned' ]
}

@test "twenty thousand files and twenty thousand links, in an archive" {
    make Foo <<'END'
copy_folder(folder("/opt/many", {}), record=True)
END
    /usr/bin/python3 - <<'END'
import os
os.makedirs("Foo/0/0/links")
for i in range(20000):
    os.makedirs(f"Foo/0/0/{i % 100}/sub", exist_ok=True)
    open(f"Foo/0/0/{i % 100}/sub/{i}", "w").close()
    os.symlink(f"../{i % 100}/sub/{i}", f"Foo/0/0/links/{i}")
END
    (cd Foo && zip -q -0 -r -y ../Foo.kx-update .)

    SECONDS=0
    bounded plan --json Foo.kx-update

    [ "$status" -eq 0 ]
    [ "$(commands | grep -c '^.cp -f "/mnt/usb/Foo.temp/0/0/')" -eq 40000 ]
    [ "$(jq '.recordedFiles | length' out)" -eq 40002 ]
    [ "$SECONDS" -lt 30 ]
}

@test "names of more folders than there can be take no memory" {
    /usr/bin/python3 - <<'END'
import zipfile
with zipfile.ZipFile("Long.kx-update", "w") as archive:
    archive.writestr("a/" * 30000 + "f", "x")
with zipfile.ZipFile("Many.kx-update", "w") as archive:
    for i in range(300):
        archive.writestr(f"{i}/" + "a/" * 2000 + "f", "x")
END

    bounded plan Long.kx-update
    [ "$status" -eq 1 ]
    grep -q '^The window cannot load the package' out
    bounded plan Many.kx-update
    expect 3 '' $'kx-package: the package\'s names hold more folders than can be listed\n'
}
