#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What is mounted on the sandboxed device: nothing of the machine but what was shared, and nothing
# that can be changed where nothing may be changed.
#
# Scripts in single quotes are for the shell inside; bats sets stderr.
# shellcheck disable=SC2016,SC2154

load sandbox

# with_submounts WAY SCRIPT: runs a script of the host's shell in a mount namespace of its own, in a
# folder of files and mounts that everybody may write to. There, DEVICE starts the device as root or
# as an ordinary user (WAY: device or user_device).
with_submounts() {
    local folder=$PUBLIC/open/shared
    local starter=("$DEVICE_HOME/run")
    [ "$1" = device ] ||
        starter=(setpriv --reuid=65534 --regid=65534 --clear-groups "$PUBLIC/device/run")
    mkdir -p "$folder/below"
    : >"$folder/one"
    unshare --mount --propagation private bash -c '
        folder=$1 script=$2
        shift 2
        starter=("$@")
        DEVICE() { "${starter[@]}" "$@"; }
        cd "$folder" && chmod 777 . && umask 0 &&
            mount -t tmpfs -o mode=777 tmpfs below && mkdir below/deeper && echo host >below/note &&
            mount -t tmpfs -o mode=777 tmpfs below/deeper && echo host >below/deeper/note &&
            mount --bind below/note one || exit 99
        eval "$script"' - "$folder" "$2" "${starter[@]}"
}

# need_host_mounts: ends a test as skipped where nothing can be mounted on the host.
need_host_mounts() {
    [ "$(id -u)" -eq 0 ] || skip "only root can mount on the host"
}

# mounts WAY [OPTION...]: the mounts of a device, each with what it forbids and with whom it is
# shared; those of single nodes are the machine's.
mounts() {
    "$@" -- cat /proc/self/mountinfo | awk '
        $5 ~ "^/dev/(null|zero|full|random|urandom)$" { next }
        {
            text = $5
            count = split($6, flags, ",")
            for (i = 1; i <= count; i++)
                if (flags[i] ~ /^(ro|nosuid|nodev|noexec)$/) text = text " " flags[i]
            if ($7 != "-") text = text " " $7
            print text
        }' | LC_ALL=C sort
}

# -- the whole table -----------------------------------------------------------------------------

@test "every mount of the device forbids what nobody needs, and no other is there" {
    local way
    cp -R tree "$PUBLIC/open/"
    chmod -R a+rX "$PUBLIC/open/tree"
    for way in device user_device; do
        mounts "$way" --share "$PUBLIC/open/tree=/mnt/user/tree" --usb "$PUBLIC/open/tree" \
            --share "$PUBLIC/open/tree/secret=/opt/one" --full /opt/full --read-only /var/lib >seen

        diff seen - <<'END'
/ nosuid nodev
/dev nosuid noexec
/dev/shm nosuid nodev
/mnt/usb nosuid nodev
/mnt/user/tree ro nosuid nodev
/opt/full nosuid nodev
/opt/one ro nosuid nodev
/proc nosuid nodev noexec
/proc/sys ro nosuid nodev noexec
/usr nodev
/var/lib ro nosuid nodev
END
    done
}

@test "a drive whose files are kept forbids nodes and other rights, whatever the host allows there" {
    mounts device --state state --usb tree >seen

    [ "$(grep /mnt/usb seen)" = "/mnt/usb nosuid nodev" ]
}

@test "mounting on the device is not seen on a host that hands its mounts on" {
    need_host_mounts

    run unshare --mount --propagation shared sh -c '
        before=$(cat /proc/self/mountinfo)
        "$1" --full /opt/full --share tree=/mnt/user/tree -- true || exit
        test "$before" = "$(cat /proc/self/mountinfo)" && echo as before' - "$DEVICE_HOME/run"

    [ "$output" = "as before" ]
}

# -- mounts of the host below what is shared -----------------------------------------------------

@test "mounts below a shared folder are shown, and cannot be changed either" {
    need_host_mounts
    local way
    for way in device user_device; do
        run --separate-stderr with_submounts "$way" '
            DEVICE --share .=/mnt/s --share one=/mnt/one -- bash -c "
                cat /mnt/s/below/note /mnt/s/below/deeper/note /mnt/s/one /mnt/one
                cd /mnt/s
                for folder in . below below/deeper; do
                    touch \$folder/new && echo made \$folder/new
                done
                for file in below/note below/deeper/note one /mnt/one; do
                    echo x >>\$file && echo wrote \$file
                    chmod 600 \$file && echo changed \$file
                    rm -f \$file && echo removed \$file
                done
                echo tried"
            find . -type f -printf "%P %m %s\n" | LC_ALL=C sort'

        diff <(echo "$output") - <<'END'
host
host
host
host
tried
below/deeper/note 666 5
below/note 666 5
one 666 5
END
    done
}

@test "no program or node of a mount below a shared folder has more than its bytes" {
    need_host_mounts
    local way
    for way in device user_device; do
        with_submounts "$way" 'DEVICE --share .=/mnt/s -- cat /proc/self/mountinfo' >seen

        diff <(awk '$5 ~ "^/mnt/s" { print $5, substr($6, 1, 15) }' seen | LC_ALL=C sort) - <<'END'
/mnt/s ro,nosuid,nodev
/mnt/s/below ro,nosuid,nodev
/mnt/s/below/deeper ro,nosuid,nodev
/mnt/s/one ro,nosuid,nodev
END
    done
}

# -- read-only places ----------------------------------------------------------------------------

@test "file systems below a read-only place cannot be changed and do not disappear" {
    local way
    for way in device user_device; do
        run --separate-stderr "$way" --full /opt/full --read-only /opt -- bash -c '
            grep -q " /opt/full " /proc/mounts && echo there
            touch /opt/new; touch /opt/full/new; mkdir /opt/full/folder; ls -A /opt/full'

        [ "$output" = there ]
        [ "$(grep -c 'Read-only file system' <<<"$stderr")" -eq 3 ]
    done
}

@test "a shared folder below a read-only place is still there" {
    need_host_mounts
    local way
    for way in device user_device; do
        run --separate-stderr with_submounts "$way" '
            DEVICE --share .=/opt/s --read-only /opt -- bash -c "
                cat /opt/s/below/note /opt/s/below/deeper/note
                touch /opt/new /opt/s/new /opt/s/below/new"'

        [ "$output" = $'host\nhost' ]
        [ "$(grep -c 'Read-only file system' <<<"$stderr")" -eq 3 ]
    done
}

@test "the machine's programs and a folder that was not there can be made read-only" {
    run device --read-only /usr --read-only /opt/new -- bash -c '
        for folder in /usr /usr/bin /usr/lib /opt/new; do touch $folder/x; done
        rm /usr/bin/wc; touch /opt/x && echo "the rest can be written"'

    [ "${lines[-1]}" = "the rest can be written" ]
    [ "$(grep -c 'Read-only file system' <<<"$output")" -eq 5 ]
}

@test "the drive in a read-only place cannot be changed, not even when it comes back" {
    local way place stick=$PUBLIC/open/stick
    mkdir -p "$stick"
    echo one >"$stick/note"
    for way in device user_device; do
        for place in /mnt/usb /mnt; do
            run --separate-stderr "$way" --usb "$stick" --read-only "$place" -- bash -c '
                cat /mnt/usb/note; touch /mnt/usb/new
                /usr/bin/kxsystem/drive pull; /usr/bin/kxsystem/drive plug
                cat /mnt/usb/note; echo two >/mnt/usb/note; rm /mnt/usb/note; ls /mnt/usb'

            [ "$output" = $'one\none\nnote' ]
            [ "$(grep -c 'Read-only file system' <<<"$stderr")" -eq 3 ]
        done
        run -0 "$way" --usb "$stick" --read-only /mnt/user -- touch /mnt/usb/new
    done
}

@test "nothing that a link into /proc leads to becomes a read-only place" {
    device --state state -- sh -c 'ln -s /proc/1/limits /mnt/user/file'

    run -125 device --state state --read-only /mnt/user/file -- true
    [ "$output" = "device/run: cannot make the sandboxed device: /mnt/user/file leads into /proc \
and cannot be made read-only" ]
}

# -- what is in the way --------------------------------------------------------------------------

@test "a shared file does not hide a folder of the device" {
    run -125 device --share tree/secret=/etc -- true

    [ "$output" = "device/run: cannot make the sandboxed device: /etc of the panel is a folder, \
the shared one a file" ]
}

@test "a shared folder does not go where a file is" {
    run -125 device --share tree=/etc/passwd -- true

    [ "$output" = "device/run: cannot make the sandboxed device: /etc/passwd of the panel is not a \
folder" ]
}
