# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The panel that decides: kx-panel, asked from the panel's shell, on packages from a drive."""
import json

from emulated import packages as contents
from emulated.window import RECORDS, Window

TIME = 180        # seconds for a command of kx-panel's
ACCEPTED, REFUSED = 0, 1
FILE = f"/mnt/usb/{contents.NAME}.kx-update"
# A panel with kx-panel starts no window for a drive.
NO_WINDOW = "systemctl mask --runtime --quiet kx-updater@sda1.service"
MOUNT = ("set -e; mkdir -p /mnt/usb; until [ -b /dev/sda1 ]; do sleep 0.2; done; "
         "mount -o ro,nosuid,nodev,noexec /dev/sda1 /mnt/usb")


class Guard(Window):
    """Packages on a drive, and what the panel says of them."""

    def plug_package(self, panel, package):
        """Plugs a drive with a package in, and mounts it."""
        panel.console.check(NO_WINDOW)
        panel.plug(self.stick(package))
        panel.console.check(MOUNT)

    @staticmethod
    def unplug(panel):
        """Unmounts the drive and pulls it."""
        panel.console.check("umount /mnt/usb")
        panel.pull()

    def ask(self, panel, action):
        """Asks kx-panel about the package on the drive; returns its exit status and its answer."""
        done = panel.console.run(f"kx-panel {action} --json {FILE} 2>/dev/null", TIME)
        panel.note(f"kx-panel {action}: {done}")
        return done.status, json.loads(done.output)

    def refuses(self, panel, package, reason):
        """Asserts that the panel neither takes a package nor installs it, and why."""
        self.plug_package(panel, package)
        for action in ("check", "install"):
            status, answer = self.ask(panel, action)
            self.assertEqual(status, REFUSED)
            self.assertEqual(self.reasons(answer), [reason])
        self.unplug(panel)

    @staticmethod
    def reasons(answer):
        """The words of the reasons in an answer, sorted."""
        return sorted(reason["id"] for reason in answer["reasons"])

    def assert_untouched(self, panel):
        """Asserts that a panel that is off has what the image had."""
        self.assertIsNone(self.disk(panel, "root").names(f"{RECORDS}/{contents.NAME}"))
        self.assertEqual(self.disk(panel, "user").read("/application/version"), b"1.0.0\n")

    def test_kx_panel_installs_signed(self):
        """A signed package is taken and installed, and no older one behind it."""
        with self.panel() as panel:
            self.plug_package(panel, self.packages.signed())
            self.assertEqual(self.ask(panel, "check")[0], ACCEPTED)
            self.assertEqual(self.ask(panel, "install")[0], ACCEPTED)
            self.unplug(panel)
            self.refuses(panel, self.packages.signed("1.5.0"), "version-older")
            panel.power_off()
            self.assert_installed(panel)

    def test_kx_panel_refuses_tampered(self):
        """A signed package with another byte, and one of a stranger."""
        with self.panel() as panel:
            self.refuses(panel, self.packages.damaged(self.packages.signed()), "signature-changed")
            self.refuses(panel, self.packages.unknown(), "signature-untrusted")
            self.refuses(panel, self.packages.good(), "signature-missing")
            panel.power_off()
            self.assert_untouched(panel)

    def test_kx_panel_refuses_without_room(self):
        """A package that the storage has no room for."""
        with self.panel() as panel:
            self.plug_package(panel, self.packages.signed(mebibytes=12))
            panel.console.check(
                "free=$(df -Pk /mnt/user | awk 'NR == 2 { print $4 }'); "
                "fallocate -l $((free - 8192))k /mnt/user/filler", TIME)
            for action in ("check", "install"):
                status, answer = self.ask(panel, action)
                self.assertEqual(status, REFUSED)
                self.assertEqual(set(self.reasons(answer)), {"room"})
            panel.console.check("rm /mnt/user/filler")
            self.assertEqual(self.ask(panel, "install")[0], ACCEPTED)
            panel.power_off()
            self.assert_installed(panel, ballast=True)

    def test_kx_panel_with_read_only_root(self):
        """The panel's own files are write-protected: they are made writable for the installation, and
        where that does not work nothing is installed."""
        protected = "grep -q ' / ext4 ro,' /proc/mounts"
        with self.panel() as panel:
            self.plug_package(panel, self.packages.signed())
            panel.console.check(protected)
            panel.console.check("mount --bind /bin/true /usr/bin/kxsystem/wprotect_off")
            status, answer = self.ask(panel, "install")
            self.assertEqual(status, REFUSED)
            self.assertEqual(self.reasons(answer), ["state"])
            panel.console.check(f"{protected}; grep -qx 1.0.0 {contents.APPLICATION}")
            panel.console.check("umount /usr/bin/kxsystem/wprotect_off")
            self.assertEqual(self.ask(panel, "install")[0], ACCEPTED)
            self.assertEqual(panel.console.run(protected).status, 1)
            panel.power_off()
            self.assert_installed(panel)
