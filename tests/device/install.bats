#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Whole installations that succeed: output, commands, files, record.

load device

every_step() {
    package "$1" <<'END'
copy_file(item(r"C:\work\bin\app.bin", "/opt/demo/bin/app.bin", "755", "program\n"),
          item(r"C:\work\app.conf", "/etc/demo.conf", "640", "colour=blue\n"), record=True)
copy_folder(folder("/opt/demo/share", {"B.txt": "B\n", "a.txt": "a\n", ".hidden": "h\n",
                                       "sub": {"run": file("#!/bin/sh\n", 0o755)}}), record=True)
script("#!/bin/sh\r\necho out of the script\r\necho made >/opt/demo/made\r\n")
hardware(setting("Backlight", ("Level", "8")),
         setting("User", ("User", "user"), ("Password", "new-secret")),
         setting("Sound", ("Volume", "5"), ("Mute", "off")),
         setting("AutoStartupMode", ("Mode", "script"), ("CustomScript", "#!/bin/sh\nexit 0\n")))
END
}

@test "a package with every kind of step is installed, command by command" {
    every_step Foo

    install Foo --look '
        find /opt/demo /etc/demo.conf /mnt/user /tmp/Zt /var/lib/KxUserPackages \
            -printf "%y %m %u:%g %p\n" | sort -k 4
        cat /opt/demo/bin/app.bin /etc/demo.conf /opt/demo/share/B.txt /opt/demo/share/a.txt \
            /opt/demo/share/.hidden /opt/demo/share/sub/run /opt/demo/made /mnt/user/startup.sh \
            /tmp/Zt/temp.sh
        kx-setting-cui list'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/4
**** Installation step 2/4
**** Installation step 3/4
out of the script
**** Installation step 4/4
Installation succeeded.
END
    expect_silence
    expect_installing Foo <<'END'
[mkdir -p "/opt/demo/bin/"]
[cp -f "/packages/Foo/0/0/app.bin" "/opt/demo/bin/app.bin" ]
[chmod 755 "/opt/demo/bin/app.bin" ]
[cp -f "/packages/Foo/0/1/app.conf" "/etc/demo.conf" ]
[chmod 640 "/etc/demo.conf" ]
[mkdir -p "/opt/demo/share"]
[cp -f "/packages/Foo/1/0/.hidden" "/opt/demo/share/.hidden" ]
[cp -f "/packages/Foo/1/0/B.txt" "/opt/demo/share/B.txt" ]
[cp -f "/packages/Foo/1/0/a.txt" "/opt/demo/share/a.txt" ]
[mkdir -p "/opt/demo/share/sub"]
[cp -f "/packages/Foo/1/0/sub/run" "/opt/demo/share/sub/run" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
[echo 'user:new-secret' | chpasswd]
[chmod 777 "/mnt/user/startup.sh" ]
[kx-setting-cui set Level=8 Volume=5 Mute=off Mode=script ]
END
    expect_tools <<'END'
wprotect_off
kx-setting-cui set Level=8 Volume=5 Mute=off Mode=script
kx-setting-cui list
END
    expect_panel <<'END'
f 640 root:root /etc/demo.conf
d 755 root:root /mnt/user
f 777 root:root /mnt/user/startup.sh
d 755 root:root /opt/demo
d 755 root:root /opt/demo/bin
f 755 root:root /opt/demo/bin/app.bin
f 644 root:root /opt/demo/made
d 755 root:root /opt/demo/share
f 644 root:root /opt/demo/share/.hidden
f 644 root:root /opt/demo/share/B.txt
f 644 root:root /opt/demo/share/a.txt
d 755 root:root /opt/demo/share/sub
f 755 root:root /opt/demo/share/sub/run
d 755 root:root /tmp/Zt
f 755 root:root /tmp/Zt/temp.sh
d 755 root:root /var/lib/KxUserPackages
d 755 root:root /var/lib/KxUserPackages/Foo
f 644 root:root /var/lib/KxUserPackages/Foo/UserPackage.kx-project
f 644 root:root /var/lib/KxUserPackages/Foo/installedFile.list
program
colour=blue
B
a
h
#!/bin/sh
made
#!/bin/sh
exit 0
#!/bin/sh
echo out of the script
echo made >/opt/demo/made
Level=8
Mode=script
Mute=off
Volume=5
END
}

@test "the record holds the description and a list of what was created, byte for byte" {
    every_step Foo

    install Foo --look 'cd /var/lib/KxUserPackages/Foo
        cmp UserPackage.kx-project /packages/Foo/UserPackage.kx-project && echo the same
        cat installedFile.list'

    expect_status 0
    expect_panel <<'END'
the same
 #dir
/opt/demo/bin/
/opt/demo/share
/opt/demo/share/sub
/var/lib/KxUserPackages/Foo
 #file
/opt/demo/bin/app.bin
/etc/demo.conf
/opt/demo/share/.hidden
/opt/demo/share/B.txt
/opt/demo/share/a.txt
/opt/demo/share/sub/run
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "the summary of the device shows what changed and nothing else" {
    every_step Foo

    install Foo --summary-json "$WORK/summary"

    expect_status 0
    jq -r '.. | objects | .path? // empty' "$WORK/summary" | grep -vE '^/var/gcov' |
        LC_ALL=C sort >"$WORK/paths"
    same "$WORK/paths" 'the changed paths' <<'END'
/etc/.pwd.lock
/etc/demo.conf
/etc/shadow
/mnt/user/startup.sh
/opt/demo
/opt/demo/bin
/opt/demo/bin/app.bin
/opt/demo/made
/opt/demo/share
/opt/demo/share/.hidden
/opt/demo/share/B.txt
/opt/demo/share/a.txt
/opt/demo/share/sub
/opt/demo/share/sub/run
/tmp/Zt
/tmp/Zt/temp.sh
/var/lib/KxUserPackages
/var/lib/KxUserPackages/Foo
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "a package without steps leaves its record alone" {
    package Foo </dev/null

    install Foo --look 'cat /var/lib/KxUserPackages/Foo/installedFile.list; ls -A /mnt/user /tmp'

    expect_status 0
    expect_out <<<'Installation succeeded.'
    expect_silence
    expect_installing Foo </dev/null
    expect_panel <<'END'
 #dir
/var/lib/KxUserPackages/Foo
 #file
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
/mnt/user:

/tmp:
END
}

@test "installing twice replaces the record: its list holds only the second run's paths" {
    every_step Foo
    install Foo --keep
    expect_status 0

    install Foo --keep --look 'cat /var/lib/KxUserPackages/Foo/installedFile.list'

    expect_status 0
    commands | sed -n 3p >"$WORK/third"
    same "$WORK/third" 'the third command' <<<'[rm -r "/var/lib/KxUserPackages/Foo"]'
    # The folders are there already, so the second run did not create them.
    expect_panel <<'END'
 #dir
/var/lib/KxUserPackages/Foo
 #file
/opt/demo/bin/app.bin
/etc/demo.conf
/opt/demo/share/.hidden
/opt/demo/share/B.txt
/opt/demo/share/a.txt
/opt/demo/share/sub/run
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "a new version overwrites the files that it brings and leaves the others" {
    package Foo <<'END'
copy_folder(folder("/opt/demo", {"both": "one\n", "only-1": "one\n"}), record=True)
END
    install Foo --keep
    expect_status 0
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
root(PackageVersion="2.0.0")
copy_folder(folder("/opt/demo", {"both": "two\n", "only-2": "two\n"}), record=True)
END

    install Foo --keep --look 'cd /opt/demo; grep . *
        grep -F PackageVersion /var/lib/KxUserPackages/Foo/UserPackage.kx-project'

    expect_status 0
    expect_panel <<'END'
both:two
only-1:one
only-2:two
  "PackageVersion": "2.0.0",
END
}

@test "three hundred files in thirty folders all arrive" {
    package Foo <<'END'
tree = {f"d{d:02}": {f"f{f}": f"file {d} {f}\n" * 40 for f in range(10)} for d in range(30)}
copy_folder(folder("/opt/many", tree), record=True)
END

    install Foo --look 'diff -r /packages/Foo/0/0 /opt/many && echo the same
        grep -c ^/opt/many/ /var/lib/KxUserPackages/Foo/installedFile.list'

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END
    # Thirty folders, three hundred files; /opt/many itself has no slash behind it.
    expect_panel <<'END'
the same
330
END
    [ "$(commands | grep -c '^\[cp ')" -eq 301 ]
}
