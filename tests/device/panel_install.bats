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
END
    expect_tools <<<'wprotect_off'
}

@test "as JSON the same is one document" {
    signed demo <<<"$HELLO"

    on_panel 'kx-panel install --json /packages/demo.kx-update'

    jq -S 'del(.began)' "$OUT"
    false
}

@test "a refused package is not copied, and the history says why" {
    unsigned demo <<<"$HELLO"
    signed other <<<"root(ModelName='TP-1')"

    on_panel 'installed demo; installed other; ls -A /opt
        find /var/lib/kx-panel -size +20k; find /var/lib/kx-panel -name "*.kx-update*"
        kx-panel history'

    expect_out <<'END'
demo: 1 kx-panel signature-missing
other: 1 kx-panel model
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
END
}

# version NAME VERSION [FOLDER]: a signed package of the version, FOLDER/NAME.
version() {
    mkdir -p "$PACKAGES/$2"
    unsigned "$1" <<<"root(PackageVersion='$2')"$'\n'"$HELLO"
    mv "$PACKAGES/$1.kx-update" "$PACKAGES/$2/"
    sign "$2/$1"
}

@test "an older version is refused, also when what was installed last has failed, until the panel allows it" {
    local one
    for one in 1.0 1.2 1.10 1.10~beta '' 'of today'; do
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
        verdict 1.0/demo 1.2/demo 1.10~beta/demo "/demo" "of today/demo" other 1.10/demo
        installed 1.2/demo; rm -r /var/lib/KxUserPackages; verdict 1.2/demo
        echo "downgrade = \"allow\"" >>/etc/kx_Updater/panel.toml
        verdict 1.2/demo "of today/demo"; installed 1.2/demo
        sed -i /downgrade/d /etc/kx_Updater/panel.toml
        verdict 1.2/demo 1.10/demo'

    expect_out <<'END'
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
END
}

@test "what is unpacked is what the device's unzip makes of it" {
    unsigned demo <<'END'
copy_folder(folder("/opt/tree", {"a b": "A", "sub": {"run": file("#!/bin/sh\n", 0o755), "e": ""},
                                 "link": link("sub/run"), "ü": "u", "secret": file("s", 0o600),
                                 "zeros": "\0" * 3000000, "empty": {}}))
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
17
same
END
}

@test "one at a time: while an installation runs, another one is told so, and checks go on" {
    signed demo <<'END'
script("#!/bin/sh\necho waiting >/root/ready\nread -r line </root/go\n")
END
    signed other <<<"$HELLO"

    on_panel 'mkfifo /root/ready /root/go
        kx-panel install /packages/demo.kx-update >/root/out 2>&1 &
        first=$!; read -r line </root/ready
        installed other; verdict other; kx-panel status
        echo >/root/go; wait "$first"; echo "first: $?"
        installed other'

    expect_out <<'END'
END
}

@test "killed in the middle: while its installer runs nothing is cleared; then it is, and is told" {
    signed demo <<'END'
root(PackageVersion="3")
script("#!/bin/sh\necho waiting >/root/ready\nread -r line </root/go\n")
END
    signed other <<<"$HELLO"

    on_panel 'mkfifo /root/ready /root/go
        kx-panel install /packages/demo.kx-update >/root/out 2>&1 &
        first=$!; read -r line </root/ready
        kill -KILL "$first"; wait "$first" 2>/dev/null; echo "first: $?"
        installed other; find /var/lib/kx-panel -name UserPackage.kx-project | wc -l; ls -A /tmp
        echo >/root/go
        while pgrep kx_Updater >/dev/null; do sleep 0.02; done
        ls /var/lib/KxUserPackages; kx-panel status
        installed other; find /var/lib/kx-panel -name UserPackage.kx-project | wc -l; ls -A /tmp
        kx-panel history; kx-panel status --json | jq -c .versions'

    expect_out <<'END'
END
}

@test "a power cut leaves remains, which the next start clears, and a version that counts if it was recorded" {
    signed demo <<'END'
root(PackageVersion="3")
script("#!/bin/sh\necho waiting >/root/ready\nread -r line </root/go\n")
END
    signed other <<<"$HELLO"

    on_panel --keep 'mkfifo /root/ready /root/go
        kx-panel install /packages/demo.kx-update >/root/out 2>&1 &
        read -r line </root/ready; find /var/lib/kx-panel -name UserPackage.kx-project | wc -l'
    expect_out <<<1

    on_panel --keep --boot 'find /var/lib/kx-panel -name UserPackage.kx-project | wc -l
        kx-panel status; installed other
        find /var/lib/kx-panel -name UserPackage.kx-project | wc -l; kx-panel history'

    expect_out <<'END'
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
        kx-panel status'

    expect_out <<'END'
END
}

@test "passwords are masked in the history and in what is shown, and control characters are escaped" {
    signed demo <<'END'
hardware(setting("User", ("User", "user"), ("Password", "hunter2two")))
script("#!/bin/sh\necho 'it is hunter2two'; printf 'a\\033[2Jb\\rc\\000d\\377\\n'; echo 'no end' | tr -d '\\n'\n")
END

    on_panel 'kx-panel install /packages/demo.kx-update; kx-panel history 1
        kx-panel history 1 --json | jq -r ".lines[] | .text"
        grep -c hunter2two -r /var/lib/kx-panel'

    expect_out <<'END'
END
}

@test "the history is bounded, in number and in size" {
    panel_file '[limits]' 'history-entries = 3' 'history-bytes = 20000'
    signed demo <<'END'
script("#!/bin/sh\nfor i in $(seq 3000); do echo line $i; done\n")
END
    signed other <<<"$HELLO"

    on_panel 'installed other; installed demo; installed other; installed other; installed demo
        kx-panel history --json | jq -c "[.entries[].id]"; du -sb /var/lib/kx-panel | cut -f 1
        kx-panel history 5 | sed -n "1,5p;\$p"; kx-panel history 1; echo "status $?"'

    expect_out <<'END'
END
}

@test "without a panel.toml, or with a damaged one, nothing is installed" {
    signed demo <<<"$HELLO"

    on_panel 'rm /etc/kx_Updater/panel.toml; installed demo; ls /var/lib
        echo "format = 2" >/etc/kx_Updater/panel.toml; installed demo; ls -A /var/lib /opt'

    expect_out <<'END'
END
}

@test "a state that is write-protected is opened by the panel's tool, or nothing is installed" {
    signed demo <<<"$HELLO"

    on_panel --read-only /var/lib 'kx-panel install /packages/demo.kx-update; echo "status $?"; ls -A /opt'

    expect_out <<'END'
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
        kx-panel check /packages/target.kx-update
        kx-panel check /packages/many.kx-update
        kx-panel install /packages/demo.kx-update; echo "status $?"; ls -A /mnt/user/full /opt'

    expect_out <<'END'
END
}

@test "links in the state lead nowhere" {
    signed demo <<<"$HELLO"

    on_panel 'installed demo; ls -lA --time-style=+ /etc >/root/before
        for name in $(ls -A /var/lib/kx-panel) work; do
            cp -a /var/lib/kx-panel /root/state
            rm -rf "/var/lib/kx-panel/$name"; ln -s /etc "/var/lib/kx-panel/$name"
            installed demo | cut -d " " -f 2-; ls -lA --time-style=+ /etc | diff /root/before -
            rm -rf /var/lib/kx-panel; mv /root/state /var/lib/kx-panel
        done; id -un'

    expect_out <<'END'
END
}

@test "what becomes larger than it told is not unpacked, and nothing of it is left" {
    unsigned demo <<<"$HELLO"
    "$BATS_TEST_DIRNAME/panel_bombs.py" "$PACKAGES/demo.kx-update" "$PACKAGES"
    sign liar

    on_panel 'verdict liar; installed liar; ls -A /opt; find /var/lib/kx-panel -size +20k'

    expect_out <<'END'
END
}
