#!/usr/bin/python3 -IS
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Verifies a signed package: written from docs/signature-format.md alone, with the openssl command.

  second_verifier.py PACKAGE KEY.pem...     prints the signed name; exit status 1 when it refuses
"""
import hashlib
import re
import struct
import subprocess
import sys
import tempfile

MARK, N = b"KX-SIGNATURES 1\n", 0xffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551
STATEMENT = re.compile(rb"kx-update package signature, version 1\nname: ([A-Za-z0-9][A-Za-z0-9._-]{0,99})\n"
                       rb"length: (0|[1-9][0-9]{0,19})\nsha256: ([0-9a-f]{64})\n")


def require(holds):
    if not holds:
        sys.exit("refused")


def split(data):
    """The bytes without the block, and the block; end records are set back."""
    require(len(data) >= 22 and data[-22:-18] == b"PK\5\6" and data[-2:] == b"\0\0")
    disk, other, here, count, size, place = struct.unpack("<HHHHII", data[-18:-2])
    end, zip64 = len(data) - 22, data[-42:-38] == b"PK\6\7"
    if zip64:
        require(len(data) >= 98)
        end = len(data) - 98
        mark, rest, _, *large = struct.unpack("<4sQ4sIIQQQQ", data[end:end + 56])
        require((mark, rest) == (b"PK\6\6", 44) and data[-38:-22] == struct.pack("<IQI", 0, end, 1))
        told = zip((disk, other, here, count, size, place), large, (0xffff,) * 4 + (0xffffffff,) * 2)
        require(all(one in (truth, most) for one, truth, most in told))
        short, (disk, other, here, count, size, place) = place, large
    else:
        require(0xffffffff not in (size, place))
    require(disk == other == 0 and here == count and place + size == end)
    require(place >= 20 and data[place - 16:place] == MARK)
    length = struct.unpack("<I", data[place - 20:place - 16])[0]
    require(length <= min(8192, place))
    tail, back = bytearray(data[end:]), place - length
    if zip64:
        struct.pack_into("<Q", tail, 48, back)
        struct.pack_into("<Q", tail, 64, end - length)
    if not zip64 or short != 0xffffffff:
        struct.pack_into("<I", tail, len(tail) - 6, back)
    return data[:back] + data[place:end] + bytes(tail), data[back:place]


def is_good(pem, signature, text):
    command = ["openssl", "pkeyutl", "-verify", "-pubin", "-inkey", pem, "-rawin"]
    if b"ED25519" not in subprocess.check_output(["openssl", "pkey", "-pubin", "-in", pem, "-text"]):
        r, s = (int.from_bytes(half, "big") for half in (signature[:32], signature[32:]))
        require(0 < r < N and 0 < s <= N // 2)
        number = b"".join(bytes([2, len(one)]) + one for one in (
            each.to_bytes(each.bit_length() // 8 + 1, "big") for each in (r, s)))
        signature, command = bytes([0x30, len(number)]) + number, command + ["-digest", "sha256"]
    with tempfile.NamedTemporaryFile() as one, tempfile.NamedTemporaryFile() as other:
        for file, content in ((one, signature), (other, text)):
            file.write(content)
            file.flush()
        return subprocess.run(command + ["-sigfile", one.name, "-in", other.name],
                              capture_output=True, check=False).returncode == 0


def main():
    with open(sys.argv[1], "rb") as file:
        plain, block = split(file.read())
    length = struct.unpack("<H", block[16:18])[0]
    text, count = block[18:18 + length], block[18 + length] if len(block) > 18 + length else 0
    statement = STATEMENT.fullmatch(text)
    require(block[:16] == MARK and b"PK\5\6" not in block and 1 <= count <= 16 and statement)
    require(len(block) == 19 + length + 96 * count + 20 and b".temp" not in statement[1])
    entries = [block[at:at + 96] for at in range(19 + length, len(block) - 20, 96)]
    require(all(one[:32] < next_[:32] for one, next_ in zip(entries, entries[1:])))
    known = {hashlib.sha256(subprocess.check_output(
        ["openssl", "pkey", "-pubin", "-in", pem, "-outform", "DER"])).digest(): pem for pem in sys.argv[2:]}
    judged = [is_good(known[one[:32]], one[32:], text) for one in entries if one[:32] in known]
    require(judged and all(judged))
    require(len(plain) == int(statement[2]) and hashlib.sha256(plain).hexdigest().encode() == statement[3])
    print(statement[1].decode())


main()
