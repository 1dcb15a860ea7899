# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Runs a command as root in namespaces of its own, in which programs for panels' processors run: their
emulators are registered there and nowhere else. The rest of the computer sees neither a mount nor a
registration, and whatever the command has started ends with it. As root its files are root's; of a
user's command they are the user's and those of his numbers in /etc/subuid.

    python3 -m kxscripts.foreign FOLDER COMMAND...

mounts memory at the folder, which TMPDIR names: what the command leaves there goes with it."""
import os
import pathlib
import signal
import sys
import tempfile

from kxdevice import ids, linux, programs
from kxscripts import common, debian, processes
from kxscripts.common import Failed

PACKAGE = "qemu-user-static"  # not installed: it would register itself for the whole computer
PROCESSORS = {"armhf": "arm", "arm64": "aarch64"}  # as Debian and kxdevice.programs call them
REGISTER = "/proc/sys/fs/binfmt_misc"
MEMORY = "2g"  # how much the command may keep in its folder
NO_REGISTER = ("the kernel keeps one list of emulators for the whole computer, or none (Linux has one "
               "for each namespace from 6.7 on); scripts/setup foreign registers them for all")


def _emulator(processor):
    """The name of the emulator for a processor."""
    return programs.KINDS[PROCESSORS[processor]][1]


def _find_emulators():
    """The folder with the emulators that were unpacked on this computer, or None."""
    for folder in debian.folders("emulators"):
        if all((folder / "bin" / _emulator(name)).exists() for name in PROCESSORS):
            return folder / "bin"
    return None


def emulators():
    """The folder with emulators for the processors of panels, which need no file besides; they are
    fetched where there are none, for root into /var/cache, otherwise into the user's cache. Raises
    Failed."""
    found = _find_emulators()
    if found is not None:
        return found
    folder = debian.folders("emulators")[0 if os.geteuid() == 0 else 1]
    folder.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=folder, prefix="fetch.") as name:
        work = pathlib.Path(name)
        made = work / "bin"
        made.mkdir()
        debian.unpack(debian.download(PACKAGE, work), work,
                      [f"usr/bin/{_emulator(name)}-static" for name in PROCESSORS])
        for processor in PROCESSORS:
            emulator = made / _emulator(processor)
            (work / "usr/bin" / f"{emulator.name}-static").rename(emulator)
            emulator.chmod(0o755)
        made.rename(folder / "bin")
    return folder / "bin"


def run(words, *, cwd, output=None, env=None):
    """Runs a command to its end as processes.run does, in namespaces of its own, with emulators.
    Returns its exit status. Raises Failed."""
    paths = (common.ROOT / "scripts", common.ROOT / "device")
    env = {**(os.environ if env is None else env), "PYTHONPATH": os.pathsep.join(map(str, paths)),
           "KX_EMULATORS": str(emulators())}
    with tempfile.TemporaryDirectory(prefix="kx-foreign.") as folder:
        # Programs that give up their rights look into folders of the command, too.
        os.chmod(folder, 0o755)
        return processes.run(["/usr/bin/python3", "-B", "-m", "kxscripts.foreign", folder,
                              *map(str, words)], cwd=cwd, output=output, env=env)


def own_ids():
    """The ids of the namespaces: for root all that root has here. Raises Failed."""
    if os.geteuid() != 0:
        found = ids.for_caller()
        if found.only_root():
            raise Failed("a user needs numbers of his own for this: install uidmap, and give the user "
                         "65536 numbers in /etc/subuid and /etc/subgid; or run it as root")
        return found
    spans = []
    for kind in ("uid", "gid"):
        lines = pathlib.Path(f"/proc/self/{kind}_map").read_text(encoding="ascii").splitlines()
        spans.append([(int(line.split()[0]), int(line.split()[0]), int(line.split()[2]))
                      for line in lines])
    return ids.Ids(*spans)


def enter(chosen):
    """Goes on, as root, as the first process of new namespaces, which end with it; the caller waits
    for it and ends with its status. Raises Failed where there can be none."""
    ready, entered = os.pipe2(os.O_CLOEXEC)
    wait, go_on = os.pipe2(os.O_CLOEXEC)
    child = os.fork()
    if child != 0:
        os.close(entered)
        os.close(wait)
        if os.read(ready, 1):
            ids.write_map(child, chosen)
            os.write(go_on, b"x")
        _, status = os.waitpid(child, 0)
        os._exit(_shell_status(status))
    linux.prctl(linux.PR_SET_PDEATHSIG, signal.SIGKILL)
    linux.unshare(linux.CLONE_NEWUSER)
    os.write(entered, b"x")
    os.close(go_on)
    if not os.read(wait, 1):
        os._exit(1)
    os.setgid(0)
    os.setuid(0)
    os.setgroups([])
    linux.unshare(linux.CLONE_NEWNS | linux.CLONE_NEWPID | linux.CLONE_NEWIPC | linux.CLONE_NEWUTS)
    inner = os.fork()
    if inner != 0:
        _, status = os.waitpid(inner, 0)
        os._exit(_shell_status(status))
    linux.prctl(linux.PR_SET_PDEATHSIG, signal.SIGKILL)


def _shell_status(status):
    code = os.waitstatus_to_exitcode(status)
    return code if code >= 0 else 128 - code


def mount(folder):
    """Mounts what a command finds in its namespaces, with memory at the folder."""
    linux.mount(None, "/", None, linux.MS_REC | linux.MS_PRIVATE)
    linux.mount("proc", "/proc", "proc", linux.MS_NOSUID | linux.MS_NODEV | linux.MS_NOEXEC)
    linux.mount("memory", folder, "tmpfs", linux.MS_NODEV, f"size={MEMORY},mode=755")


def register(folder):
    """Registers the emulators of a folder in the caller's namespaces; where they run already, by the
    will of the computer's administrator, there is nothing to do. Raises Failed."""
    try:
        linux.mount("binfmt_misc", REGISTER, "binfmt_misc")
    except OSError as error:
        for name in PROCESSORS.values():
            if not programs.starts(programs.Elf(programs.KINDS[name][0], 0x05000000, b"")):
                raise Failed(NO_REGISTER) from error
        return
    for name in PROCESSORS:
        path = folder / _emulator(name)
        with open(f"{REGISTER}/register", "wb", buffering=0) as file:
            file.write(programs.entry(programs.KINDS[PROCESSORS[name]][0], str(path)))


def main():
    """Becomes the command."""
    folder, *words = sys.argv[1:]
    try:
        enter(own_ids())
        mount(folder)
        register(pathlib.Path(os.environ.pop("KX_EMULATORS")))
        os.environ["TMPDIR"] = folder
        os.environ["PATH"] = "/usr/sbin:/usr/bin:/sbin:/bin"
        signal.pthread_sigmask(signal.SIG_SETMASK, [])
        os.execvp(words[0], words)
    except (Failed, OSError, linux.SandboxError) as error:
        print(f"kxscripts.foreign: {error}", file=sys.stderr, flush=True)
        return 1


if __name__ == "__main__":
    sys.exit(main())
