# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Archives of a package folder by several programs, and ways to damage them."""

import io
import os
import struct
import subprocess
import warnings
import zipfile

warnings.filterwarnings("ignore", category=UserWarning, module="zipfile")

LOCAL, CENTRAL, END, DESCRIPTOR = b"PK\3\4", b"PK\1\2", b"PK\5\6", b"PK\7\x08"

# Offset and size of every field of the records.
LOCAL_FIELDS = [(0, 4), (4, 2), (6, 2), (8, 2), (10, 2), (12, 2), (14, 4), (18, 4), (22, 4),
                (26, 2), (28, 2)]
CENTRAL_FIELDS = [(0, 4), (4, 2), (6, 2), (8, 2), (10, 2), (12, 2), (14, 2), (16, 4), (20, 4),
                  (24, 4), (28, 2), (30, 2), (32, 2), (34, 2), (36, 2), (38, 4), (42, 4)]
END_FIELDS = [(0, 4), (4, 2), (6, 2), (8, 2), (10, 2), (12, 4), (16, 4), (20, 2)]


def run(folder, *command):
    """Runs a packing program in a folder."""
    subprocess.run(command, cwd=folder, check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=60)


def by_zip(*options):
    """An archive by Info-ZIP's zip."""
    def build(folder, archive):
        run(folder, "zip", "-q", "-r", *options, archive, ".")
    return build


def by_zip_stream(folder, archive):
    """An archive by zip that could not go back in its output: sizes follow the contents."""
    with open(archive, "wb") as out:
        subprocess.run(["zip", "-q", "-r", "-", "."], cwd=folder, check=True, stdout=out,
                       stdin=subprocess.DEVNULL, timeout=60)


def by_7z(*options):
    """An archive by 7z."""
    def build(folder, archive):
        run(folder, "7z", "a", "-tzip", "-bd", *options, archive, ".")
    return build


def by_bsdtar(*options):
    """An archive by bsdtar."""
    def build(folder, archive):
        names = sorted(os.listdir(folder))
        run(folder, "bsdtar", "-c", "-f", archive, "--format", "zip", *options, *names)
    return build


class Pipe(io.RawIOBase):
    """An output that cannot go back."""

    def __init__(self):
        super().__init__()
        self.data = bytearray()

    def writable(self):
        return True

    def write(self, piece):
        self.data += bytes(piece)
        return len(piece)


def by_python(method=zipfile.ZIP_DEFLATED, system=3, stream=False, zip64=False, folders=False,
              rename=lambda name: name):
    """An archive by Python's zipfile."""
    def build(folder, archive):
        out = Pipe() if stream else io.BytesIO()
        with zipfile.ZipFile(out, "w") as packed:
            for path in files_of(folder):
                full = os.path.join(folder, path)
                if folders and "/" in path:
                    packed.mkdir(os.path.dirname(path)) if hasattr(packed, "mkdir") else None
                info = zipfile.ZipInfo("x", (2026, 11, 21, 0, 0, 0))
                info.filename = rename(path)
                info.compress_type = method
                info.create_system = system
                mode = os.stat(full).st_mode
                info.external_attr = mode << 16 if system == 3 else 32
                with open(full, "rb") as source, \
                        packed.open(info, "w", force_zip64=zip64) as target:
                    target.write(source.read())
        with open(archive, "wb") as file:
            file.write(out.data if stream else out.getvalue())
    return build


def files_of(folder):
    """The files of a folder, sorted."""
    found = []
    for place, _, names in os.walk(folder):
        found += [os.path.relpath(os.path.join(place, name), folder) for name in names]
    return sorted(found)


BUILDERS = {
    "zip": by_zip(),
    "zip -X": by_zip("-X"),
    "zip -0": by_zip("-0"),
    "zip -9 -D": by_zip("-9", "-D"),
    "zip -fd": by_zip("-fd"),
    "zip -fz": by_zip("-fz"),
    "zip -y": by_zip("-y"),
    "zip -Z bzip2": by_zip("-Z", "bzip2"),
    "zip -P": by_zip("-P", "secret"),
    "zip -": by_zip_stream,
    "7z": by_7z("-mm=Deflate"),
    "7z -mx0": by_7z("-mx=0"),
    "7z deflate64": by_7z("-mm=Deflate64"),
    "7z bzip2": by_7z("-mm=BZip2"),
    "7z lzma": by_7z("-mm=LZMA"),
    "7z ppmd": by_7z("-mm=PPMd"),
    "7z -p": by_7z("-psecret"),
    "7z aes": by_7z("-psecret", "-mem=AES256"),
    "bsdtar": by_bsdtar(),
    "bsdtar store": by_bsdtar("--options", "zip:compression=store"),
    "bsdtar zip64": by_bsdtar("--options", "zip:zip64"),
    "python": by_python(),
    "python stored": by_python(method=zipfile.ZIP_STORED),
    "python bzip2": by_python(method=zipfile.ZIP_BZIP2),
    "python lzma": by_python(method=zipfile.ZIP_LZMA),
    "python stream": by_python(stream=True),
    "python zip64": by_python(zip64=True),
    "python zip64 stream": by_python(zip64=True, stream=True),
    "python dos": by_python(system=0),
    "python ntfs": by_python(system=11),
    "python up": by_python(rename=lambda name: "../" + name),
    "python absolute": by_python(rename=lambda name: "/" + name),
    "python dot": by_python(rename=lambda name: "./" + name),
    "python backslash": by_python(rename=lambda name: name.replace("/", "\\")),
    "python dos backslash": by_python(system=0, rename=lambda name: name.replace("/", "\\")),
    "python folder": by_python(rename=lambda name: "pkg/" + name),
}


def places(data, mark):
    """Where records of a kind begin."""
    found, at = [], data.find(mark)
    while at >= 0:
        found.append(at)
        at = data.find(mark, at + 1)
    return found


def change_field(data, rng):
    """Changes one field of one record."""
    mark, fields = rng.choice([(LOCAL, LOCAL_FIELDS), (CENTRAL, CENTRAL_FIELDS),
                               (END, END_FIELDS)])
    found = places(data, mark)
    if not found:
        return data
    at = rng.choice(found)
    offset, size = rng.choice(fields)
    old = int.from_bytes(data[at + offset:at + offset + size], "little")
    most = (1 << 8 * size) - 1
    new = rng.choice([old ^ 1 << rng.randrange(8 * size), (old + 1) & most, (old - 1) & most, 0,
                      most, rng.randrange(most + 1), old ^ 8, old ^ 0x800])
    return data[:at + offset] + (new & most).to_bytes(size, "little") + data[at + offset + size:]


def flip_byte(data, rng):
    """Changes one byte anywhere."""
    at = rng.randrange(len(data))
    return data[:at] + bytes([data[at] ^ rng.randrange(1, 256)]) + data[at + 1:]


def flip_head(data, rng):
    """Changes one byte of a record, its name or its extra fields."""
    at = rng.choice(places(data, rng.choice([LOCAL, CENTRAL])) or [0]) + rng.randrange(80)
    at = min(at, len(data) - 1)
    return data[:at] + bytes([data[at] ^ rng.randrange(1, 256)]) + data[at + 1:]


def cut(data, rng):
    """Cuts the end off."""
    return data[:rng.choice([rng.randrange(len(data)), len(data) - rng.randrange(1, 40)])]


def insert(data, rng):
    """Puts bytes in somewhere."""
    at = rng.choice([0, len(data), rng.randrange(len(data)), rng.choice(places(data, LOCAL) or [0]),
                     rng.choice(places(data, CENTRAL) or [0])])
    more = bytes(rng.randrange(256) for _ in range(rng.choice([1, 2, 16, 300])))
    return data[:at] + more + data[at:]


def remove(data, rng):
    """Takes bytes out somewhere."""
    at = rng.randrange(len(data))
    return data[:at] + data[at + rng.choice([1, 2, 16, 300]):]


def lengthen_tail(data, rng):
    """Puts much behind the end."""
    return data + bytes(rng.choice([1, 1000, 65000, 66100]))


def rename(data, rng):
    """Changes a name in directory and header alike."""
    with zipfile.ZipFile(io.BytesIO(data)) as packed:
        name = rng.choice(packed.namelist()).encode()
    new = bytearray(name)
    at = rng.randrange(len(new))
    new[at] = rng.choice(b"/\\.;:\x01$\"`\xe4 ~" + bytes([new[at] ^ 0x20]))
    return data.replace(name, bytes(new))


def twice(data, rng):
    """Lists an entry twice in the directory."""
    found = places(data, CENTRAL)
    at = rng.choice(found)
    size = 46 + sum(struct.unpack("<HHH", data[at + 28:at + 34]))
    end = data.rfind(END)
    here, count, length = struct.unpack("<HHI", data[end + 8:end + 16])
    tail = data[end:end + 8] + struct.pack("<HHI", here + 1, count + 1, length + size) + \
        data[end + 16:]
    return data[:end] + data[at:at + size] + tail


def append(data, rng):
    """Adds an entry, which may stand for something that is there already."""
    out = io.BytesIO(data)
    with zipfile.ZipFile(out, "a") as packed:
        names = packed.namelist()
        name = rng.choice(names + ["0", "0/0/hello/x", "extra", "l", "__MACOSX/._x"])
        info = zipfile.ZipInfo("x", (2026, 11, 21, 0, 0, 0))
        info.filename = name
        kind = rng.choice([0o100644, 0o100755, 0o120777, 0o040755, 0o010644])
        info.external_attr = kind << 16
        packed.writestr(info, rng.choice([b"", b"hello", b"../x", b"0/0/hello"]))
    return out.getvalue()


MUTATIONS = [change_field] * 6 + [flip_byte] * 2 + [flip_head] * 4 + \
    [cut, insert, remove, lengthen_tail, rename, rename, twice, append, append]


def damaged(data, rng):
    """Returns damaged bytes and what was done."""
    mutation = rng.choice(MUTATIONS)
    try:
        return mutation(data, rng), mutation.__name__
    except (zipfile.BadZipFile, struct.error, IndexError, ValueError, NotImplementedError,
            RuntimeError):
        return flip_byte(data, rng), "flip_byte"
