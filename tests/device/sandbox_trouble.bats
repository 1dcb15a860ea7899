#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What the sandboxed device does when asked: trouble, the panel's own tools, and reports.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox

# -- trouble made to order -----------------------------------------------------------------------

@test "a tool can fail always or at one call, by every name it has" {
    run device --fail cp=3@2 --fail chmod=4 -- sh -c '
        cp /etc/passwd /tmp/1; echo $?; /bin/cp /etc/passwd /tmp/2; echo $?
        cp /etc/passwd /tmp/3; echo $?; /usr/bin/chmod 700 /tmp; echo $?; ls /tmp'

    [ "$output" = $'0\n3\n0\n4\n1\n3' ]
}

@test "stand-ins, linked tools and the shell itself can fail too" {
    run device --fail usb_umount=5 --fail reboot=6 --fail awk=7 --fail sh=8@2 -- bash -c '
        /usr/bin/kxsystem/usb_umount; echo $?; /sbin/reboot; echo $?; awk 1 </dev/null; echo $?
        sh -c "echo one"; sh -c "echo two"; echo $?; /bin/sh -c "echo three"'

    [ "$output" = $'5\n6\n7\none\n8\nthree' ]
}

@test "a tool can be missing" {
    run --separate-stderr device --missing cp --missing usb_umount --missing awk -- bash -c '
        cp; echo $?; /usr/bin/kxsystem/usb_umount; echo $?; ls /usr/bin/awk; awk; echo $?; mawk -W version >/dev/null 2>&1; true'

    [[ "$output" == *127*127*127* ]]
    run device --missing no-such-tool -- true
    [ "$status" -eq 125 ]
}

@test "a command's own shell can be kept from starting, whatever its scripts call" {
    cat >calls.py <<'END'
import os
for command in ("echo one", "sh -c 'echo one'", "exec sh -c 'echo one'", "echo one", "echo one",
                "a=b; echo $a"):
    print(os.system(command), flush=True)
END
    run device --share calls.py=/c.py --trace trace --fail-shell '2=echo one' \
        --fail-shell '1=a=b; echo $a' -- python3 /c.py

    [ "$output" = $'one\n0\none\n0\none\n0\n32512\none\n0\n32512' ]
    [ "$(cat trace)" = $'refused\techo one\nrefused\ta=b; echo $a' ]
}

@test "a refused shell is traced as well, and the start-up script is not concerned" {
    device --state state -- sh -c 'printf "#!/bin/sh\nsh -c true; echo \$?\n" >/mnt/user/startup.sh
        chmod 755 /mnt/user/startup.sh'

    run device --state state --boot --trace trace --trace-shell --fail-shell 1=true -- \
        python3 -c 'import os; print(os.system("true"))'

    [ "$output" = $'0\n32512' ]
    [ "$(cat trace)" = $'shell\ttrue\nshell\ttrue\nrefused\ttrue' ]
}

@test "trouble of one run is not kept" {
    device --state state --missing cp --fail chmod=3 --full /mnt/user --read-only /opt -- true

    run device --state state -- sh -c 'cp /etc/passwd /mnt/user/ && chmod 600 /mnt/user/passwd &&
        touch /opt/x && echo fine'
    [ "$output" = fine ]
}

@test "a full place takes no more bytes, not even after removing files" {
    run device --full /mnt/user -- bash -c '
        rm -rf /mnt/user/* /mnt/user/.[!.]*
        echo x >/mnt/user/a || echo failed
        cp /etc/passwd /mnt/user/b || echo failed'

    [ "$(grep -c '^failed$' <<<"$output")" -eq 2 ]
    [[ "$output" == *"No space left on device"* ]]
}

@test "a read-only place cannot be changed" {
    run device --read-only /var/lib --read-only /etc/passwd -- bash -c '
        touch /var/lib/x || echo failed; echo x >>/etc/passwd || echo failed
        rm -rf /var/lib || echo failed; touch /etc/x && echo fine'

    [ "$(grep -c '^failed$' <<<"$output")" -eq 3 ]
    [ "${lines[-1]}" = fine ]
}

# -- stand-ins -----------------------------------------------------------------------------------

@test "settings are kept, listed in order and checked" {
    run device -- bash -c 'kx-setting-cui set B=2 A=1 "C=x y=z" F=; kx-setting-cui set B=3
        kx-setting-cui list; kx-setting-cui; echo $?; kx-setting-cui set; echo $?
        kx-setting-cui set E=1 novalue; echo $?; kx-setting-cui set =1; echo $?
        kx-setting-cui list | grep -c E'

    [[ "$output" == *$'A=1\nB=3\nC=x y=z\nF=\n'* ]]
    [ "$(grep -c '^2$' <<<"$output")" -eq 4 ]
    [[ "$output" == *"usage: kx-setting-cui set NAME=VALUE... | list"* ]]
    [ "${lines[-1]}" = 0 ]
}

@test "stand-ins refuse to act on anything but the device" {
    run device -- sh -c 'rm /.kx-device
        for tool in /usr/bin/kxsystem/usb_umount /usr/bin/kxsystem/wprotect_off \
            /usr/bin/kx-setting-cui /sbin/reboot /usr/bin/kxsystem/drive; do
            $tool list; echo $?
        done'
    [ "${#lines[@]}" -eq 10 ]
    [ "$(grep -c '^126$' <<<"$output")" -eq 5 ]

    run "$DEVICE_HOME/bin/stand-in"
    [ "$status" -eq 126 ]
    [ "$output" = "stand-in: this is not the sandboxed device (/.kx-device is missing)" ]
}

@test "a reboot is only noted" {
    run device --state state --trace trace -- sh -c '/sbin/reboot -f; echo still here'

    [ "$output" = "still here" ]
    [ "$(cat trace)" = $'tool\treboot\t-f' ]
    [ -e state/panel/reboot ]
}

# -- reports -------------------------------------------------------------------------------------

@test "the trace holds every byte of every argument" {
    device --trace trace -- bash -c \
        $'kx-setting-cui set $\'A=\\\\ \\t \\n \\x01\\xff\\r\' B=; /usr/bin/kxsystem/wprotect_off'

    printf 'tool\tkx-setting-cui\tset\tA=\\\\ \\t \\n \001\377\r\tB=\ntool\twprotect_off\n' >expected
    cmp expected trace
}

@test "the trace of the shell holds each command string that is handed to it" {
    cat >calls.py <<'END'
import os, subprocess
os.system("true")
os.system("echo 'a\tb\\c\nd' >/dev/null; exit 3")
subprocess.call(["/bin/sh", "-c", "--", "exit 4"])
subprocess.call(["sh", "-c", "exit 5", "name", "arg"])
subprocess.call(["sh", "-ec", "exit 6"])
subprocess.call(["bash", "-c", "exit 7"])
os.system("kx-setting-cui set A=1")
os.system(": " + "x" * 100000)
END
    local start trace
    for start in device user_device; do
        trace=$PUBLIC/open/$start
        run "$start" --share "$(readable calls.py)=/calls.py" --trace "$trace" --trace-shell -- \
            python3 /calls.py
        [ "$status" -eq 0 ]

        {
            printf 'shell\ttrue\nshell\techo '"'"'a\\tb\\\\c\\nd'"'"' >/dev/null; exit 3\n'
            printf 'shell\texit 4\nshell\texit 5\nshell\tkx-setting-cui set A=1\n'
            printf 'tool\tkx-setting-cui\tset\tA=1\nshell\t: '
            printf 'x%.0s' $(seq 100000)
            echo
        } >expected
        cmp expected "$trace"
    done
}

@test "a traced shell behaves like an untraced one" {
    cat >behave.py <<'END'
import os, signal, subprocess
print(os.system("exit 3"), os.system("kill -9 $$"), os.system("no-such-tool 2>/dev/null"))
for words in (["sh", "-c", "echo $0 $#; env | sort | grep -v PWD; read x; echo got $x"],
              ["/bin/sh", "-c", "echo $0 $1", "zero", "one"],
              ["sh", "-c", "--", "echo $-; ls /proc/self/fd | wc -l"]):
    print(subprocess.run(words, input=b"line\n", capture_output=True).stdout)
child = subprocess.Popen(["sh", "-c", "kill -TERM $$"])
print(child.wait())
END
    device --share behave.py=/b.py -- python3 /b.py >plain
    device --share behave.py=/b.py --trace trace --trace-shell -- python3 /b.py >traced

    diff plain traced
    [ "$(grep -c '^shell' trace)" -eq 7 ]
}

@test "calls of failing and missing tools are traced" {
    device --fail cp=3@2 --missing usb_umount --trace trace -- sh -c \
        'cp /etc/passwd /tmp; cp -f a b; /usr/bin/kxsystem/usb_umount now' 2>/dev/null || true

    [ "$(cat trace)" = $'tool\tcp\t-f\ta\tb\ntool\tusb_umount\tnow' ]
}

@test "a traced start is fast enough for many commands" {
    cat >many.py <<'END'
import os
for number in range(2000):
    os.system("exit 0")
END
    local begin=$SECONDS
    device --share many.py=/many.py --trace trace --trace-shell -- python3 /many.py

    [ "$(wc -l <trace)" -eq 2000 ]
    [ $((SECONDS - begin)) -lt 20 ]
}

@test "the summary tells people what changed" {
    mkdir stick
    echo old >stick/note
    device --state state -- sh -c 'mkdir -p /opt/old /var/lib/KxUserPackages/Old; echo a >/opt/old/a
        echo b >/opt/old/b; kx-setting-cui set KEEP=1 CHANGE=1; echo x >/usr/local/bin/own'

    run device --state state --usb stick --summary -- sh -c '
        rm /opt/old/a; echo bb >/opt/old/b; chmod 600 /opt/old/b; mkdir -m 750 /opt/new
        printf 12345 >/opt/new/f; ln -s f /opt/new/l; kx-setting-cui set CHANGE=2 NEW=3 KEEP=1
        mkdir /var/lib/KxUserPackages/Demo; touch /var/lib/KxUserPackages/Demo/list
        rm -r /var/lib/KxUserPackages/Old; sed -i "/^user:/d" /etc/passwd
        echo "new:x:0:0::/:" >>/etc/passwd; sed -i "s/^root:[^:]*:/root:hash:/" /etc/shadow
        echo new >/mnt/usb/note; touch /tmp/.X1-lock /run/noise
        rm /usr/bin/wc; echo 1 >/usr/bin/tool; chmod 755 /usr/bin/tool; rm /usr/local/bin/own
        cp /bin/false /usr/bin/tac.new; mv /usr/bin/tac.new /usr/bin/tac; /sbin/reboot'
    [ "$status" -eq 0 ]

    local false_size passwd_size shadow_size
    false_size=$(stat -L -c %s /bin/false)
    passwd_size=$(device --state state -- stat -c %s /etc/passwd)
    shadow_size=$(device --state state -- stat -c %s /etc/shadow)
    local group=shadow
    device -- sh -c 'test "$(stat -c %G /etc/shadow)" = shadow' || group=root
    local width=${#group}
    cat >expected <<END
What the run changed on the panel

Files and folders
  changed  -rw-r--r--  $(printf "%-$((width + 5))s" root:root)  $(printf %5s "$passwd_size")  /etc/passwd
  changed  -rw-r-----  root:$group  $(printf %5s "$shadow_size")  /etc/shadow
  changed  -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      4  /mnt/usb/note
  added    drwxr-x---  $(printf "%-$((width + 5))s" root:root)         /opt/new
  added    -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      5  /opt/new/f
  added    lrwxrwxrwx  $(printf "%-$((width + 5))s" root:root)      1  /opt/new/l -> f
  removed  -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      2  /opt/old/a
  changed  -rw-------  $(printf "%-$((width + 5))s" root:root)      3  /opt/old/b
  changed  -rwxr-xr-x  $(printf "%-$((width + 5))s" root:root)  $false_size  /usr/bin/tac
  added    -rwxr-xr-x  $(printf "%-$((width + 5))s" root:root)      2  /usr/bin/tool
  removed              $(printf "%-$((width + 5))s" "")         /usr/bin/wc
  removed  -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      2  /usr/local/bin/own
  added    drwxr-xr-x  $(printf "%-$((width + 5))s" root:root)         /var/lib/KxUserPackages/Demo
  added    -rw-r--r--  $(printf "%-$((width + 5))s" root:root)      0  /var/lib/KxUserPackages/Demo/list
  removed  drwxr-xr-x  $(printf "%-$((width + 5))s" root:root)         /var/lib/KxUserPackages/Old

Settings
  CHANGE=2  (was 1)
  NEW=3

Users
  new: added
  root: password changed
  user: removed

Installed packages
  Demo: record added
  Old: record removed

Reboot
  asked for
END
    diff expected <(echo "$output")
}

@test "a summary of nothing says so" {
    run --separate-stderr device --summary -- true

    [ "$output" = "" ]
    [ "$stderr" = 'What the run changed on the panel

Files and folders
  none

Settings
  none

Users
  none

Installed packages
  none

Reboot
  not asked for' ]
}

@test "the summary can go to files, also as JSON" {
    device --summary=text --summary-json json -- sh -c 'printf 12 >/opt/f; kx-setting-cui set A=1'

    grep -q '  added    -rw-r--r--  root:root  2  /opt/f' text
    /usr/bin/python3 - <<'END'
import json
data = json.load(open("json"))
assert data == {
    "files": [{"change": "added", "group": "root", "kind": "-", "mode": "-rw-r--r--",
               "octal": "0644", "owner": "root", "path": "/opt/f", "size": 2}],
    "settings": [{"name": "A", "before": None, "after": "1"}],
    "users": [], "packages": [], "reboot": False}, data
END
}
