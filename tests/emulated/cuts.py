# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The power is cut at a drawn moment of an installation. The panel must start, say the truth about what
is installed, and take the package again."""
import random
import time

from emulated.window import Window


class Cuts(Window):
    """Each cut is a road of its own: a panel that has booted, an installation, the end of power."""

    seconds = 600

    length = None  # seconds that the installation takes here, once it was measured

    def part(self):
        """After which part of the installation the power is cut, from 0 to 1."""
        number = int(self.name().rpartition("-")[2])
        return random.Random(f"{self.seed} {number}").random()

    def begin(self, panel, stick):
        """Begins the installation; returns when that was."""
        self.plug_until_asked(panel, stick)
        self.touch(panel, "InstallButton")
        return time.monotonic()

    def measure(self, stick):
        """Measures an installation that nobody disturbs, once in a run."""
        if Cuts.length is None:
            with self.panel() as panel:
                begin = self.begin(panel, stick)
                panel.play("wait button OkButton")
                Cuts.length = time.monotonic() - begin

    def cut(self):
        """The road of one cut."""
        package = self.packages.large(4)
        self.measure(self.stick(package, name="measured"))
        stick = self.stick(package)
        with self.panel() as panel:
            begin = self.begin(panel, stick)
            moment = self.part() * Cuts.length
            panel.note(f"the power is cut {moment:.2f} seconds after Install was touched, of "
                       f"{Cuts.length:.2f} (--seed {self.seed})")
            time.sleep(max(0.0, moment - (time.monotonic() - begin)))
            reached = self.reached(panel)
            panel.cut_power()
            panel.note(f"what was reached: {reached}")
            self.assert_record_is_true(self.disk(panel, "root"), self.disk(panel, "user"))
            # The drive was pulled before anybody switched the panel on again.
            panel.boot()
            self.plug_until_asked(panel, stick)
            self.install_until_removal(panel)
            panel.power_off()
            self.assert_installed(panel, ballast=True)

    @staticmethod
    def reached(panel):
        """The last line of the log."""
        lines = panel.probe.state["widgets"]["logArea"]["text"].split("\n")
        return next((line for line in reversed(lines) if line.strip()), "nothing")


def add_roads(count):
    """Makes a road for each cut, in the place of those that were made before."""
    for name in [name for name in vars(Cuts) if name.startswith("test_")]:
        delattr(Cuts, name)
    for number in range(1, count + 1):
        def road(self):
            """The power is cut at a drawn moment of an installation."""
            self.cut()
        setattr(Cuts, f"test_power_cut_{number}", road)
