#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-panel check on the sandboxed device: what a panel would install, and what it refuses, and why.

# shellcheck disable=SC2016 # what is in single quotes is for the shell on the device

load panel

setup() {
    panel_setup
}

@test "a signed package is accepted by its signed name, by either type of key, whatever its file is called" {
    key other --type p256
    trust other
    signed demo <<<"$HELLO"
    signed p256 other <<<"$HELLO"
    cp "$PACKAGES/demo.kx-update" "$PACKAGES/some thing; else.kx-update"

    on_panel 'verdict p256 "some thing; else" demo; jq -r .facts.name,.facts.signer /root/told'

    expect_out <<'END'
p256: 0
some thing; else: 0
demo: 0
demo
release
END
}

@test "a package without a signature is refused, unless the panel says that it need not have one" {
    unsigned demo <<<"$HELLO"

    on_panel 'verdict demo
        echo "signatures = \"optional\"" >>/etc/kx_Updater/panel.toml
        verdict demo; jq -r .facts.name /root/told'

    expect_out <<'END'
demo: 1 signature-missing
demo: 0
demo
END
}

@test "one good signature by a key that counts suffices, and no other key's does" {
    key unknown
    key revoked
    key elsewhere
    key others
    key here
    trust revoked elsewhere others here
    echo 'revoked = true' >etc/keys/revoked.toml
    echo 'models = ["TP-9"]' >etc/keys/elsewhere.toml
    echo 'packages = ["other"]' >etc/keys/others.toml
    printf '%s\n' 'models = ["TP-0700"]' 'packages = ["here", "both"]' >etc/keys/here.toml
    local name
    for name in unknown revoked elsewhere others here; do
        signed "$name" "$name" <<<"$HELLO"
    done
    signed both unknown revoked here <<<"$HELLO"
    cp "$PACKAGES/here.kx-update" "$PACKAGES/renamed.kx-update"

    on_panel 'verdict unknown revoked elsewhere others here both renamed'

    expect_out <<'END'
unknown: 1 signature-untrusted
revoked: 1 signature-untrusted
elsewhere: 1 signature-untrusted
others: 1 signature-untrusted
here: 0
both: 0
renamed: 0
END
}

@test "a signature that is not good refuses, also where none is needed and beside a good one" {
    key other
    trust other
    signed demo <<<"$HELLO"
    signed two release other <<<"$HELLO"
    spoil_signature demo release
    spoil_signature two other

    on_panel 'verdict demo two
        echo "signatures = \"optional\"" >>/etc/kx_Updater/panel.toml; verdict demo two
        rm /etc/kx_Updater/keys/other.pub.pem; verdict two'

    expect_out <<'END'
demo: 1 signature-bad
two: 1 signature-bad
demo: 1 signature-bad
two: 1 signature-bad
two: 0
END
}

# spoil_signature NAME KEY: changes the last bit of a key's signature.
spoil_signature() {
    python3 -B - "$PACKAGES/$1.kx-update" "$(id_of "$2")" <<'END'
import sys
data = bytearray(open(sys.argv[1], "rb").read())
key = bytes.fromhex(sys.argv[2])
assert data.count(key) == 1
data[data.index(key) + 32] ^= 1
open(sys.argv[1], "wb").write(data)
END
}

@test "a package that was changed after it was signed is refused, in each of its parts" {
    signed demo <<<"$HELLO"
    python3 -B - "$PACKAGES" <<'END'
import sys
data = open(f"{sys.argv[1]}/demo.kx-update", "rb").read()
block = data.index(b"KX-SIGNATURES 1\n")
for name, place in (("first", 0), ("content", block // 2), ("before", block - 1),
                    ("directory", data.rindex(b"KX-SIGNATURES 1\n") + 30)):
    changed = bytearray(data)
    changed[place] ^= 1
    open(f"{sys.argv[1]}/{name}.kx-update", "wb").write(changed)
END

    on_panel 'verdict first content before directory'

    expect_out <<'END'
first: 1 signature-changed
content: 1 signature-changed
before: 1 signature-changed
directory: 1 signature-changed
END
}

@test "all that is wrong about the panel is told at once, in its order" {
    signed model <<<"root(ModelName='TP-1')"
    signed system <<<"root(OsVersion='2.1.1')"
    signed all <<'END'
root(ModelName='TP-1', OsVersion='3')
copy_file(item("app", "/opt/demo/app", "755", b"\x7fELF\2\1\1" + bytes(9) + b"\3\0\xf3\0" + bytes(44)))
copy_file(item("big", "/mnt/user/full/big", "644"))
END

    on_panel --full /mnt/user/full 'verdict model system all
        jq -r ".reasons[] | .what.en" /root/told | grep -c .
        jq -r ".reasons[] | .what.ja, .remedy.en, .remedy.ja" /root/told | grep -c .'

    expect_out <<'END'
model: 1 model
system: 1 os-version
all: 1 model os-version processor room
4
12
END
}

@test "limits of the panel are limits: sizes, entries, description" {
    signed demo <<'END'
copy_file(item("app", "/opt/demo/app", "755", "program\n" * 1000))
script("#!/bin/sh\n" + "# \n" * 500)
END
    local said=('package-bytes = 1000' 'unpacked-bytes = 5000' 'entries = 2' 'description-bytes = 1024')
    local script='' one
    for one in "${said[@]}"; do
        script+="{ cat /root/panel.toml && printf '[limits]\\n$one\\n'; } >/etc/kx_Updater/panel.toml
            verdict demo; "
    done

    on_panel "cp /etc/kx_Updater/panel.toml /root; verdict demo; $script"

    expect_out <<'END'
demo: 0
demo: 1 size
demo: 1 structure
demo: 1 structure
demo: 1 description
END
}

@test "no name that a path cannot safely hold is taken from a file" {
    unsigned demo <<<"$HELLO"
    panel_file 'signatures = "optional"'
    mkdir "$PACKAGES/odd"
    local long name
    long=$(printf '%0245d' 0)
    for name in 'a b' $'line\nend' '$(reboot)' '`reboot`' 'a;reboot' "a'b" 'a"b' "$long" 'x.temp' \
        'a.temp.b' '-a' '.a' $'\xff' $'\e[2J' 'ü' "${long:0:101}"; do
        cp "$PACKAGES/demo.kx-update" "$PACKAGES/odd/$name.kx-update"
    done
    cp "$PACKAGES/demo.kx-update" "$PACKAGES/odd/.kx-update"
    cp "$PACKAGES/demo.kx-update" "$PACKAGES/odd/${long:0:100}.kx-update"

    on_panel 'count=0
        for file in /packages/odd/* /packages/odd/.*; do
            [ -f "$file" ] || continue
            count=$((count + 1))
            kx-panel check --json "$file" >/root/told 2>/root/errors && jq -r .facts.name /root/told
            [ "$(jq -r "[.reasons[].id] | join(\" \")" /root/told)" = name ] && echo refused
            [ ! -s /root/errors ] || cat /root/errors
        done | sort | uniq -c | sed "s/^ *//"
        ls /var/lib'

    expect_out <<END
1 ${long:0:100}
17 refused
END
}

@test "checking changes nothing, and starts nothing of the package" {
    signed demo <<<"$HELLO"
    unsigned bad <<<"$HELLO"

    on_panel 'look() { find / -xdev -printf "%p %i %m %U %s %T@ %C@\n" | grep -v "^/root\|^/proc\|^/dev"; }
        look >/root/before
        kx-panel check /packages/demo.kx-update >/root/one && echo accepted
        kx-panel check /packages/bad.kx-update >/root/two || echo refused
        look | diff /root/before - && ls /root'

    expect_out <<'END'
accepted
refused
before
one
two
END
}

@test "the answer is for people, in English and in Japanese" {
    signed demo <<<"$HELLO"
    unsigned bad <<<"$HELLO"

    on_panel 'for language in C.UTF-8 ja_JP.UTF-8; do
            export LC_ALL=$language
            kx-panel check /packages/demo.kx-update
            kx-panel check /packages/bad.kx-update || echo "-- $?"
        done'

    expect_out <<'END'
/packages/demo.kx-update: would be installed: Test package 1.0.0 (demo), signed by release
/packages/bad.kx-update: refused
1. The package is not signed, and this panel installs only signed ones.  [signature-missing]
   Get the signed package from its maker.
-- 1
/packages/demo.kx-update: インストールできます: Test package 1.0.0 (demo)、署名: release
/packages/bad.kx-update: インストールできません
1. パッケージに署名がありません。このパネルは署名済みのパッケージだけをインストールします。  [signature-missing]
   署名済みのパッケージを作成者から入手してください。
-- 1
END
}

@test "the clock decides nothing" {
    signed demo <<<"$HELLO"
    local library
    library=$(dpkg -L libfaketime | grep '/libfaketime\.so\.1$')

    on_panel "
        export FAKETIME_DONT_FAKE_MONOTONIC=1 ASAN_OPTIONS=verify_asan_link_order=0
        for year in 1970 2200; do
            export FAKETIME=\"\$year-02-03 04:05:06\"
            LD_PRELOAD=$library date +%Y
            LD_PRELOAD=$library kx-panel check --json /packages/demo.kx-update | jq .accepted
        done"

    expect_out <<'END'
1970
true
2200
true
END
}
