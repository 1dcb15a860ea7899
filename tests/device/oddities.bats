#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Names and texts that are unusual: long, or with characters that the shell interprets.

# shellcheck disable=SC2016 # what is in single quotes is for the shell on the device

load device

LIST=/var/lib/KxUserPackages/Foo/installedFile.list

@test "percent signs are nothing special anywhere" {
    package 'Foo%s%n%d100%' <<'END'
root(Title="100%s", Comment="%n%n", PackageVersion="%d")
copy_file(item("%s.bin", "/opt/%d %n/%s.bin", "644"), record=True)
copy_folder(folder("/opt/%x", {"%s%s": "", "100%": {"%n": ""}}), record=True)
script("#!/bin/sh\necho '%s %n 100%'\nexit 3\n", skip=True)
hardware(setting("%s%n", ("%s", "%d")), setting("Lan", ("%s", "%n")), skip=True)
copy_file(item("%s", "/opt/%x/%s%s/no-folder", "%o"), record=True)
END

    install 'Foo%s%n%d100%' --look 'cat /var/lib/KxUserPackages/*/installedFile.list'

    expect_status 101
    expect_out <<'END'
**** Installation step 1/5
**** Installation step 2/5
**** Installation step 3/5
%s %n 100%
Script execution returned an error(=768) in step no 3
**** Installation step 4/5
%s%n is unknown class.
**** Installation step 5/5
File copy error(= 256) is corrupted. From /packages/Foo%s%n%d100%/4/0/%s to /opt/%x/%s%s/no-folder  (Permissions=%o)
Installation failed in step 5.
END
    expect_failing <<'END'
[mkdir -p "/opt/%d %n/"]
[cp -f "/packages/Foo%s%n%d100%/0/0/%s.bin" "/opt/%d %n/%s.bin" ]
[chmod 644 "/opt/%d %n/%s.bin" ]
[mkdir -p "/opt/%x"]
[cp -f "/packages/Foo%s%n%d100%/1/0/%s%s" "/opt/%x/%s%s" ]
[mkdir -p "/opt/%x/100%"]
[cp -f "/packages/Foo%s%n%d100%/1/0/100%/%n" "/opt/%x/100%/%n" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
[kx-setting-cui set %s=%n ]
[mkdir -p "/opt/%x/%s%s/"]
[cp -f "/packages/Foo%s%n%d100%/4/0/%s" "/opt/%x/%s%s/no-folder" ]
END
}

@test "a step of unknown kind with percent signs in its name is named as it is" {
    package Foo <<'END'
script("")
change(lambda p: p["DB_StepSets"]["$values"][0].update(SS_StepSetId="%s%n100%"))
END

    install Foo

    expect_status 101
    expect_out <<'END'
%s%n100% is unknown class.
%s%n100% is not support functon.
END
}

@test "blanks, single quotes, semicolons, stars and odd bytes are parts of names" {
    package Foo <<'END'
copy_file(item("two words.bin", "/opt/two words/it's; here *", "644", "1\n"), record=True)
copy_folder(folder("/opt/odd", {
    " leading": "2\n", "a;b&c|d": "3\n", "*?[x]": "4\n", "-rf": "5\n", "#": "6\n", "~": "7\n",
    "日本語": "8\n", raw(b"\xff\xfe"): "9\n", "tab\there": "10\n", "!": "11\n", "'": "12\n",
    "(": {")": "13\n"}}), record=True)
END

    install Foo --look "cat '/opt/two words/'*; cat /opt/odd/[!\(]*; cat '/opt/odd/(/)'
        sed -n '/#file/,\$p' $LIST | head -n 16"

    expect_status 0
    expect_silence
    # The listing of the shell and of the updater are both in byte order.
    {
        cat <<'END'
1
2
11
6
12
4
5
3
10
7
8
9
13
 #file
/opt/two words/it's; here *
/opt/odd/ leading
/opt/odd/!
/opt/odd/#
/opt/odd/'
/opt/odd/(/)
/opt/odd/*?[x]
/opt/odd/-rf
/opt/odd/a;b&c|d
END
        printf '/opt/odd/tab\there\n/opt/odd/~\n/opt/odd/日本語\n/opt/odd/\xff\xfe\n'
        cat <<'END'
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
    } | expect_panel
}

@test "a line end in a name reaches the shell, and the list as it is" {
    package Foo <<'END'
copy_folder(folder("/opt/odd", {"two\nlines": "x\n"}), record=True)
END

    install Foo --look "cat /opt/odd/*; sed -n '/#file/,\$p' $LIST | head -n 3"

    expect_status 0
    expect_installing Foo <<'END'
[mkdir -p "/opt/odd"]
[cp -f "/packages/Foo/0/0/two\nlines" "/opt/odd/two\nlines" ]
END
    expect_panel <<'END'
x
 #file
/opt/odd/two
lines
END
}

@test "the shell interprets dollars, backquotes, quotes and backslashes in a target" {
    package Foo <<'END'
copy_file(item("a", "/opt/$HOME.d", "644", "1\n"),
          item("a", "/opt/`echo back`", "644", "2\n"),
          item("a", "/opt/$((20 + 3))", "644", "3\n"),
          item("a", '/opt/in" "two"', "644", "4\n"),
          item("a", "/opt/one\\\\two", "644", "5\n"), record=True, skip=True)
END

    device --look "cat /opt/*.d /opt/back /opt/23 /opt/one*; sed -n '/#file/,\$p' $LIST" \
        -- env HOME=home "$UPDATER" -unzipedDir /packages/Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
File copy error(= 512) is corrupted. From /packages/Foo/0/3/a to /opt/in" "two"  (Permissions=644)
Installation succeeded.
END
    expect_installing Foo <<'END'
[cp -f "/packages/Foo/0/0/a" "/opt/$HOME.d" ]
[chmod 644 "/opt/$HOME.d" ]
[cp -f "/packages/Foo/0/1/a" "/opt/`echo back`" ]
[chmod 644 "/opt/`echo back`" ]
[cp -f "/packages/Foo/0/2/a" "/opt/$((20 + 3))" ]
[chmod 644 "/opt/$((20 + 3))" ]
[cp -f "/packages/Foo/0/3/a" "/opt/in" "two"" ]
[cp -f "/packages/Foo/0/4/a" "/opt/one\\\\two" ]
[chmod 644 "/opt/one\\\\two" ]
END
    # The list has the text of the package, not what the shell made of it.
    expect_panel <<'END'
1
2
3
5
 #file
/opt/$HOME.d
/opt/`echo back`
/opt/$((20 + 3))
/opt/one\\two
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "names with a quote or a dollar in a payload folder fail like any copy that fails" {
    package Foo <<'END'
copy_folder(folder("/opt/one", {'a"b': "x"}), folder("/opt/two", {"$none": "x"}), skip=True)
END

    install Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
File copy error( = 256) is corrupted. From /packages/Foo/0/0 to /opt/one  (Permissions=)
File copy error( = 256) is corrupted. From /packages/Foo/0/1 to /opt/two  (Permissions=)
Installation succeeded.
END
    expect_installing Foo <<'END'
[mkdir -p "/opt/one"]
[cp -f "/packages/Foo/0/0/a"b" "/opt/one/a"b" ]
[mkdir -p "/opt/two"]
[cp -f "/packages/Foo/0/1/$none" "/opt/two/$none" ]
END
}

@test "commands of more than 2,048 bytes and lines of more than 1,000 bytes are whole" {
    package Foo <<'END'
parts = [str(number) * 200 for number in range(9)]
copy_file(item("a", "/opt/" + "/".join(parts) + "/file", "644", "deep\n"), record=True)
copy_file(item("a", "/opt/file", "x" * 5000))
END
    local long='' number part mode
    for number in {0..8}; do
        printf -v part "$number%.0s" {1..200}
        long+=/$part
    done
    printf -v mode 'x%.0s' {1..5000}

    install Foo --look "cat /opt$long/file"

    expect_status 101
    expect_out <<END
**** Installation step 1/2
**** Installation step 2/2
File copy error(= 256) is corrupted. From /packages/Foo/1/0/a to /opt/file  (Permissions=$mode)
Installation failed in step 2.
END
    expect_failing <<END
[mkdir -p "/opt$long/"]
[cp -f "/packages/Foo/0/0/a" "/opt$long/file" ]
[chmod 644 "/opt$long/file" ]
[cp -f "/packages/Foo/1/0/a" "/opt/file" ]
[chmod $mode "/opt/file" ]
END
    expect_panel <<<deep
}

@test "a command longer than the system takes fails, and the installation ends as it should" {
    package Foo <<'END'
copy_file(item("a", "/opt/file", "x" * 200000))
END

    install Foo

    expect_status 101
    local mode
    printf -v mode 'x%.0s' {1..200000}
    expect_out <<END
**** Installation step 1/1
File copy error(= 32512) is corrupted. From /packages/Foo/0/0/a to /opt/file  (Permissions=$mode)
Installation failed in step 1.
END
}

@test "a script of a megabyte, a line of a hundred thousand bytes and a thousand steps" {
    package Foo <<'END'
script("#!/bin/sh\n" + "# a line of a long script\n" * 40000 + "echo large\n")
script("#!/bin/sh\nprintf '%0100000d\\n' 7\n")
for _ in range(1000):
    copy_file()
END

    install Foo

    expect_status 0
    [ "$(wc -l <"$OUT")" -eq 1005 ]
    [ "$(wc -c <"$OUT")" -eq "$(($(seq 1 1002 | tr -d '\n' | wc -c) + 1002 * 29 + 6 + 100001 + 24))" ]
    [ "$(sed -n 2p "$OUT")" = large ]
    [ "$(sed -n 1004p "$OUT")" = '**** Installation step 1002/1002' ]
    [ "$(tail -n 1 "$OUT")" = 'Installation succeeded.' ]
}

@test "targets without a slash, empty ones and empty sources" {
    package Foo <<'END'
copy_file(item("a", "plain", "600", "1\n"), item("a", ""), item("", "/opt/demo/", "", None),
          record=True, skip=True)
copy_folder(folder("", {"f": "2\n"}), record=True, skip=True)
END

    device --chdir /opt --look "cat /opt/plain /f; cat $LIST" -- \
        "$UPDATER" -unzipedDir /packages/Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/2
File copy error(= 256) is corrupted. From /packages/Foo/0/1/a to   (Permissions=)
File copy error(= 256) is corrupted. From /packages/Foo/0/2/ to /opt/demo/  (Permissions=)
**** Installation step 2/2
Installation succeeded.
END
    # An empty folder target is no folder; what is in it goes to the root.
    expect_installing Foo <<'END'
[cp -f "/packages/Foo/0/0/a" "plain" ]
[chmod 600 "plain" ]
[cp -f "/packages/Foo/0/1/a" "" ]
[mkdir -p "/opt/demo/"]
[cp -f "/packages/Foo/0/2/" "/opt/demo/" ]
[mkdir -p ""]
[cp -f "/packages/Foo/1/0/f" "/f" ]
END
    expect_panel <<'END'
1
2
 #dir
/opt/demo/

/var/lib/KxUserPackages/Foo
 #file
plain
/f
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "a zero byte in a text ends it where a command or a line is made of it" {
    package Foo <<'END'
copy_file(item("a", "/opt/cut\0 off", "644\0 and more", "x\n"), record=True)
END

    install Foo --look "cat /opt/cut; grep -a cut $LIST"

    expect_status 0
    expect_installing Foo <<'END'
[cp -f "/packages/Foo/0/0/a" "/opt/cut" ]
[chmod 644 "/opt/cut" ]
END
    expect_panel <<'END'
x
/opt/cut
END
}

@test "a folder's name beyond ASCII is one like any other in console mode" {
    local name='Ärger 日本語'
    package "$name" <<<'copy_file(item("a", "/opt/demo/a"), record=True)'

    device --env LC_ALL=C.UTF-8 --look 'ls -A /opt/demo /var/lib/KxUserPackages' \
        -- "$UPDATER" -unzipedDir "/packages/$name"

    expect_status 0
    expect_panel <<END
/opt/demo:
a

/var/lib/KxUserPackages:
$name
END
}
