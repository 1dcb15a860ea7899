# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the kernel shows of a process, seen by the process itself."""

import os
import subprocess
import sys
import unittest

FORGET = """\
import sys
from kxdevice import linux
linux.forget_command_line("kx-device")
for name in ("cmdline", "environ"):
    with open(f"/proc/self/{name}", "rb") as file:
        print(file.read().rstrip(b"\\0"))
"""


class CommandLine(unittest.TestCase):
    """The arguments and the environment of a process are overwritten where the kernel has them."""

    def test_only_the_new_name_is_left(self):
        seen = subprocess.run([sys.executable, "-c", FORGET, "secret"], check=True,
                              env={**os.environ, "SECRET": "caller"}, stdout=subprocess.PIPE)

        self.assertEqual(seen.stdout, b"b'kx-device'\nb''\n")


if __name__ == "__main__":
    unittest.main()
