# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Unit tests that need the panel's own kernel: what the process of kx-panel that reads a package may do
is bounded by limits of system calls, which an emulator of single programs does not have."""
from kxpanel.drives import Kind, run
from kxpanel.panel import FOLDER
from kxpanel.road import Road

PROGRAM = "kx_panel_confined_test"
DRIVE = "/run/kx-drive"
TIME = 500  # seconds
# The tests look whether they are on a device that nobody needs any more, which this panel is.
PREPARE = f"""
set -e
systemctl mask --runtime --quiet kx-updater@sda1.service
mount -o remount,rw /
touch /.kx-device
mkdir -p {DRIVE}
"""
FETCH = f"""
set -e
until [ -b /dev/sda1 ]; do sleep 0.2; done
mount -o ro /dev/sda1 {DRIVE}
cp {DRIVE}/{PROGRAM} {FOLDER}/
chmod 755 {FOLDER}/{PROGRAM}
"""


class Confined(Road):
    """Programs of the unit tests, on a panel."""

    seconds = 600

    def test_confined_process(self):
        """The unit tests of the process without rights."""
        program = self.folder / PROGRAM
        run([f"{self.triple}-strip", "-o", program, self.unit_tests(PROGRAM)], "cross")
        stick = self.stick(program, kind=Kind(mebibytes=128))
        with self.panel() as panel:
            panel.console.check(PREPARE)
            panel.plug(stick)
            panel.console.check(FETCH)
            done = panel.console.run(f"cd /tmp && {FOLDER}/{PROGRAM}", TIME)
            (self.folder / "tests.log").write_text(done.output, encoding="utf-8")
            self.assertEqual(done.status, 0, done.output[-4000:])
            self.assertRegex(done.output, r"\[  PASSED  \] [1-9]\d+ tests?\.")
            self.assertNotIn("[  SKIPPED ]", done.output)
