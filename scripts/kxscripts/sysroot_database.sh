#!/bin/sh
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Writes dpkg's records of the packages that mmdebstrap has unpacked into ROOT, for the tools that ask
# which package a library is of: sysroot_database.sh ROOT
set -eu
records=$1/var/lib/dpkg
mkdir -p "$records/info"
for package in "$1"/var/cache/apt/archives/*.deb; do
    name=$(dpkg-deb --field "$package" Package)
    if [ "$(dpkg-deb --field "$package" Multi-Arch)" = same ]; then
        name=$name:$(dpkg-deb --field "$package" Architecture)
    fi
    dpkg-deb --control "$package" "$records/control"
    for kind in shlibs symbols; do
        if [ -e "$records/control/$kind" ]; then
            cp "$records/control/$kind" "$records/info/$name.$kind"
        fi
    done
    dpkg-deb --fsys-tarfile "$package" | tar -t |
        sed -e 's,^\./,/,' -e 's,/$,,' -e 's,^$,/.,' >"$records/info/$name.list"
    {
        sed '/^Package:/a Status: install ok installed' "$records/control/control"
        echo
    } >>"$records/status"
    rm -r "$records/control"
done
