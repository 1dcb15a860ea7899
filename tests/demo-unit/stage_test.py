# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The demonstration's folder, its panel and its window."""

import os
import pathlib
import socket
import unittest

from kxscripts import demo_options, demo_stage
from kxscripts.common import Failed, ROOT
from kxscripts.demo_stage import Stage, is_socket, last_lines, lines_of, text_of
from scene import Process, Processes, Scene


class Files(Scene):
    """What is read."""

    def test_texts_survive_as_they_are(self):
        pathlib.Path("a").write_bytes(b"x\xff\r\n")
        self.assertEqual(text_of("a").encode(errors="surrogateescape"), b"x\xff\r\n")

    def test_lines(self):
        for text, lines in (("", [""]), ("a\n", ["a"]), ("a\n\nb", ["a", "", "b"]),
                            ("a\n\n", ["a", ""]), ("a\rb\n", ["a\rb"])):
            pathlib.Path("a").write_text(text, encoding="utf-8", newline="")
            self.assertEqual(lines_of("a"), lines)
        self.assertEqual(lines_of("none"), [])

    def test_the_last_lines(self):
        pathlib.Path("a").write_text("a\nb\nc\n", encoding="utf-8")
        self.assertEqual(last_lines("a", 2), "b\nc")
        self.assertEqual(last_lines("a", 9), "a\nb\nc")
        self.assertEqual(last_lines("none", 2), "")

    def test_sockets(self):
        with socket.socket(socket.AF_UNIX) as made:
            made.bind("socket")
        os.symlink("socket", "link")
        pathlib.Path("file").touch()
        self.assertTrue(is_socket("socket"))
        self.assertTrue(is_socket("socket", follow=False))
        self.assertTrue(is_socket("link"))
        self.assertFalse(is_socket("link", follow=False))
        self.assertFalse(is_socket("file"))
        self.assertFalse(is_socket("none"))


class Folders(Scene):
    """Whose folder is made anew, and what is taken away at the end."""

    def test_it_is_made_with_a_drive_and_a_mark(self):
        stage = self.stage(claimed=False)
        stage.claim_folder()
        self.assertEqual(sorted(os.listdir("demo")), [".kx-demo", "drive"])
        self.assertEqual(stage.package, self.root / "demo/drive/Hello.kx-update")
        self.assertEqual(stage.processes.calls, [])

    def test_folders_above_it_are_made(self):
        self.stage("--dir", str(self.root / "a/b/c")).clear()
        self.assertTrue(os.path.isdir("a/b/c/drive"))

    def test_an_earlier_one_goes_and_its_panel_is_erased_by_the_device(self):
        stage = self.stage()
        pathlib.Path("demo/old").touch()
        os.mkdir("demo/state")
        again = self.stage(claimed=False)
        there = []
        again.processes.does = lambda *_: there.append(os.path.exists("demo/old"))
        again.claim_folder()
        self.assertEqual(again.processes.calls, [
            ("run", ["device/run", "--state", str(stage.state), "--erase"], {})])
        self.assertEqual(there, [True])
        self.assertEqual(sorted(os.listdir("demo")), [".kx-demo", "drive"])

    def test_a_panel_that_cannot_be_erased_stays(self):
        self.stage()
        os.mkdir("demo/state")
        stage = self.stage(claimed=False)
        stage.processes.statuses["device/run"] = 1
        with self.assertRaisesRegex(Failed, "^device/run has failed$"):
            stage.claim_folder()
        self.assertTrue(os.path.isdir("demo/state"))

    def test_an_empty_folder_and_a_link_to_a_marked_one_are_taken(self):
        os.mkdir("demo")
        self.stage()
        os.rename("demo", "other")
        os.symlink("other", "demo")
        stage = self.stage(claimed=False)
        stage.folder = stage.state.parent  # as typed
        stage.options = stage.options._replace(folder=self.root / "demo")
        linked = Stage(stage.options, self.root)
        linked.processes = Processes()
        linked.claim_folder()
        self.assertFalse(os.path.islink("demo"))
        self.assertTrue(os.path.exists("other/.kx-demo"))

    def test_something_else_is_left_alone(self):
        pathlib.Path("demo").mkdir()
        pathlib.Path("demo/mine").touch()
        for make in (lambda: None, lambda: (os.unlink("demo/mine"), os.rmdir("demo"),
                                            pathlib.Path("demo").touch()),
                     lambda: (os.unlink("demo"), os.symlink("none", "demo"))):
            make()
            stage = self.stage(claimed=False)
            stage.folder = self.root / "demo"
            with self.assertRaises(Failed) as caught:
                stage.claim_folder()
            self.assertEqual(str(caught.exception), f"{self.root}/demo holds something else; "
                                                    "name a new folder behind --dir")
            self.assertTrue(os.path.lexists("demo"))

    def test_its_own_place_in_the_build_is_always_its_own(self):
        os.makedirs("build/demo")
        pathlib.Path("build/demo/old").touch()
        made = Stage(demo_options.parse([]), self.root)
        made.processes = Processes()
        made.claim_folder()
        self.assertEqual(sorted(os.listdir("build/demo")), [".kx-demo", "drive"])

    def test_at_the_end_all_processes_end_and_what_they_needed_goes(self):
        stage = self.stage()
        os.mkdir("demo/x11")
        for name in ("x11/X1", "cookie", "screen", "trace"):
            pathlib.Path("demo", name).touch()
        stage.clear()
        stage.clear()
        self.assertEqual(stage.processes.stopped, ["all", "all"])
        self.assertEqual(sorted(os.listdir("demo")), [".kx-demo", "drive", "trace"])

    def test_of_a_folder_that_was_not_taken_nothing_goes(self):
        stage = self.stage(claimed=False)
        os.mkdir("demo")
        pathlib.Path("demo/cookie").touch()
        stage.clear()
        self.assertEqual(stage.processes.stopped, ["all"])
        self.assertTrue(os.path.exists("demo/cookie"))

    def test_a_short_path_leads_into_the_folder_whatever_its_name_is(self):
        stage = self.stage("--dir", str(self.root / ("long" * 40)))
        path = stage.short("x11/X1")
        self.assertLess(len(path), 60)
        self.assertTrue(path.endswith("/x11/X1"))
        self.assertEqual(os.path.realpath(stage.short("")), str(stage.folder))
        self.assertEqual(stage.short("x11/X1"), path)


class Words(Scene):
    """What the user reads and types."""

    def test_paths_as_they_read_where_the_command_was_typed(self):
        for caller, shown in ((ROOT, "build/demo/x"), (self.root, str(ROOT / "build/demo/x"))):
            self.assertEqual(Stage(demo_options.parse([]), caller).shown("build/demo/x"), shown)

    def test_commands_name_the_panel_and_are_quoted(self):
        options = demo_options.parse(["--dir", "/a b"])
        self.assertEqual(Stage(options, ROOT).command("device/drive", "pull"),
                         "device/drive pull --state '/a b/state'")
        self.assertEqual(Stage(options, self.root).command("device/run"),
                         f"{ROOT}/device/run --state '/a b/state'")


class Panels(Scene):
    """The window, and what has happened."""

    def test_a_command_that_must_succeed(self):
        stage = self.stage()
        stage.need("device/run", "x", together=True)
        self.assertEqual(stage.processes.calls, [("run", ["device/run", "x"], {"together": True})])
        for status in (1, -15):
            stage.processes.statuses["unzip"] = status
            with self.assertRaisesRegex(Failed, "^unzip has failed$"):
                stage.need("unzip", "-l")

    def test_the_window_is_on_a_panel_that_is_kept_traced_and_told(self):
        stage = self.stage("--lang", "ja")
        self.assertIsNone(stage.window)
        demo = str(self.root / "demo")
        stage.open_window("--serve", "x")
        self.assertEqual(stage.processes.calls, [("start", [
            "device/window", "--state", f"{demo}/state", "--usb", f"{demo}/drive", "--out",
            f"{demo}/panel", "--lang", "ja", "--seconds", "1000000", "--trace", f"{demo}/trace",
            "--trace-shell", f"--summary={demo}/summary", "--serve", "x"],
            {"log": pathlib.Path(demo, "window.log")})])
        self.assertIsInstance(stage.window, Process)
        self.assertEqual(text_of("demo/trace"), "")

    def test_a_window_that_failed_has_complained(self):
        stage = self.stage()
        pathlib.Path("demo/window.log").write_text("no\nscreen\n", encoding="utf-8")
        with self.told():
            failure = stage.window_failed("it did not start")
        self.assertIsInstance(failure, Failed)
        self.assertEqual(str(failure), "it did not start")
        self.assertEqual((self.out, self.err), ("", "no\nscreen\n"))

    def test_something_is_waited_for_until_the_process_ends(self):
        self.patch(demo_stage, "TICK", 0.001)
        looks = iter((False, False, True))
        self.assertTrue(Stage.wait_until(lambda: next(looks), Process(polls=5)))
        self.assertIs(Stage.wait_until(lambda: False, Process(polls=2)), False)
        self.assertTrue(Stage.wait_until(lambda: True, Process()))

    def test_between_two_looks_the_machine_rests(self):
        naps = []
        self.patch(demo_stage.time, "sleep", naps.append)
        Stage.wait_until(lambda: False, Process(polls=3))
        self.assertEqual(naps, [0.1] * 3)

    def test_the_reboot(self):
        stage = self.stage()
        self.assertFalse(stage.has_rebooted())
        for text, has in (("shell\t/sbin/reboot\n", False), ("tool\treboot\n", True),
                          ("tool\tsync\ntool\treboot\t\nmore\n", True), ("x tool\treboot", False)):
            stage.trace.write_text(text, encoding="utf-8")
            self.assertEqual(stage.has_rebooted(), has, text)


if __name__ == "__main__":
    unittest.main()
