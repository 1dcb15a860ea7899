#!/usr/bin/python3 -IS
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Makes packages that are small and claim, or become, very large.

  panel_bombs.py PACKAGE FOLDER     adds each kind of bomb to what is in the package
"""
import io
import pathlib
import struct
import sys
import zipfile
import zlib

MIB = 1 << 20
HUGE = 4 << 10  # MiB that a bomb becomes
DESCRIPTION = "UserPackage.kx-project"
END = struct.Struct("<4s4H2LH")
CENTRAL = struct.Struct("<4s6H3L5H2L")
LOCAL = struct.Struct("<4s5H3L2H")


def zeros(mib):
    """A deflated stream that becomes so many MiB of zeros, less one byte."""
    packer = zlib.compressobj(9, zlib.DEFLATED, -15)
    piece = packer.compress(bytes(MIB)) + packer.flush(zlib.Z_FULL_FLUSH)
    again = packer.compress(bytes(MIB)) + packer.flush(zlib.Z_FULL_FLUSH)
    assert again[-64:] == piece[-64:]
    return piece + again * (mib - 2) + packer.compress(bytes(MIB - 1)) + packer.flush()


def with_entry(entries, name, stream, told, crc=0, times=1):
    """An archive of the entries and of one more, a stream of which the records tell a size; the
    directory may name it several times."""
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as package:
        for info, data in entries:
            if info.filename != name:
                package.writestr(info, data)
        start = package.start_dir
    data = out.getvalue()
    fields = END.unpack(data[-22:])
    rows = [data[start:-22]]
    raw = name.encode()
    local = LOCAL.pack(b"PK\3\4", 20, 0, 8, 0, 33, crc, len(stream), told, len(raw), 0)
    for number in range(times):
        other = raw if times == 1 else b"%s.%d" % (raw, number)
        rows.append(CENTRAL.pack(b"PK\1\2", 0x314, 20, 0, 8, 0, 33, crc, len(stream), told,
                                 len(other), 0, 0, 0, 0, 0o100644 << 16, start) + other)
    directory = b"".join(rows)
    place = start + len(local) + len(raw) + len(stream)
    count = fields[3] + times
    return data[:start] + local + raw + stream + directory + END.pack(
        b"PK\5\6", 0, 0, count & 0xffff, count & 0xffff, len(directory), place, 0)


def main():
    """Makes them all."""
    with zipfile.ZipFile(sys.argv[1]) as package:
        entries = [(info, package.read(info)) for info in package.infolist()]
    bomb = zeros(HUGE)
    size = HUGE * MIB - 1
    small = zeros(2)
    made = {
        "large": with_entry(entries, "0/0/large", bomb, size),
        "liar": with_entry(entries, "0/0/liar", bomb, 1000),
        "description": with_entry(entries, DESCRIPTION, bomb, size),
        "description-liar": with_entry(entries, DESCRIPTION, bomb, 1000),
        "overlap": with_entry(entries, "0/0/same", small, 2 * MIB - 1, zlib.crc32(bytes(2 * MIB - 1)),
                              3000),
        "many": with_entry(entries, "0/0/x", b"\3\0", 0, 0, 60000),
    }
    for name, data in made.items():
        pathlib.Path(sys.argv[2], f"{name}.kx-update").write_bytes(data)


main()
