# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What is on the storage of an emulated panel that is off, read by this computer's tools: what the
panel itself would say of it is not asked."""
import os
import pathlib
import stat
import subprocess

from kxpanel.drives import TIME, run
from kxscripts.common import Failed

REPAIRED = 1  # of e2fsck: it is in order now


class Disk:
    """A file system of a panel. What is looked at is a copy in `folder`, whose journal was played back
    as the panel's next start would; `repairs` is what e2fsck said to that."""

    def __init__(self, image, folder):
        """Takes a file in the format qcow2. Raises Failed when the file system is damaged beyond what
        its journal mends."""
        self._copy = pathlib.Path(folder) / f"{pathlib.Path(image).stem}.raw"
        run(["qemu-img", "convert", "-O", "raw", image, self._copy])
        played = subprocess.run(["e2fsck", "-p", self._copy], capture_output=True, text=True,
                                check=False, timeout=TIME)
        self.repairs = played.stdout
        if played.returncode not in (0, REPAIRED):
            raise Failed(f"{image}: e2fsck -p ended with {played.returncode}: {played.stdout}")
        looked = subprocess.run(["e2fsck", "-f", "-n", self._copy], capture_output=True, text=True,
                                check=False, timeout=TIME)
        if looked.returncode != 0:
            raise Failed(f"{image}: e2fsck -n ended with {looked.returncode}: {looked.stdout}")

    def _ask(self, request):
        """What debugfs answers, in its two kinds of output."""
        done = subprocess.run(["debugfs", "-R", request, self._copy], capture_output=True,
                              check=False, timeout=TIME, env={**os.environ, "DEBUGFS_PAGER": "cat"})
        # The first line of its errors is its name and version.
        problem = b"\n".join(done.stderr.splitlines()[1:]).decode(errors="replace")
        return done.stdout, problem

    def read(self, path):
        """The content of a file as bytes; None when there is no such file."""
        content, problem = self._ask(f'cat "{path}"')
        return None if problem else content

    def exists(self, path):
        """Tells whether there is anything of that name."""
        said, problem = self._ask(f'stat "{path}"')
        return bool(said) and not problem

    def names(self, path):
        """The names in a folder, sorted; None when there is no such folder."""
        said, problem = self._ask(f'ls -p "{path}"')
        if problem or not said:
            return None
        found = (line.split("/") for line in said.decode(errors="replace").splitlines() if line)
        return sorted(words[5] for words in found if len(words) > 5 and
                      words[5] not in ("", ".", "..", "lost+found"))

    def mode(self, path):
        """The mode of a file as chmod takes it, in octal digits; None when there is none."""
        folder, _, name = path.rpartition("/")
        said, _ = self._ask(f'ls -p "{folder or "/"}"')
        for line in said.decode(errors="replace").splitlines():
            words = line.split("/")
            if len(words) > 5 and words[5] == name:
                return f"{stat.S_IMODE(int(words[2], 8)):o}"
        return None

    def close(self):
        """Removes the copy."""
        self._copy.unlink(missing_ok=True)
