# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Which roads are played on an emulated panel, how they are bounded, and what is kept of them; the
panel is played."""
import contextlib
import io
import pathlib
import tempfile
import time
import unittest
from types import SimpleNamespace
from unittest import mock

from kxpanel import panel as panel_module, road as road_module, roads
from kxpanel.machine import Image
from kxpanel.panel import Bench, Setting
from kxpanel.road import Road
from kxscripts.common import Failed
from kxscripts.processes import Interrupted

MESSAGE = {"at": [0, 0, 10, 10], "shown": True, "text": "Sure?"}


class FakePanel:
    """A panel whose window says one thing, and whose screen shows another or the same."""

    def __init__(self, folder, shown=True, colour=(1, 2, 3)):
        self.folder = folder
        self.setting = Setting()
        self.notes = []
        self.played = []
        self.probe = SimpleNamespace(state={"widgets": {"labelMsg": MESSAGE}}, sync=lambda _: True)
        picture = SimpleNamespace(shows=lambda place, text, language: shown,
                                  read=lambda place, language: "Something else",
                                  background=lambda place: colour,
                                  save=lambda path: path.write_bytes(b"picture"))
        self.screen = SimpleNamespace(look=lambda: picture)
        self.console = SimpleNamespace(run=lambda script, seconds: SimpleNamespace(output="journal"))

    def note(self, text):
        """Keeps a line."""
        self.notes.append(text)

    def play(self, script):
        """Keeps a script."""
        self.played.append(script)


class Played(unittest.TestCase):
    """A road that does as it is told."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.out = pathlib.Path(folder.name)

    def play(self, body, panel=None):
        """Plays a road; returns the report and what was printed."""
        panel = panel or FakePanel(self.out)

        class Bent(Road):
            """The road."""
            bench = SimpleNamespace(saved=lambda setting: None,
                                    panel=lambda folder, setting: contextlib.nullcontext(panel))
            out = self.out
            seconds = 1

            def test_some_road(self):
                """Does as it is told."""
                with self.panel() as given:
                    (self.folder / "root.qcow2").touch()
                    body(self, given)

        report, printed = roads.Report(), io.StringIO()
        with contextlib.redirect_stdout(printed), mock.patch.object(road_module, "SEEN", 0.1):
            Bent("test_some_road").run(report)
        return report, printed.getvalue()

    def test_of_a_road_that_passed_the_storage_is_not_kept(self):
        report, printed = self.play(lambda road, panel: None)
        self.assertTrue(report.wasSuccessful())
        self.assertRegex(printed, r"^some-road \.\.\. ok \(0 s\)\n$")
        self.assertEqual(list((self.out / "some-road").iterdir()), [])

    def test_of_a_road_that_failed_everything_is_kept(self):
        panel = FakePanel(self.out)
        report, printed = self.play(lambda road, panel: road.assertEqual(1, 2), panel)
        self.assertEqual(len(report.failures), 1)
        self.assertIn("FAILED", printed)
        self.assertIn("AssertionError: 1 != 2", (self.out / "some-road/why").read_text("utf-8"))
        self.assertTrue((self.out / "some-road/root.qcow2").exists())
        self.assertTrue((self.out / "failed.png").exists())
        self.assertEqual(panel.notes, ["failed: 1 != 2", "journal"])

    def test_a_road_that_takes_too_long_has_failed(self):
        report, _ = self.play(lambda road, panel: time.sleep(60))
        self.assertIn("the time of the road, 1 seconds, is over", report.failures[0][1])

    def test_a_signal_ends_more_than_the_road(self):
        def interrupt(_road, _panel):
            raise Interrupted(15)
        self.addCleanup(setattr, Road, "interrupted", None)
        self.play(interrupt)
        self.assertEqual(Road.interrupted.number, 15)

    def test_a_message_must_be_on_the_screen_in_its_colour(self):
        def body(road, panel):
            road.sees(panel, "Are\nyou sure?", (1, 2, 3))

        panel = FakePanel(self.out)
        report, _ = self.play(body, panel)
        self.assertTrue(report.wasSuccessful(), report.failures)
        self.assertEqual(panel.played, ["wait message 'Are\\nyou sure?'"])

        report, _ = self.play(body, FakePanel(self.out, colour=(3, 2, 1)))
        self.assertIn("(3, 2, 1) != (1, 2, 3)", report.failures[0][1])

        report, _ = self.play(body, FakePanel(self.out, shown=False))
        self.assertIn("does not show 'Are\nyou sure?' in labelMsg, but 'Something else'",
                      report.failures[0][1])


class Choosing(unittest.TestCase):
    """The command line."""

    def names(self, *words):
        """The roads that a command line plays."""
        options = roads.parse(list(words))
        return [road.name() for road in roads.chosen(options, options.known)]

    def test_all_roads_are_played_the_quick_ones_first(self):
        every = self.names("--cuts", "11")
        self.assertEqual(tuple(every[:4]), roads.QUICK)
        self.assertEqual(len(every), len(set(every)))
        cuts = [name for name in every if name.startswith("power-cut")]
        self.assertEqual(cuts, [f"power-cut-{number}" for number in range(1, 12)])

    def test_some_roads_are_chosen(self):
        self.assertEqual(tuple(self.names("--quick")), roads.QUICK)
        self.assertEqual(self.names("exfat", "described"), ["described", "exfat"])

    def test_a_road_that_is_not_there_is_told(self):
        said = io.StringIO()
        with self.assertRaises(SystemExit), contextlib.redirect_stderr(said):
            roads.parse(["describd"])
        self.assertIn("there is no road describd; see --list", said.getvalue())

    def test_a_seed_draws_the_same_moments_again(self):
        road = next(one for one in roads.parse([]).known if one.name() == "power-cut-2")
        with mock.patch.object(Road, "seed", 5):
            first, again = road.part(), road.part()
        with mock.patch.object(Road, "seed", 6):
            other = road.part()
        self.assertEqual(first, again)
        self.assertNotEqual(first, other)
        self.assertTrue(0 <= first < 1)


class Saving(unittest.TestCase):
    """When a panel is booted anew."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "generic").mkdir()
        self.plugin = self.folder / "generic" / "libkxprobe.so"
        self.plugin.write_bytes(b"one")
        for name in ("kernel", "initrd", "root.img"):
            (self.folder / name).write_bytes(b"x")
        self.image = Image("armhf", self.folder / "kernel", self.folder / "initrd", "quiet",
                           {"root": self.folder / "root.img"}, ["-M", "virt"], self.folder / "key.pem")

    def booted(self, setting=Setting()):
        """Whether a bench boots a panel for a setting."""
        bench = Bench(self.image, self.folder, self.folder / "work")
        with mock.patch.object(Bench, "_save") as save:
            bench.saved(setting)
        return save.called

    def test_it_is_booted_once_for_each_image_probe_and_setting(self):
        self.assertTrue(self.booted())
        self.assertFalse(self.booted())
        self.assertTrue(self.booted(Setting(language="ja")))
        self.plugin.write_bytes(b"two")
        self.assertTrue(self.booted())
        (self.folder / "root.img").write_bytes(b"other")
        self.assertTrue(self.booted())
        self.assertFalse(self.booted())
        with mock.patch.object(panel_module, "board", lambda image, size: ["another board"]):
            self.assertTrue(self.booted())

    def test_one_that_did_not_boot_is_not_taken_for_saved(self):
        bench = Bench(self.image, self.folder, self.folder / "work")
        with mock.patch.object(Bench, "_save", side_effect=Failed("no")), \
                self.assertRaises(Failed):
            bench.saved(Setting())
        self.assertTrue(self.booted())

    def test_a_missing_probe_is_told_with_the_remedy(self):
        self.plugin.unlink()
        with self.assertRaisesRegex(Failed, "libkxprobe.so; scripts/cross armhf builds it"):
            Bench(self.image, self.folder, self.folder / "work")


if __name__ == "__main__":
    unittest.main()
