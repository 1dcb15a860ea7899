#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What closes the door of a panel: a file that says what it trusts and is missing, damaged, or not
# root's alone. Each row of a table is tried on a fresh copy of what is right.

# shellcheck disable=SC2016 # what is in single quotes is for the shell on the device

load panel

setup() {
    panel_setup
    signed demo <<<"$HELLO"
}

# expect_verdicts EXTRA <TABLE: the rows are "WORDS | COMMANDS"; after the commands, run on the
# panel, the package gets these words.
expect_verdicts() {
    local words commands number=0 script=''
    : >expected
    while IFS='|' read -r words commands; do
        read -r words <<<"$words"
        number=$((number + 1))
        echo "$commands: $words" >>expected
        script+="
            rm -rf /etc/kx_Updater /opt/etc /usr/bin/kx_Updater
            cp -a /root/right /etc/kx_Updater
            cp -a /root/kx_Updater /usr/bin/kx_Updater
            rm -rf /var/lib/kx-panel
            chmod 755 /etc /usr/bin /var/lib; chown root /etc /var/lib
            { $commands
            } || echo 'cannot be tried'
            printf '%s: %s\\n' $(printf %q "$commands") \"\$(verdict demo | cut -d ' ' -f 3-)\""
    done
    [ "$number" -gt 1 ]
    on_panel "cp -a /etc/kx_Updater /root/right; cp -a /usr/bin/kx_Updater /root; verdict demo
        $script"
    { echo 'demo: 0' && cat expected; } | expect_out
}

@test "panel.toml, its folder and those above it are root's alone, and no links" {
    expect_verdicts <<'END'
panel-file | chown 1000 /etc/kx_Updater/panel.toml
panel-file | chgrp 1000 /etc/kx_Updater/panel.toml; chmod 664 /etc/kx_Updater/panel.toml
panel-file | chmod 646 /etc/kx_Updater/panel.toml
panel-file | mv /etc/kx_Updater/panel.toml /opt/panel.toml; ln -s /opt/panel.toml /etc/kx_Updater/panel.toml
panel-file | rm /etc/kx_Updater/panel.toml; mkfifo /etc/kx_Updater/panel.toml
panel-file | rm /etc/kx_Updater/panel.toml; mkdir /etc/kx_Updater/panel.toml
panel-file key-folder | chmod 777 /etc/kx_Updater
panel-file key-folder | chmod 1777 /etc/kx_Updater
panel-file key-folder | chown 1000 /etc/kx_Updater
panel-file key-folder | mv /etc/kx_Updater /opt/etc; ln -s /opt/etc /etc/kx_Updater
panel-file key-folder | chmod 775 /etc
panel-file key-folder | chown 1000 /etc
 | chgrp 1000 /etc/kx_Updater/panel.toml
END
}

@test "a panel.toml that is missing, damaged or of another version closes the door, as does what it does not know" {
    expect_verdicts <<'END'
panel-file | rm /etc/kx_Updater/panel.toml
panel-file key-folder | rm -r /etc/kx_Updater
panel-file | : >/etc/kx_Updater/panel.toml
panel-file | echo "x = [" >>/etc/kx_Updater/panel.toml
panel-file | sed -i "s/^format.*/format = 2/" /etc/kx_Updater/panel.toml
 | sed -i "/^format/d" /etc/kx_Updater/panel.toml
panel-file | echo "format = 1" >>/etc/kx_Updater/panel.toml
panel-file | echo "models = [\"TP-0700\"]" >>/etc/kx_Updater/panel.toml
panel-file | echo "signature = \"optional\"" >>/etc/kx_Updater/panel.toml
panel-file | echo "signatures = \"never\"" >>/etc/kx_Updater/panel.toml
panel-file | echo "signatures = false" >>/etc/kx_Updater/panel.toml
panel-file | echo "downgrade = \"yes\"" >>/etc/kx_Updater/panel.toml
panel-file | echo "state = \"var/lib/x\"" >>/etc/kx_Updater/panel.toml
panel-file | echo "state = \"/var/lib/../x\"" >>/etc/kx_Updater/panel.toml
panel-file | sed -i "/^models/d" /etc/kx_Updater/panel.toml
panel-file | sed -i "/^os-versions/d" /etc/kx_Updater/panel.toml
panel-file | sed -i "/^processor/d" /etc/kx_Updater/panel.toml
panel-file | sed -i "s/^models.*/models = []/" /etc/kx_Updater/panel.toml
panel-file | printf "[limits]\npackage-bytes = -1\n" >>/etc/kx_Updater/panel.toml
panel-file | printf "[limits]\nbytes = 1\n" >>/etc/kx_Updater/panel.toml
panel-file | printf "[limits]\nentries = 9\n[limits]\n" >>/etc/kx_Updater/panel.toml
panel-file | head -c 3000000 /dev/zero >>/etc/kx_Updater/panel.toml
 | echo "signatures = \"required\"" >>/etc/kx_Updater/panel.toml
END
}

@test "the folder of keys is root's alone, and so is every key that counts" {
    expect_verdicts <<'END'
key-folder | chmod 775 /etc/kx_Updater/keys
key-folder | chown 1000 /etc/kx_Updater/keys
key-folder | rm -r /etc/kx_Updater/keys
key-folder | mv /etc/kx_Updater/keys /opt/keys; ln -s /opt/keys /etc/kx_Updater/keys
key-folder | rm -r /etc/kx_Updater/keys; : >/etc/kx_Updater/keys
signature-untrusted | chmod 666 /etc/kx_Updater/keys/release.pub.pem
signature-untrusted | chown 1000 /etc/kx_Updater/keys/release.pub.pem
signature-untrusted | mv /etc/kx_Updater/keys/release.pub.pem /opt; ln -s /opt/release.pub.pem /etc/kx_Updater/keys
signature-untrusted | rm /etc/kx_Updater/keys/release.pub.pem
signature-untrusted | mv /etc/kx_Updater/keys/release.pub.pem /etc/kx_Updater/keys/.release.pem
signature-untrusted | echo x >/etc/kx_Updater/keys/release.pub.pem
 | cp /etc/kx_Updater/keys/release.pub.pem /etc/kx_Updater/keys/again.pem
END
}

@test "a file that limits a key and is damaged, or not root's, takes the key away" {
    expect_verdicts <<'END'
 | echo "revoked = false" >/etc/kx_Updater/keys/release.toml
signature-untrusted | echo "revoked = true" >/etc/kx_Updater/keys/release.toml
signature-untrusted | echo "revoked = " >/etc/kx_Updater/keys/release.toml
signature-untrusted | echo "revokd = false" >/etc/kx_Updater/keys/release.toml
signature-untrusted | printf "revoked = false\nrevoked = false\n" >/etc/kx_Updater/keys/release.toml
signature-untrusted | : >/etc/kx_Updater/keys/release.toml; chmod 666 /etc/kx_Updater/keys/release.toml
signature-untrusted | : >/etc/kx_Updater/keys/release.toml; chown 1000 /etc/kx_Updater/keys/release.toml
signature-untrusted | : >/opt/none.toml; ln -s /opt/none.toml /etc/kx_Updater/keys/release.toml
signature-untrusted | ln -s nowhere /etc/kx_Updater/keys/release.toml
signature-untrusted | mkdir /etc/kx_Updater/keys/release.toml
signature-untrusted | cp /etc/kx_Updater/keys/release.pub.pem /etc/kx_Updater/keys/again.pem; echo "revoked = true" >/etc/kx_Updater/keys/again.toml
END
}

@test "the program that installs is the panel's own: root's alone, and no link" {
    expect_verdicts <<'END'
panel-file | rm /usr/bin/kx_Updater
panel-file | chmod 644 /usr/bin/kx_Updater
panel-file | chmod 757 /usr/bin/kx_Updater
panel-file | chown 1000 /usr/bin/kx_Updater
panel-file | mv /usr/bin/kx_Updater /opt/updater; ln -s /opt/updater /usr/bin/kx_Updater
 | chgrp 1000 /usr/bin/kx_Updater
END
}

@test "the folder of what is remembered is root's alone: else nothing is installed" {
    on_panel '
        try() {
            rm -rf /var/lib/kx-panel /opt/state; mkdir -m 700 /opt/state
            chmod 755 /var/lib
            "$@" && installed demo
            chmod 755 /var/lib; ls -A /opt/state
        }
        try ln -s /opt/state /var/lib/kx-panel
        try chmod 777 /var/lib
        try touch /var/lib/kx-panel
        foreign() { mkdir -m 700 /var/lib/kx-panel; chown 1000 /var/lib/kx-panel; }
        try foreign
        open() { mkdir -m 777 /var/lib/kx-panel; chmod 777 /var/lib/kx-panel; }
        try open
        [ ! -e /opt/demo ] || echo "something was installed"'

    expect_out <<'END'
demo: 1 kx-panel state
demo: 1 kx-panel state
demo: 1 kx-panel state
demo: 1 kx-panel state
demo: 1 kx-panel state
END
}

@test "only root decides and installs" {
    on_panel 'su -s /bin/sh user -c "
            kx-panel check /packages/demo.kx-update; echo status \$?
            kx-panel install /packages/demo.kx-update; echo status \$?" 2>&1 | grep status
        [ ! -e /opt/demo ] || echo "something was installed"'

    expect_out <<'END'
status 3
status 1
END
}
