#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-panel install on the sandboxed device: a package is decided on and installed without a window.

# shellcheck disable=SC2016 # what is in single quotes is for the shell on the device

load panel

setup() {
    panel_setup
}

# sign_waiting LINE: demo, described by the line and by a script that waits for a word in /root/go, and
# other, which waits for nothing.
sign_waiting() {
    signed demo <<END
$1
script("#!/bin/sh\\necho waiting >/root/ready\\nread -r line </root/go\\n")
END
    signed other <<<"$HELLO"
}

# On the panel: kx-panel, whose process is $first, installs demo, and its script waits.
BEGIN_WAITING='mkfifo /root/ready /root/go
        kx-panel install /packages/demo.kx-update >/root/out 2>&1 &
        first=$!; read -r line </root/ready'

@test "a signed package is installed under its signed name, by the panel's own updater, and nothing is left" {
    signed demo <<'END'
copy_file(item("app", "/opt/demo/app", "755", "program\n"), record=True)
script("#!/bin/sh\necho hello; pwd; id -u; stat -c '%A %U %n' /tmp/Zt; env | grep -v ^_ | sort\n")
END
    mkdir "$PACKAGES/stick"
    mv "$PACKAGES/demo.kx-update" "$PACKAGES/stick/x; \$(reboot).kx-update"

    on_panel 'export SECRET=1 LC_ALL=ja_JP.UTF-8
        kx-panel install "/packages/stick/x; \$(reboot).kx-update" >/root/out; echo "status $?"
        grep -A 30 hello /root/out | grep -B 30 PWD; cat /opt/demo/app; ls /var/lib/KxUserPackages /root
        find /var/lib/kx-panel -mindepth 1 -printf "%y %m %U %P\n" | sort; ls -A /tmp'

    expect_out <<'END'
status 0
hello
/
0
drwx------ root /tmp/Zt
HOME=/root
LANG=C
LC_ALL=ja_JP.UTF-8
PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
PWD=/
program
/root:
out

/var/lib/KxUserPackages:
demo
d 700 0 history
d 700 0 versions
f 600 0 history/0000000001.jsonl
f 600 0 lock
f 600 0 versions/demo
END
    expect_tools <<<'wprotect_off'
}

@test "as JSON the same is one document" {
    signed demo <<<"$HELLO"

    on_panel 'kx-panel install --json /packages/demo.kx-update'

    jq -S . <<'END' >expected
{"formatVersion": 1, "accepted": true, "package": "/packages/demo.kx-update", "result": "installed",
 "status": 0, "from": "updater", "message": null, "historyId": 1, "problems": [], "reasons": [],
 "facts": {"name": "demo", "signer": "release", "title": "Test package", "version": "1.0.0",
  "model": "TP-0700", "osVersion": "2.1.0", "entries": 5, "signatureBytes": 270}}
END
    jq -S 'del(.facts.unpackedBytes)' "$OUT" | diff expected -
    [ "$(jq .facts.unpackedBytes "$OUT")" -gt 500 ]
}

@test "a refused package is not copied, and the history says why" {
    unsigned demo <<<"$HELLO"
    signed other <<<"root(ModelName='TP-1')"

    on_panel 'installed demo; installed other; [ ! -e /opt/demo ] || echo "it was installed"
        find /var/lib/kx-panel -type f | sort; kx-panel history | sed "s/  [^ ]* [^ ]* UTC//"
        kx-panel history 1 | grep reason'

    expect_out <<'END'
demo: 1 kx-panel signature-missing
other: 1 kx-panel model
/var/lib/kx-panel/history/0000000001.jsonl
/var/lib/kx-panel/history/0000000002.jsonl
/var/lib/kx-panel/lock
2  other 1.0.0  refused, exit status 1 of kx-panel
1  demo.kx-update  refused, exit status 1 of kx-panel
2 installations
  reason:    The package is not signed, and this panel installs only signed ones.  [signature-missing]
END
}

@test "the updater's own failures pass through, and leave no record and no version" {
    signed demo <<'END'
root(PackageVersion="2.0")
script("#!/bin/sh\nexit 3\n")
END
    signed first <<'END'
root(PackageVersion="1.0")
copy_file(item("app", "/opt/demo/app", "755", "program\n"))
END
    mkdir "$PACKAGES/1"
    "$KX_PACKAGE" sign --remove "$PACKAGES/first.kx-update" >remove.log
    mv "$PACKAGES/first.kx-update" "$PACKAGES/1/demo.kx-update"
    sign 1/demo

    on_panel 'installed 1/demo; installed demo; ls /var/lib/KxUserPackages; installed 1/demo
        ls /var/lib/KxUserPackages; kx-panel status --json | jq -c .versions'

    expect_out <<'END'
1/demo: 0 updater
demo: 101 updater
1/demo: 0 updater
demo
{"demo":"1.0"}
END
}

# version NAME VERSION: a signed package of the version, VERSION/NAME.
version() {
    mkdir -p "$PACKAGES/$2"
    unsigned "$2/$1" <<<"$HELLO"
    python3 -B - "$PACKAGES/$2/$1.kx-update" "$2" <<'END'
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as package:
    entries = [(info, package.read(info)) for info in package.infolist()]
with zipfile.ZipFile(sys.argv[1], "w") as package:
    for info, data in entries:
        package.writestr(info, data.replace(b'"1.0.0"', f'"{sys.argv[2]}"'.encode()))
END
    sign "$2/$1"
}

@test "an older version is refused, also when what was installed last has failed, until the panel allows it" {
    local one
    for one in 1.0 1.2 1.10 1.10~beta 'of today'; do
        version demo "$one"
    done
    version other 0.1
    mkdir "$PACKAGES/failing"
    unsigned demo <<'END'
root(PackageVersion="1.10")
script("#!/bin/sh\nexit 3\n")
END
    mv "$PACKAGES/demo.kx-update" "$PACKAGES/failing/"
    sign failing/demo

    on_panel 'installed 1.2/demo; installed 1.10/demo; installed failing/demo; ls /var/lib/KxUserPackages
        verdict 1.0/demo 1.2/demo 1.10~beta/demo "of today/demo" 0.1/other 1.10/demo
        installed 1.2/demo; rm -r /var/lib/KxUserPackages; verdict 1.2/demo
        echo "downgrade = \"allow\"" >>/etc/kx_Updater/panel.toml
        verdict 1.2/demo "of today/demo"; installed 1.2/demo
        sed -i /downgrade/d /etc/kx_Updater/panel.toml
        verdict 1.2/demo 1.10/demo'

    expect_out <<'END'
1.2/demo: 0 updater
1.10/demo: 0 updater
failing/demo: 101 updater
1.0/demo: 1 version-older
1.2/demo: 1 version-older
1.10~beta/demo: 1 version-older
of today/demo: 1 version-unclear
0.1/other: 0
1.10/demo: 0
1.2/demo: 1 kx-panel version-older
1.2/demo: 1 version-older
1.2/demo: 0
of today/demo: 0
1.2/demo: 0 updater
1.2/demo: 1 version-older
1.10/demo: 0
END
}

@test "the folder of step files is made anew: a link to /etc is no way out of it" {
    signed demo <<'END'
script("#!/bin/sh\nstat -c '%F %a %U' /tmp/Zt; ls -A /tmp/Zt\n")
END

    on_panel 'ln -s /etc /tmp/Zt; ls -lA --time-style=+ /etc >/root/before
        kx-panel install /packages/demo.kx-update | grep directory; ls -A /tmp
        mkdir -m 777 /tmp/Zt; chown 1000 /tmp/Zt; touch /tmp/Zt/temp.sh; ln -s /etc/passwd /tmp/Zt/x
        kx-panel install /packages/demo.kx-update | grep directory; ls -A /tmp
        : >/tmp/Zt
        kx-panel install /packages/demo.kx-update | grep directory; ls -A /tmp
        ls -lA --time-style=+ /etc | diff /root/before - && id user'

    expect_out <<'END'
directory 700 root
directory 700 root
directory 700 root
uid=1000(user) gid=1000(user) groups=1000(user)
END
}

@test "what is unpacked is what the device's unzip makes of it" {
    unsigned demo <<'END'
copy_folder(folder("/opt/tree", {"a b": "A", "sub": {"run": file("#!/bin/sh\n", 0o755), "e": ""},
                                 "link": link("sub/run"), "ü": "u", "secret": file("s", 0o600),
                                 "zeros": "\0" * 300000, "empty": {}}))
script("#!/bin/sh\ncd $(dirname $(find / -name UserPackage.kx-project)) &&\n"
       "find . -printf '%P %y %m %s %l\n' | sort >/root/tree &&\n"
       "find . -type f -printf '%P %T@\n' | sort >/root/times\n"
       "find . -type f | sort | xargs -d '\n' sha256sum >/root/sums\n")
END
    cp "$PACKAGES/demo.kx-update" "$PACKAGES/plain.kx-update"
    sign demo

    on_panel 'installed demo
        unzip -q -o /packages/plain.kx-update -d /root/demo.temp && cd /root/demo.temp
        find . -printf "%P %y %m %s %l\n" | sort | grep -v "^ " >/root/other
        grep -v "^ " /root/tree | diff - /root/other && wc -l </root/other
        find . -type f -printf "%P %T@\n" | sort | diff - /root/times
        find . -type f | sort | xargs -d "\n" sha256sum | diff - /root/sums && echo same'

    expect_out <<'END'
demo: 0 updater
13
same
END
}

@test "one at a time: while an installation runs, another one is told so, and checks go on" {
    sign_waiting ''

    on_panel "$BEGIN_WAITING"'
        installed other; verdict other; kx-panel status | grep "^at work"
        echo >/root/go; wait "$first"; echo "first: $?"
        installed other'

    expect_out <<'END'
other: 4 kx-panel another kx-panel is at work
other: 0
at work:      an installation
first: 0
other: 0 updater
END
}

@test "killed in the middle: while its installer runs nothing is cleared; then it is, and is told" {
    sign_waiting 'root(PackageVersion="3")'

    on_panel "$BEGIN_WAITING"'
        kill -KILL "$first"; wait "$first" 2>/dev/null; echo "first: $?"
        installed other; find /var/lib/kx-panel -name UserPackage.kx-project | wc -l; ls -A /tmp
        echo >/root/go
        while pgrep kx_Updater >/dev/null; do sleep 0.02; done
        ls /var/lib/KxUserPackages; kx-panel status | grep "^at work\|^interrupted"
        installed other; find /var/lib/kx-panel -name UserPackage.kx-project | wc -l; ls -A /tmp
        kx-panel history | sed "s/  [^ ]* [^ ]* UTC//"; kx-panel status --json | jq -c .versions'

    expect_out <<'END'
first: 137
other: 4 kx-panel an installation goes on, although the kx-panel that began it is gone
1
Zt
demo
at work:      nothing
interrupted:  demo 3; the next installation clears what it left
other: 0 updater
0
2  other 1.0.0  installed
1  demo.kx-update  interrupted, exit status 3 of kx-panel
2 installations
{"demo":"3","other":"1.0.0"}
END
}

@test "a power cut leaves remains, which the next start clears, and a version that counts if it was recorded" {
    sign_waiting 'root(PackageVersion="3")'

    on_panel --keep "$BEGIN_WAITING"'
        find /var/lib/kx-panel -name UserPackage.kx-project | wc -l'
    expect_out <<<1

    on_panel --keep --boot 'find /var/lib/kx-panel -name UserPackage.kx-project | wc -l
        kx-panel status | grep "^at work\|^interrupted"; installed other
        find /var/lib/kx-panel -name UserPackage.kx-project | wc -l
        kx-panel history | sed "s/  [^ ]* [^ ]* UTC//"; kx-panel status --json | jq -c .versions'

    expect_out <<'END'
1
at work:      nothing
interrupted:  demo 3; the next installation clears what it left
other: 0 updater
0
2  other 1.0.0  installed
1  demo.kx-update  interrupted, exit status 3 of kx-panel
2 installations
{"other":"1.0.0"}
END
}

@test "a package that is another one while it is read gains nothing" {
    signed good <<'END'
script("#!/bin/sh\necho good >>/root/seen\n")
END
    unsigned evil <<'END'
script("#!/bin/sh\necho evil >>/root/seen\n")
END
    cp "$PACKAGES/good.kx-update" "$PACKAGES/evil2.kx-update"

    on_panel 'mkdir /mnt/user/drive; cd /mnt/user/drive; cp /packages/good.kx-update f
        while :; do
            cat /packages/evil.kx-update >f; cat /packages/good.kx-update >f
            cp /packages/evil.kx-update g; mv g f; cp /packages/good.kx-update g; mv g f
        done &
        changing=$!
        for turn in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do
            kx-panel install f >/dev/null 2>&1
            echo $?
        done | sort | uniq -c >/root/statuses
        kill "$changing"
        sort -u /root/seen; grep -vc " [013]$" /root/statuses
        cp /packages/good.kx-update f; kx-panel install --json f | jq .accepted
        find /var/lib/kx-panel -name UserPackage.kx-project'

    expect_out <<'END'
good
0
true
END
}

@test "keys go round: a package signed by the old key brings the new one, and the next revokes the old" {
    key new
    signed rotate <<'END'
copy_file(item("new.pub.pem", "/etc/kx_Updater/keys/new.pub.pem", "644",
               open("secret/new.pub.pem").read()))
END
    signed revoke new <<'END'
copy_file(item("release.toml", "/etc/kx_Updater/keys/release.toml", "644", "revoked = true\n"))
END
    signed old <<<"$HELLO"
    signed next new <<<"$HELLO"

    on_panel 'verdict next revoke; installed rotate; verdict next old; installed revoke; verdict old next
        kx-panel status --json | jq -c ".keys[] | [.name, .revoked]"'

    expect_out <<'END'
next: 1 signature-untrusted
revoke: 1 signature-untrusted
rotate: 0 updater
next: 0
old: 0
revoke: 0 updater
old: 1 signature-untrusted
next: 0
["new",false]
["release",true]
END
}

@test "passwords are masked in the history and in what is shown, and control characters are escaped" {
    signed demo <<'END'
hardware(setting("User", ("User", "user"), ("Password", "hunter2two")))
script("#!/bin/sh\necho 'it is hunter2two'; printf 'a\\033[2Jb\\rc\\000d\\377\\n'; echo 'no end' | tr -d '\\n'\n")
END

    on_panel 'kx-panel install /packages/demo.kx-update | sed "1,/Installing/d"
        kx-panel history 1 | sed "1,/printed/d; s/[0-9]* s  /0 s  /"
        kx-panel history 1 --json | jq -r ".entry.lines[].text" | sed -n "3,4p"
        grep -r hunter2two /var/lib/kx-panel || true'

    expect_out <<'END'
**** Installation step 1/2
**** Installation step 2/2
it is ********
a\x1b[2Jb\x0dc\x00d\xff
no endInstallation succeeded.
/packages/demo.kx-update: installed: Test package 1.0.0 (demo), signed by release
See "kx-panel history 1".
    0 s  **** Installation step 1/2
    0 s  **** Installation step 2/2
    0 s  it is ********
    0 s  a\x1b[2Jb\x0dc\x00d\xff
    0 s  no endInstallation succeeded.
it is ********
a\x1b[2Jb\x0dc\x00d\xff
END
}

@test "the history is bounded, in number and in size" {
    panel_file '[limits]' 'history-entries = 3' 'history-bytes = 20000'
    signed demo <<'END'
script("#!/bin/sh\nfor i in $(seq 3000); do echo line $i; done\n")
END
    signed other <<<"$HELLO"

    on_panel 'installed other; installed demo; installed other; installed other; installed demo
        kx-panel history --json | jq -c "[.entries[].id]"; 
        [ "$(cat /var/lib/kx-panel/history/* | wc -c)" -le 20000 ] && echo small
        kx-panel history 5 | grep "line 1$\|left out\|line 3000\|succeeded" | sed "s/[0-9]* lines/N lines/; s/[0-9]* s  /0 s  /"
        kx-panel history 1; echo "status $?"'

    expect_out <<'END'
other: 0 updater
demo: 0 updater
other: 0 updater
other: 0 updater
demo: 0 updater
[5,4,3]
small
    0 s  line 1
    (N lines left out)
    0 s  line 3000
    0 s  Installation succeeded.
kx-panel: history: there is no installation 1; "kx-panel history" lists those that are remembered
status 1
END
}

@test "without a panel.toml, or with a damaged one, nothing is installed" {
    signed demo <<<"$HELLO"

    on_panel 'rm /etc/kx_Updater/panel.toml; installed demo; ls /var/lib
        echo "format = 2" >/etc/kx_Updater/panel.toml; installed demo; ls -A /var/lib
        [ ! -e /opt/demo ] || echo "it was installed"'

    expect_out <<'END'
demo: 1 kx-panel panel-file
demo: 1 kx-panel panel-file
END
}

@test "a state that is write-protected is opened by the panel's tool, or nothing is installed" {
    signed demo <<<"$HELLO"

    on_panel --read-only /var/lib 'kx-panel install /packages/demo.kx-update; echo "status $?"
        [ ! -e /opt/demo ] || echo "it was installed"'

    expect_out <<'END'
/packages/demo.kx-update: refused
1. The folder in which the panel remembers installations cannot be used: /var/lib/kx-panel: cannot make the folder: Read-only file system.  [state]
   See that the folder that panel.toml names as 'state' is root's alone, with mode 700, and can be written.
status 1
END
    expect_tools <<<'wprotect_off'
}

@test "no room for the package, for its files, or for that many: told with numbers before anything is written" {
    signed demo <<<"$HELLO"
    signed target <<'END'
copy_file(item("app", "/mnt/user/full/app", "755", "program\n" * 3000))
END
    signed many <<'END'
copy_folder(folder("/dev/many", {f"f{n}": "x" for n in range(300)}))
END
    panel_file 'state = "/opt/state"'

    on_panel --full /mnt/user/full --full /opt '
        i=0; while [ "$i" -lt 3900 ]; do : >"/dev/f$i"; i=$((i + 1)); done
        { kx-panel check /packages/target.kx-update; kx-panel check /packages/many.kx-update
            kx-panel install /packages/demo.kx-update; echo "status $?"
        } | grep -v "^   " | sed "/ on .\/opt., /s/needs .* on/needs N on/; s/takes [0-9]* more/takes N more/"
        find /mnt/user/full /opt -type f ! -name kx_Updater ! -name lock'

    expect_out <<'END'
/packages/target.kx-update: refused
1. The installation needs N on '/opt', where 0 bytes (0 bytes) are free.  [room]
2. The installation needs 24.0 KiB (24576 bytes) on '/mnt/user/full', where 0 bytes (0 bytes) are free.  [room]
/packages/many.kx-update: refused
1. The installation needs N on '/opt', where 0 bytes (0 bytes) are free.  [room]
2. The installation makes 301 files and folders on '/dev', which takes N more.  [inodes]
== Looking for what an earlier installation left
== Looking at the package
/packages/demo.kx-update: refused
1. The installation needs N on '/opt', where 0 bytes (0 bytes) are free.  [room]
status 1
END
}

@test "links in the state lead nowhere" {
    signed demo <<<"$HELLO"

    on_panel 'installed demo; ls -lA --time-style=+ /etc >/root/before
        for name in $(ls -A /var/lib/kx-panel) unpacked; do
            cp -a /var/lib/kx-panel /root/state
            rm -rf "/var/lib/kx-panel/$name"; ln -s /etc "/var/lib/kx-panel/$name"
            installed demo | cut -d " " -f 2-; ls -lA --time-style=+ /etc | diff /root/before -
            rm -rf /var/lib/kx-panel; mv /root/state /var/lib/kx-panel
        done; id -un'

    expect_out <<'END'
demo: 0 updater
1 kx-panel state
1 kx-panel state
1 kx-panel state
0 updater
root
END
}

@test "what becomes larger than it told is not unpacked, and nothing of it is left" {
    unsigned demo <<<"$HELLO"
    "$BATS_TEST_DIRNAME/panel_bombs.py" "$PACKAGES/demo.kx-update" "$PACKAGES"
    sign liar

    on_panel 'verdict liar; installed liar; [ ! -e /opt/demo ] || echo "it was installed"; find /var/lib/kx-panel -size +20k'

    expect_out <<'END'
liar: 0
liar: 1 kx-panel unread
END
}
