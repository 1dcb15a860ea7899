#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The list of installed software on the panel.

load window

setup() {
    window_setup
    RECORDS=$WORK/records
    mkdir "$RECORDS"
    RECORDED=(--put "$RECORDS=/var/lib/KxUserPackages")
}

# record NAME <RECIPE
record() {
    "$ROOT/tests/device/make_package.py" "$RECORDS/$1"
}

SHOW_LIST='press InstalledListButton
wait front InstalledListDialog
list
press closeButton
wait front MainWindow
state'

@test "every recorded package is a row, in the order of the record names, as UTF-8" {
    drive_package Foo </dev/null
    record b <<<'root(Title="Pump control", PackageVersion="2.1", Comment="für Käse")'
    record a <<<'root(Title="画面", PackageVersion="", Comment="two\nlines")'
    record C <<<'root(Title="Third", PackageVersion="1", Comment="no step needed"); change(
        lambda project: project.update(DB_StepSets="none"))'

    window "${RECORDED[@]}" <<END
wait button InstallButton
$SHOW_LIST
log
END

    expect_status 0
    expect_transcript <<END
Third | 1 | no step needed
画面 |  | two\nlines
Pump control | 2.1 | für Käse
$ASKING
END
}

@test "without a record the list is empty; it shows what was installed since, and again" {
    drive_package Foo </dev/null

    window <<END
wait button InstallButton
$SHOW_LIST
press InstallButton
wait button OkButton
press tab Log
$SHOW_LIST
press tab Install
press OkButton
$SHOW_LIST
END

    expect_transcript <<END
$ASKING
Test package | 1.0.0 | made by a test
${INSTALLED/Install | package/Log | package}
Test package | 1.0.0 | made by a test
$REMOVE
END
}

@test "a broken record has no row; the log tells of it, and the tab in front is as before" {
    drive_package Foo </dev/null
    record a <<<'root(Title="A")'
    record b <<<'description(b"\xef\xbb\xbf{oops")'
    record c <<<'root(Title="C", Comment=None)'
    mkdir "$RECORDS/d"
    touch "$RECORDS/e"
    record f <<<'root(Title="F")'

    window "${RECORDED[@]}" <<END
wait button InstallButton
$SHOW_LIST
log
END

    expect_transcript <<END
A | 1.0.0 | made by a test
F | 1.0.0 | made by a test
$ASKING
 Unable to analyze the data in /var/lib/KxUserPackages/b/UserPackage.kx-project file.
No Zt.Plugins.DB_KxUserProject, Plexa.Comment field specified in .kx-project .
Initialized error in Zt.Plugins.DB_KxUserProject, Plexa class.
/var/lib/KxUserPackages/c/UserPackage.kx-project file is not kx-package.
 Root object of this file is not DB_KxUserProject.
Unable to access /var/lib/KxUserPackages/d/UserPackage.kx-project file.
Unable to access /var/lib/KxUserPackages/e/UserPackage.kx-project file.
END
}

@test "300 records are 300 rows" {
    drive_package Foo </dev/null
    record 001 <<<'root(Title="Package 001")'
    local name
    for name in $(seq -w 2 300); do
        mkdir "$RECORDS/$name"
        sed "s/Package 001/Package $name/" "$RECORDS/001/UserPackage.kx-project" \
            >"$RECORDS/$name/UserPackage.kx-project"
    done

    window "${RECORDED[@]}" <<END
wait button InstallButton
$SHOW_LIST
END

    {
        seq -f 'Package %03.0f | 1.0.0 | made by a test' 300
        echo "$ASKING"
    } | expect_transcript
}

@test "the list opens in every state, over an error and while the drive is awaited" {
    record a <<<'root(Title="A")'

    window "${RECORDED[@]}" <<END
wait button OkButton
$SHOW_LIST
press OkButton
$SHOW_LIST
$PULL
wait button RebootButton
press RebootButton
$SHOW_LIST
END

    expect_transcript <<END
A | 1.0.0 | made by a test
There is no installation software in the USB flash drive. | error | OkButton | Install | no package
A | 1.0.0 | made by a test
$REMOVE
A | 1.0.0 | made by a test
$REBOOTING
END
    expect_commands <<'END'
[sync]
[/usr/bin/kxsystem/usb_umount]
[/sbin/reboot]
[sync]
END
}

# A damaged record of the kind that no other one shows.
root_is_no_object() {
    record a <<<'root(Title="A")'
    record b <<<'description(b"\xef\xbb\xbf[1, 2]")'
}

@test "a record whose root is no object ends the window, and nothing is cleaned up" {
    drive_package Foo </dev/null
    root_is_no_object

    window --keep "${RECORDED[@]}" <<'END'
wait button InstallButton
press InstalledListButton
wait end
END

    expect_status 134
    grep -q 'std::runtime_error' "$ERR"
    expect_commands <<'END'
[sync]
[rm -r "/mnt/usb/Foo.temp"]
[mkdir -p "/mnt/usb/Foo.temp"]
[unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp" ]
END
    [ -d "$STATE/drive/Foo.temp" ] || fail 'the unpacked folder is gone'
}

@test "during an installation it ends the window alone: the installer goes on to its end" {
    # shellcheck disable=SC2016 # expanded on the panel
    echo 'tail -s 0.05 --pid="$(cat /tmp/child)" -f /dev/null' >"$PACKAGES/wait-for-child"
    drive_package Foo <<'END'
script("#!/bin/sh\nsed -n 's/^PPid:[^0-9]*//p' /proc/$PPID/status >/tmp/child\n"
       "mkfifo /tmp/go\necho waiting\ncat /tmp/go\n")
copy_file(item("a", "/opt/demo/a"), record=True)
END
    root_is_no_object

    window "${RECORDED[@]}" \
        --look 'sh /packages/wait-for-child; ls -A /opt/demo /var/lib/KxUserPackages' <<END
$INSTALL
wait log waiting
press InstalledListButton
wait end
$LET_GO
END

    expect_status 134
    expect_panel <<'END'
/opt/demo:
a

/var/lib/KxUserPackages:
Foo
a
b
END
}
