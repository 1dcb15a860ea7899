# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The described failures: every one leads to the reboot button, and leaves on the storage what is told
of it."""
import time

from emulated import packages as contents
from emulated.messages import DAMAGED, FAILED, NONE, REMOVE, SEVERAL
from emulated.window import RECORDS, Window
from kxpanel.drives import Kind, listing

HALF = 60        # seconds for something to be half done
NOTHING = 20     # seconds in which nothing happens
UNIT = "kx-updater@{}.service"


class Failures(Window):
    """From a plugged drive to the reboot button."""

    def to_reboot_button(self, panel, pulled=False):
        """From a report to the reboot button."""
        self.touch(panel, "OkButton")
        self.says(panel, REMOVE)
        if not pulled:
            panel.play("wait no-button RebootButton")
            panel.pull()
        panel.play("wait button RebootButton\npicture end")

    def assert_no_record(self, panel):
        """Asserts that a panel that is off has no record of the package."""
        self.assertIsNone(self.disk(panel, "root").names(f"{RECORDS}/{contents.NAME}"))

    def refused(self, message, *files):
        """A drive that the window does not take."""
        stick = self.stick(*files)
        with self.panel() as panel:
            panel.plug(stick)
            self.says(panel, message)
            panel.play("state")
            self.to_reboot_button(panel)
            panel.power_off()
            self.assert_no_record(panel)
            self.assertEqual(self.disk(panel, "user").read("/application/version"), b"1.0.0\n")
        left = [name for name in listing(stick) if not name.endswith(".kx-update")]
        self.assertEqual(left, [name for name, _ in files if not name.endswith(".kx-update")])

    def test_no_package(self):
        """A drive without a package."""
        self.refused(NONE, ("README.txt", __file__))

    def test_two_packages(self):
        """A drive with two packages."""
        self.refused(SEVERAL, ("a.kx-update", self.packages.good()),
                     ("b.kx-update", self.packages.failing()))

    def test_damaged(self):
        """A package with another byte in the middle."""
        damaged = self.packages.damaged(self.packages.good())
        self.refused(DAMAGED, (damaged.name, damaged))

    def test_failing_step(self):
        """The last step of a package fails."""
        with self.panel() as panel:
            self.plug_until_asked(panel, self.stick(self.packages.failing()))
            self.touch(panel, "InstallButton")
            panel.play("wait log 'Installation failed in step 3.'\nwait button OkButton\n"
                       "press tab Log\nlog\npicture log\npress tab Install")
            log = panel.probe.state["widgets"]["logArea"]["text"]
            self.assertIn("The board does not answer", log)
            self.assertIn("Script execution returned an error(=768)", log)
            self.says(panel, FAILED)
            self.to_reboot_button(panel)
            panel.power_off()
            self.assert_no_record(panel)
            user = self.disk(panel, "user")
            self.assertEqual(user.read("/application/version"), b"2.0.0\n")
            self.assertEqual(len(user.names("/share/machine")), contents.TEXTS)

    def wait_on_panel(self, panel, test):
        """Waits until a command of the panel succeeds."""
        panel.console.check(f"for i in $(seq {HALF * 10}); do {test} && exit; sleep 0.1; done; exit 1",
                            HALF * 3)

    def test_pulled_while_it_is_unpacked(self):
        """The drive is pulled before the window is there."""
        stick = self.stick(self.packages.large(24), kind=Kind(mebibytes=128))
        with self.panel() as panel:
            panel.plug(stick)
            self.wait_on_panel(panel, "[ $(du -sk /mnt/usb/machine.temp | cut -f1) -gt 3000 ]")
            panel.pull()
            self.says(panel, DAMAGED)
            panel.play("state\npicture damaged")
            self.to_reboot_button(panel, pulled=True)
            panel.power_off()
            self.assert_no_record(panel)
            self.assertEqual(self.disk(panel, "user").read("/application/version"), b"1.0.0\n")

    def test_pulled_while_it_installs(self):
        """The drive is pulled in the middle of a folder's copying."""
        stick = self.stick(self.packages.large())
        with self.panel() as panel:
            self.plug_until_asked(panel, stick)
            self.touch(panel, "InstallButton")
            self.wait_on_panel(panel, f"[ $(ls {contents.FOLDER} | wc -l) -gt 5 ]")
            panel.pull()
            panel.play("wait button OkButton\npress tab Log\nlog\npicture log\npress tab Install")
            self.says(panel, FAILED)
            self.to_reboot_button(panel, pulled=True)
            panel.power_off()
            root, user = self.disk(panel, "root"), self.disk(panel, "user")
            self.assertLess(len(user.names("/share/machine")), contents.TEXTS + 1)
            self.assert_record_is_true(root, user)

    def test_plugged_again(self):
        """A drive that comes back hides the reboot button until it is pulled again."""
        stick = self.stick(self.packages.good())
        with self.panel() as panel:
            self.plug_until_asked(panel, stick)
            self.touch(panel, "CancelButton")
            self.says(panel, REMOVE)
            panel.pull()
            panel.play("wait button RebootButton")
            panel.plug(stick)
            panel.play("wait no-button RebootButton")
            self.says(panel, REMOVE)
            panel.pull()
            panel.play("wait button RebootButton")
            self.restart(panel)
            panel.come_up("1.0.0")
            panel.power_off()
            self.assert_no_record(panel)
        self.assertEqual(listing(stick), [f"{contents.NAME}.kx-update"])


class Drives(Window):
    """Drives of other kinds."""

    def test_exfat(self):
        """A drive with exfat."""
        stick = self.stick(self.packages.good(), kind=Kind("exfat"))
        with self.panel() as panel:
            self.plug_until_asked(panel, stick)
            self.install_until_removal(panel)
            panel.pull()
            panel.play("wait button RebootButton")
            panel.power_off()
            self.assert_installed(panel)

    def test_drive_without_partitions(self):
        """A drive without a table of partitions is no /dev/sda1: nothing happens."""
        stick = self.stick(self.packages.good(), kind=Kind(table=False))
        with self.panel() as panel:
            panel.plug(stick)
            self.wait_for_drive(panel, "sda")
            time.sleep(NOTHING)
            self.assertEqual(panel.console.check("ls /dev/sd*"), "/dev/sda\n")
            self.assertIsNone(panel.probe.state)
            self.assertEqual(panel.application(), "1.0.0")

    def test_second_drive(self):
        """A drive that comes up as sdb1 beside one that stays installs, and the reboot button is not
        shown when it is pulled."""
        first = self.stick(name="first")
        stick = self.stick(self.packages.good())
        with self.panel() as panel:
            panel.console.check(f"systemctl mask --runtime {UNIT.format('sda1')}")
            panel.plug(first, "first")
            self.wait_for_drive(panel, "sda1")
            self.plug_until_asked(panel, stick)
            self.assertIn("/dev/sdb1 /mnt/usb ", panel.console.check("cat /proc/mounts"))
            self.install_until_removal(panel)
            panel.pull()
            time.sleep(NOTHING)
            panel.play("wait no-button RebootButton")
            panel.power_off()
            self.assert_installed(panel)

    def wait_for_drive(self, panel, name):
        """Waits until the panel knows a drive."""
        panel.console.check(f"until [ -b /dev/{name} ]; do sleep 0.2; done", 30)
