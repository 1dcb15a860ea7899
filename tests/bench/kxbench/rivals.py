# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The packages of other updaters that kx-panel is compared with: the same files in each, packed and
signed by its own tools, with a key of P-256 that is made here and gone with the folder."""
import subprocess

CERTIFICATE = "certificate.pem"
KEY = "key.pem"
MODEL = "bench"
PAYLOAD = "payload.tar"
PACKED = f"{PAYLOAD}.gz"
_DESCRIPTION = "sw-description"


def _run(folder, *command, **keywords):
    return subprocess.run(command, cwd=folder, check=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, **keywords).stdout


def make_certificate(folder):
    """Makes a key, and a certificate for it that both updaters take."""
    _run(folder, "openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
         "ec_paramgen_curve:P-256", "-nodes", "-keyout", KEY, "-out", CERTIFICATE, "-subj",
         "/CN=bench", "-days", "2", "-addext", "keyUsage=digitalSignature", "-addext",
         "extendedKeyUsage=emailProtection")


def pack_payload(folder, source):
    """Packs a folder as one archive, and compresses it as zip does by default."""
    _run(folder, "tar", "-c", "-f", PAYLOAD, "-C", source, ".")
    _run(folder, "gzip", "-6", "-k", "-f", PAYLOAD)


def make_bundle(folder, target):
    """Makes a plain bundle of rauc of PAYLOAD; it is signed over all of its bytes."""
    tree = folder / "bundle"
    tree.mkdir()
    (tree / PAYLOAD).hardlink_to(folder / PAYLOAD)
    (tree / "manifest.raucm").write_text(
        f"[update]\ncompatible={MODEL}\nversion=1\n\n[bundle]\nformat=plain\n\n"
        f"[image.payload]\nfilename={PAYLOAD}\n", encoding="utf-8")
    _run(folder, "rauc", "bundle", f"--cert={CERTIFICATE}", f"--key={KEY}", tree, target)


def make_image(folder, target):
    """Makes an image of swupdate of PACKED: a signed description that tells the archive's SHA-256,
    which is to be installed as it comes, so that a check needs no copy of it."""
    digest = _run(folder, "sha256sum", PACKED).split()[0].decode()
    (folder / _DESCRIPTION).write_text(
        'software =\n{\n    version = "1";\n    hardware-compatibility = [ "1" ];\n    images: ({\n'
        f'        filename = "{PACKED}"; type = "archive"; path = "/opt/bench";\n'
        f'        installed-directly = true; sha256 = "{digest}";\n    }});\n}}\n',
        encoding="utf-8")
    _run(folder, "openssl", "cms", "-sign", "-in", _DESCRIPTION, "-out", f"{_DESCRIPTION}.sig",
         "-signer", CERTIFICATE, "-inkey", KEY, "-outform", "DER", "-nosmimecap", "-binary")
    names = f"{_DESCRIPTION}\n{_DESCRIPTION}.sig\n{PACKED}\n"
    with target.open("wb") as out:
        subprocess.run(["cpio", "--quiet", "-o", "-H", "crc"], cwd=folder, check=True, stdout=out,
                       stderr=subprocess.PIPE, input=names.encode())


def bundle_command(folder, file):
    """Verifies the whole bundle, and tells what is in it."""
    return ["/usr/bin/rauc", "info", f"--keyring={folder}/{CERTIFICATE}", file]


def image_command(folder, file):
    """Verifies description and archive, and installs nothing."""
    return ["/usr/bin/swupdate", "-c", "-k", f"{folder}/{CERTIFICATE}", "-H", f"{MODEL}:1", "-i",
            file]
