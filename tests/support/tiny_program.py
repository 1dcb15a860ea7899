#!/usr/bin/python3 -IS
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Writes the smallest program for a processor, which ends with a status.

  tiny_program.py [--loader PATH] PROCESSOR STATUS FILE

No compiler is asked: the programs hold three instructions. PROCESSOR is aarch64, arm, i386, riscv64
or x86_64, or "none", which no machine has. With --loader the program says that PATH loads it.
"""
import os
import struct
import sys

# Whether it has 64 bits, its number, flags of its programs, and the instructions that end one.
PROCESSORS = {
    "aarch64": (True, 183, 0, lambda n: struct.pack("<III", 0xd2800000 | n << 5, 0xd2800ba8,
                                                    0xd4000001)),
    "arm": (False, 40, 0x05000200, lambda n: struct.pack("<III", 0xe3a07001, 0xe3a00000 | n,
                                                         0xef000000)),
    "i386": (False, 3, 0, lambda n: b"\xbb" + struct.pack("<I", n) + b"\xb8\1\0\0\0\xcd\x80"),
    "none": (True, 0xf00d, 0, lambda n: bytes(12)),
    "riscv64": (True, 243, 0, lambda n: struct.pack("<III", 0x00000513 | n << 20, 0x05d00893,
                                                    0x00000073)),
    "x86_64": (True, 62, 0, lambda n: b"\xbf" + struct.pack("<I", n) + b"\xb8\x3c\0\0\0\x0f\x05"),
}
BASE = 0x10000


def program(processor, status, loader=""):
    """Returns the bytes of the program."""
    is_64_bit, machine, flags, code = PROCESSORS[processor]
    word, head, part = ("Q", 64, 56) if is_64_bit else ("I", 52, 32)
    text = loader.encode() + b"\0" if loader else b""
    count = 2 if loader else 1
    start = head + part * count
    entry = start + (len(text) + 15) // 16 * 16
    body = text.ljust(entry - start, b"\0") + code(status)
    size = start + len(body)

    def segment(kind, offset, length, access):
        place = BASE + offset
        if is_64_bit:
            return struct.pack("<II6Q", kind, access, offset, place, place, length, length, 0x1000)
        return struct.pack("<8I", kind, offset, place, place, length, length, access, 0x1000)

    ident = b"\x7fELF" + bytes((2 if is_64_bit else 1, 1, 1)) + bytes(9)
    file = ident + struct.pack(f"<HHI3{word}IHHHHHH", 2, machine, 1, BASE + entry, head, 0, flags,
                               head, part, count, 0, 0, 0)
    if loader:
        file += segment(3, start, len(text), 4)
    return file + segment(1, 0, size, 5) + body


def main(words):
    """Writes the program that the words ask for."""
    loader = ""
    if words[0] == "--loader":
        loader, words = words[1], words[2:]
    processor, status, path = words
    with open(path, "wb") as file:
        file.write(program(processor, int(status), loader))
    os.chmod(path, 0o755)


if __name__ == "__main__":
    main(sys.argv[1:])
