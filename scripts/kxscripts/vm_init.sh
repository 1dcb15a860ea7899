#!/bin/sh
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The first program of the virtual machine. It tells that it is ready, then runs one command after
# the other that it is sent, and tells with what each of them ended. Commands, the two outputs and
# what the machine's user asks of the drive go over ports of their own: whatever a command prints, it
# cannot be taken for anything else.
/bin/busybox mkdir -p /dev /mnt /proc /root /sbin /sys /tmp /usr/bin /usr/sbin
/bin/busybox --install -s 2>/dev/null
export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root
mount -t devtmpfs none /dev
mount -t proc none /proc
mount -t sysfs none /sys
mount -t tmpfs none /tmp
modprobe -a virtio_pci virtio_console xhci_pci sd_mod || exit
# The drive needs no time to settle.
modprobe usb_storage delay_use=0 || exit

mkdir /dev/virtio-ports
for port in /sys/class/virtio-ports/*; do
    ln -s "../${port##*/}" "/dev/virtio-ports/$(cat "$port/name")"
done
# What puts the drive in and pulls it out: from the machine, so that a script in it chooses the moment.
cat >/usr/sbin/drive <<'END'
#!/bin/sh
# drive plug: tells the drive's name.  drive pull: as a hand does, nothing is written before.
exec 3<>/dev/virtio-ports/kx.drive || exit 3
echo "$1" >&3
read -r answer <&3
[ "$answer" = done ] || { echo "drive: $answer" >&2; exit 1; }
drives() { readlink -f /sys/block/sd* | grep /usb; }
if [ "$1" = plug ]; then
    until drives >/dev/null; do sleep 0.02; done
    echo "/dev/$(basename "$(drives)")"
else
    while drives >/dev/null; do sleep 0.02; done
fi
END
chmod 755 /usr/sbin/drive

cd /root || exit
exec 3<>/dev/virtio-ports/kx.control 4>/dev/virtio-ports/kx.out 5>/dev/virtio-ports/kx.err
echo ready >&3
while read -r command <&3; do
    echo "$command" | base64 -d >/run.sh
    # The shell's own word about a signal is none of the command's output.
    (exec sh /run.sh </dev/null 3>&- >&4 2>&5 4>&- 5>&-) 2>/dev/null
    echo "ended $?" >&3
done
