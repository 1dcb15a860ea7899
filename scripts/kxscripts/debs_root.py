# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Tries Debian packages in a fresh system, which is thrown away; kxscripts.debs_try starts it where
nothing of the computer can be reached but by root's rights over files.

    python3 -m kxscripts.debs_root ARCH ARCHIVE WORK

ARCHIVE is the system. WORK holds `older` and `newer`, the packages, and `root`, which the system is
unpacked into."""
import hashlib
import os
import pathlib
import shutil
import stat
import subprocess
import sys

from kxdevice import linux
from kxscripts import debs_try
from kxscripts.common import Failed

NATIVE = {"x86_64": "amd64", "aarch64": "arm64", "armv7l": "armhf"}
PROCESSORS = {"amd64": "x86_64", "arm64": "aarch64", "armhf": "arm"}  # as manifests name them
DEVICES = ("full", "null", "random", "urandom", "zero")
# What dpkg itself writes down, and what is not on the disk.
NOT_COMPARED = ("dev", "proc", "run", "sys", "tmp", "var/lib/dpkg", "var/log/dpkg.log")
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LC_ALL": "C.UTF-8",
               "DEBIAN_FRONTEND": "noninteractive"}
# What an administrator and the programs have written when packages are replaced and removed.
WRITTEN = {
    "etc/default/kx-updater": (0o644, "LANG=ja_JP.UTF-8\n"),
    "etc/kx_Updater/panel.toml": (0o644, None),  # the example
    "etc/kx_Updater/keys/factory.pem": (0o644, "of the factory\n"),
    "var/lib/kx-panel/versions/hello": (0o600, "1.0.0\n"),
    "var/lib/kx-panel/history/0000000001.jsonl": (0o600, "{}\n"),
    "var/lib/KxUserPackages/hello/installedFile.list": (0o644, "/mnt/user/bin/hello\n"),
}
TIME = 1200  # seconds for one command


def described(path):
    """What a file is, in a word."""
    info = path.lstat()
    owner = f"{stat.filemode(info.st_mode)} {info.st_uid}:{info.st_gid}"
    if path.is_symlink():
        return f"{owner} {os.readlink(path)}"
    if stat.S_ISREG(info.st_mode):
        return f"{owner} {hashlib.sha256(path.read_bytes()).hexdigest()}"
    return owner


class System:
    """A system in a folder, which is the root of whatever runs there."""

    def __init__(self, arch, archive, root):
        self.arch = arch
        self.root = root
        self.is_native = NATIVE.get(os.uname().machine) == arch
        subprocess.run(["tar", "--extract", f"--file={archive}", f"--directory={root}",
                        "--numeric-owner"], check=True)
        linux.mount(root, root, None, linux.MS_BIND)
        linux.mount("proc", root / "proc", "proc")
        (root / "dev").mkdir(exist_ok=True)
        for name in DEVICES:
            device = root / "dev" / name
            device.touch()
            linux.mount(f"/dev/{name}", device, None, linux.MS_BIND)

    def run(self, *words, status=0):
        """Runs a command there, without input; returns what it printed on both outputs. Raises Failed
        when it ends with another status."""
        done = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, env=ENVIRONMENT, timeout=TIME, check=False,
                              preexec_fn=self._enter)  # pylint: disable=subprocess-popen-preexec-fn
        text = done.stdout.decode(errors="replace")
        if done.returncode != status:
            raise Failed(f"{text}'{' '.join(map(str, words))}' ended with {done.returncode}, not with "
                         f"{status}")
        return text

    def _enter(self):
        """Makes the folder the root of a process, as a computer's root: a sandbox can be made there,
        which a chroot does not allow."""
        linux.unshare(linux.CLONE_NEWNS)
        os.chdir(self.root)
        linux.pivot_root(".", ".")
        linux.umount(".", linux.MNT_DETACH)
        os.chdir("/")

    def files(self):
        """Every file there with what it is."""
        found = {}
        for folder, folders, names in os.walk(self.root):
            here = pathlib.Path(folder)
            place = here.relative_to(self.root)
            folders[:] = [name for name in folders if str(place / name) not in NOT_COMPARED]
            for name in (*folders, *names):
                if str(place / name) not in NOT_COMPARED:
                    found[str(place / name)] = described(here / name)
        return found

    def write(self, name, mode, text):
        """Makes a file there, and the folders that it needs."""
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(mode)


def refuse_differences(before, after, what):
    """Raises Failed when two lists of files differ."""
    lines = [f"{mark} {name}: {files[name]}" for name in sorted({*before, *after})
             if before.get(name) != after.get(name)
             for mark, files in (("-", before), ("+", after)) if name in files]
    if lines:
        raise Failed("\n".join([*lines, what]))


def expect(text, expected, what):
    """Raises Failed when a text lacks what is expected of it."""
    if expected not in text:
        raise Failed(f"{text}{what}: '{expected}' is missing")


class Trial:
    """What is tried with the packages in the folders `older` and `newer`."""

    def __init__(self, system, work):
        self.system = system
        self.packages = {}
        for age in ("older", "newer"):
            there = system.root / "root" / age
            shutil.copytree(work / age, there)
            self.packages[age] = {debs_try.field(file, "Package"): file for file in there.iterdir()}
        self.names = sorted(self.packages["newer"])
        self.before = system.files()

    def install(self, age):
        """Installs the packages of an age, which are then installed in their version."""
        files = [f"/root/{age}/{file.name}" for file in self.packages[age].values()]
        self.system.run("dpkg", "--install", *files)
        for name, file in self.packages[age].items():
            told = self.system.run("dpkg-query", "--show",
                                   "--showformat=${db:Status-Status} ${Version}", name)
            expect(told, f"installed {debs_try.field(file, 'Version')}", name)
        told = self.system.run("dpkg", "--verify", *self.names)
        if told:
            raise Failed(f"{told}what is installed is not what the packages bring")

    def leave(self, action, kept):
        """Removes or purges the packages; nothing but what is to be kept is left of them."""
        self.system.run("dpkg", f"--{action}", *self.names)
        refuse_differences({**self.before, **kept}, self.system.files(),
                           f"what is left after --{action} is not what was there before")
        for name in self.names:
            self.system.run("dpkg-query", "--show", "--showformat=${db:Status-Status}", name, status=1)

    def written(self):
        """Writes what an administrator and the programs write; returns the files of it."""
        example = self.system.root / "usr/share/doc/kx-panel/examples/panel.toml"
        before = self.system.files()
        for name, (mode, text) in WRITTEN.items():
            self.system.write(name, mode,
                              example.read_text(encoding="utf-8") if text is None else text)
        (self.system.root / "var/lib/kx-panel").chmod(0o700)
        return {name: what for name, what in self.system.files().items() if name not in before}

    def fresh(self):
        """Installed in a fresh system and purged at once, nothing is left."""
        self.install("newer")
        self.leave("purge", {})
        print("installed, and purged: nothing is left", flush=True)

    def replaced(self):
        """An older version is replaced: what was written is kept, what only the older one brought is
        gone."""
        self.install("older")
        kept = self.written()
        self.install("newer")
        files = self.system.files()
        refuse_differences(kept, {name: files.get(name, "is gone") for name in kept},
                           "replacing the packages has changed what was written")
        for name in self.names:
            if debs_try.GONE.format(package=name) in files:
                raise Failed(f"of the older {name} something is left")
        print("an older version replaced: configuration, keys and what was remembered are kept",
              flush=True)
        return kept

    def removed(self, kept):
        """Removed and purged, what was written is there, and nothing else."""
        self.leave("remove", kept)
        self.leave("purge", kept)
        print(f"removed, and purged: left as they were are {len(kept)} files and folders of "
              "/etc/default, /etc/kx_Updater, /var/lib/kx-panel and /var/lib/KxUserPackages", flush=True)


class Programs:
    """The programs of the packages, run in the system."""

    def __init__(self, system, packages):
        self.system = system
        self.versions = {name: debs_try.field(file, "Version").split("+")[0]
                         for name, file in packages.items()}
        self.processor = PROCESSORS[system.arch]

    def versions_told(self):
        """Each tells the version that its package has."""
        run = self.system.run
        expect(run("kx-package", "--version"), f"kx-package {self.versions['kx-package']}\n", "version")
        expect(run("kx-panel", "version"), f"kx-panel {self.versions['kx-panel']}\n", "version")
        # Without an option it ends before it does anything.
        expect(run("kx_Updater", status=100), f"kx_Updater Ver.{self.versions['kx-updater']}", "usage")
        print("the programs tell the versions of their packages", flush=True)

    def build(self):
        """An example becomes a package with the installed updater in it."""
        run = self.system.run
        run("kx-package", "build", "--processor", self.processor, "--output", "/root/hello.kx-update",
            "/usr/share/doc/kx-package/examples/hello")
        run("unzip", "-q", "/root/hello.kx-update", "kx_Updater", "-d", "/root/made")
        run("cmp", "/root/made/kx_Updater", "/usr/bin/kx_Updater")
        run("kx-package", "check", "/root/hello.kx-update")
        print("kx-package build: an example with the installed updater", flush=True)

    def try_it(self):
        """A package is tried on the sandboxed device that the package brings."""
        if not self.system.is_native:
            print("kx-package try: not tried, the emulator cannot make a sandbox", flush=True)
            return
        told = self.system.run("kx-package", "try", "/root/hello.kx-update")
        expect(told, "/root/hello.kx-update: installed\n", "kx-package try")
        print("kx-package try: installed on the sandboxed device", flush=True)

    def decide(self):
        """Without a description of the panel nothing is let in; with the example and a key a signed
        package is, and is installed."""
        run = self.system.run
        expect(run("kx-panel", "check", "/root/hello.kx-update", status=1), "/etc/kx_Updater/panel.toml",
               "kx-panel without panel.toml")
        if not self.system.is_native:
            print("kx-panel: refuses without panel.toml; the rest was not tried, since the emulator "
                  "knows no limits of system calls", flush=True)
            return
        run("sh", "-c", "cd /root && kx-package key new factory")
        run("kx-package", "sign", "--key", "/root/factory.key.pem", "/root/hello.kx-update")
        example = self.system.root / "usr/share/doc/kx-panel/examples/panel.toml"
        text = example.read_text(encoding="utf-8").replace('"arm"', f'"{self.processor}"')
        self.system.write("etc/kx_Updater/panel.toml", 0o644, text)
        public = (self.system.root / "root/factory.pub.pem").read_text(encoding="utf-8")
        self.system.write("etc/kx_Updater/keys/factory.pem", 0o644, public)
        told = run("kx-panel", "install", "/root/hello.kx-update")
        expect(told, "installed: Hello panel 1.0.0", "kx-panel install")
        expect(run("kx-panel", "status"), "hello", "kx-panel status")
        print("kx-panel: refuses without panel.toml; installs a signed package", flush=True)


def main():
    """Tries the packages. Returns the exit status."""
    arch, archive, folder = sys.argv[1:]
    work = pathlib.Path(folder)
    try:
        system = System(arch, archive, work / "root")
        trial = Trial(system, work)
        trial.fresh()
        trial.removed(trial.replaced())
        # In the end, since it leaves what is of no package's.
        trial.install("newer")
        for name in ("etc/kx_Updater", "var/lib/kx-panel", "var/lib/KxUserPackages"):
            shutil.rmtree(system.root / name)
        programs = Programs(system, trial.packages["newer"])
        programs.versions_told()
        programs.build()
        programs.try_it()
        programs.decide()
    except (Failed, OSError, linux.SandboxError, subprocess.SubprocessError) as error:
        print(error, flush=True)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
