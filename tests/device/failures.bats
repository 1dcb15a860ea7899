#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Tools that fail or are missing, full disks, targets that cannot be written.

load device

two_copies() {
    package Foo <<END
copy_file(item("a", "/opt/demo/a", "600"), item("b", "/opt/demo/b"), item("c", "/opt/demo/c"),
          record=True, skip=$1)
END
}

@test "a failing copy ends the step and the installation: what came before it stays" {
    two_copies False

    install Foo --fail cp=3@2 --look 'ls /opt/demo; ls -A /var/lib/KxUserPackages'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 768) is corrupted. From /packages/Foo/0/1/b to /opt/demo/b  (Permissions=)
Installation failed in step 1.
END
    expect_failing <<'END'
[mkdir -p "/opt/demo/"]
[cp -f "/packages/Foo/0/0/a" "/opt/demo/a" ]
[chmod 600 "/opt/demo/a" ]
[cp -f "/packages/Foo/0/1/b" "/opt/demo/b" ]
END
    expect_panel <<'END'
a
ls: cannot access '/var/lib/KxUserPackages': No such file or directory
END
}

@test "with CanSkip a failing copy is reported and passed over, and not recorded" {
    two_copies True

    install Foo --fail cp=3@2 --look 'ls /opt/demo
        cat /var/lib/KxUserPackages/Foo/installedFile.list'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 768) is corrupted. From /packages/Foo/0/1/b to /opt/demo/b  (Permissions=)
Installation succeeded.
END
    expect_panel <<'END'
a
c
 #dir
/opt/demo/
/var/lib/KxUserPackages/Foo
 #file
/opt/demo/a
/opt/demo/c
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "a payload that is not there is a failing copy" {
    package Foo <<'END'
copy_file(item(r"C:\work\gone.bin", "/opt/demo/gone.bin", "644", None))
END

    install Foo

    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 256) is corrupted. From /packages/Foo/0/0/gone.bin to /opt/demo/gone.bin  (Permissions=644)
Installation failed in step 1.
END
    expect_err <<'END'
cp: cannot stat '/packages/Foo/0/0/gone.bin': No such file or directory
END
}

@test "a mode that cannot be set fails the item, which is copied and recorded all the same" {
    two_copies True

    install Foo --fail chmod=9@1 --look 'stat -c %a /opt/demo/a
        grep /opt/demo/a /var/lib/KxUserPackages/Foo/installedFile.list'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 2304) is corrupted. From /packages/Foo/0/0/a to /opt/demo/a  (Permissions=600)
Installation succeeded.
END
    expect_panel <<'END'
644
/opt/demo/a
END

    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "no such mode"), item("b", "/opt/demo/b"))
END
    install Foo --look 'ls /opt/demo'
    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 256) is corrupted. From /packages/Foo/0/0/a to /opt/demo/a  (Permissions=no such mode)
Installation failed in step 1.
END
    expect_panel <<<a
}

@test "a folder that cannot be made shows in the copy that follows" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"), record=True, skip=True)
copy_folder(folder("/opt/tree", {"f": "f"}), record=True, skip=True)
END

    install Foo --fail mkdir=1 --look 'ls -d /opt/demo /opt/tree'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/2
File copy error(= 256) is corrupted. From /packages/Foo/0/0/a to /opt/demo/a  (Permissions=)
**** Installation step 2/2
File copy error( = 256) is corrupted. From /packages/Foo/1/0 to /opt/tree  (Permissions=)
Installation succeeded.
END
    # The record's folder could not be made either.
    commands | tail -n 4 >"$WORK/last"
    same "$WORK/last" 'the last commands' <<'END'
[mkdir -p "/var/lib/KxUserPackages/Foo"]
[mkdir -p "/var/lib/KxUserPackages/Foo/"]
[cp -f "/packages/Foo/UserPackage.kx-project" "/var/lib/KxUserPackages/Foo/UserPackage.kx-project" ]
[sync]
END
    expect_panel <<'END'
ls: cannot access '/opt/demo': No such file or directory
ls: cannot access '/opt/tree': No such file or directory
END
}

@test "the third file of a folder's subfolder fails: nothing behind it is copied" {
    package Foo <<'END'
copy_folder(folder("/opt/tree", {"a": {"1": "", "2": "", "3": "", "4": ""}, "b": ""}), record=True)
script("#!/bin/sh\necho never\n")
END

    install Foo --fail cp=1@3 --look 'find /opt/tree | sort'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/2
File copy error( = 256) is corrupted. From /packages/Foo/0/0 to /opt/tree  (Permissions=)
Installation failed in step 1.
END
    expect_failing <<'END'
[mkdir -p "/opt/tree"]
[mkdir -p "/opt/tree/a"]
[cp -f "/packages/Foo/0/0/a/1" "/opt/tree/a/1" ]
[cp -f "/packages/Foo/0/0/a/2" "/opt/tree/a/2" ]
[cp -f "/packages/Foo/0/0/a/3" "/opt/tree/a/3" ]
END
    expect_panel <<'END'
/opt/tree
/opt/tree/a
/opt/tree/a/1
/opt/tree/a/2
END
}

@test "a full disk ends a file copy and a folder copy" {
    package File <<'END'
copy_file(item("a", "/opt/demo/a", "644", "x" * 100000))
END
    package Folder <<'END'
copy_folder(folder("/opt/demo", {"a": "x" * 100000, "b": "y"}))
END

    install File --full /opt/demo
    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 256) is corrupted. From /packages/File/0/0/a to /opt/demo/a  (Permissions=644)
Installation failed in step 1.
END
    grep -q 'No space left on device' "$ERR"

    install Folder --full /opt/demo
    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File copy error( = 256) is corrupted. From /packages/Folder/0/0 to /opt/demo  (Permissions=)
Installation failed in step 1.
END
    expect_failing <<'END'
[cp -f "/packages/Folder/0/0/a" "/opt/demo/a" ]
END
}

@test "a read-only target, a file where a folder is needed, a folder where a file is needed" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"))
END
    package Bar <<'END'
copy_file(item("a", "/opt/file", data="stays\n"))
copy_file(item("a", "/opt/file/below"), skip=True)
copy_folder(folder("/opt/file", {"f": ""}), skip=True)
copy_file(item("opt", "/", "755"), skip=True)
copy_file(item("hosts", "/etc"), skip=True)
END

    install Foo --read-only /opt/demo
    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 256) is corrupted. From /packages/Foo/0/0/a to /opt/demo/a  (Permissions=)
Installation failed in step 1.
END
    grep -q 'Read-only file system' "$ERR"

    install Bar --look 'cat /opt/file; ls -l /etc/hosts | cut -c 1-10; stat -c %a /etc'
    expect_status 0
    expect_out <<'END'
**** Installation step 1/5
**** Installation step 2/5
File copy error(= 256) is corrupted. From /packages/Bar/1/0/a to /opt/file/below  (Permissions=)
**** Installation step 3/5
File copy error( = 256) is corrupted. From /packages/Bar/2/0 to /opt/file  (Permissions=)
**** Installation step 4/5
File copy error(= 256) is corrupted. From /packages/Bar/3/0/opt to /  (Permissions=755)
**** Installation step 5/5
Installation succeeded.
END
    # A folder named without its slash takes the file, and the mode.
    expect_panel <<'END'
stays
-rw-r--r--
777
END
}

@test "a failing step 2 of 3: the first is installed, the third never begins" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"), record=True)
script("#!/bin/sh\nexit 5\n")
copy_file(item("c", "/opt/demo/c"), record=True)
END

    install Foo --look 'ls /opt/demo; ls -A /var/lib/KxUserPackages'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/3
**** Installation step 2/3
Script execution returned an error(=1280) in step no 2
Installation failed in step 2.
END
    expect_failing <<'END'
[mkdir -p "/opt/demo/"]
[cp -f "/packages/Foo/0/0/a" "/opt/demo/a" ]
[chmod 777 "/opt/demo/a" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
END
    expect_panel <<'END'
a
ls: cannot access '/var/lib/KxUserPackages': No such file or directory
END
}

@test "missing tools are failing commands; sync and wprotect_off are not needed" {
    package Copy <<'END'
copy_file(item("a", "/opt/demo/a"))
END
    package Script <<'END'
script("#!/bin/sh\necho here\n")
END

    install Copy --missing cp
    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 32512) is corrupted. From /packages/Copy/0/0/a to /opt/demo/a  (Permissions=)
Installation failed in step 1.
END

    install Copy --missing chmod
    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 32512) is corrupted. From /packages/Copy/0/0/a to /opt/demo/a  (Permissions=)
Installation failed in step 1.
END

    install Script --missing chmod
    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
Script execution returned an error(=32512) in step no 1
Installation failed in step 1.
END

    install Script --missing mkdir
    expect_status 101
    expect_out <<'END'
**** Installation step 1/1
File write is corrupted. file=/tmp/Zt/temp.sh
Installation failed in step 1.
END

    install Script --missing sync --missing wprotect_off
    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
here
Installation succeeded.
END

    install Script --fail sync=1 --fail wprotect_off=77
    expect_status 0
    expect_silence
}

@test "without a shell every command fails with 32512" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a"), skip=True)
copy_folder(folder("/opt/tree", {"f": ""}), skip=True)
script("#!/usr/bin/python3\nprint('never')\n", skip=True)
hardware(setting("User", ("User", "user"), ("Password", "x")))
END

    install Foo --missing sh

    expect_status 101
    expect_out <<'END'
**** Installation step 1/4
File copy error(= 32512) is corrupted. From /packages/Foo/0/0/a to /opt/demo/a  (Permissions=)
**** Installation step 2/4
File copy error( = 32512) is corrupted. From /packages/Foo/1/0 to /opt/tree  (Permissions=)
**** Installation step 3/4
File write is corrupted. file=/tmp/Zt/temp.sh
**** Installation step 4/4
H/W setting failed in Zt.Plugins.HW_UserConfigSet,  Plexa in.
Installation failed in step 4.
END
}
