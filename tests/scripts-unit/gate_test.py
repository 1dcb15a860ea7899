# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The parts of the gate, and how it tells what they left."""
import os
import signal
import unittest
from unittest import mock

from kxscripts import checks, common, gate, parts, processes, results
from kxscripts.parts import Done, Part
from kxscripts.results import Case
from played import PROJECT, InProject

PLACES = (gate.ROOT, gate.LOGS)


class InProject(InProject):
    """A folder that stands for the project; the tools are played."""

    def setUp(self):
        super().setUp()
        self.patch(gate, "ROOT", self.root)
        self.logs = self.patch(gate, "LOGS", self.root / "build/test")
        self.logs.mkdir(parents=True)


class Work(InProject):
    """What the parts do."""

    def test_the_environment_of_tests_is_the_gate_s_without_what_chooses_among_them(self):
        foreign = {f"{name}_X": "1" for name in ("GTEST", "QTEST", "CTEST", "BATS", "KX")}
        kept = {"PATH": "/bin", "GTESTX": "1", "MY_KX_X": "1", "QT_QPA": "1", "A": "1"}
        with mock.patch.dict(os.environ, foreign | kept, clear=True):
            self.assertEqual(gate.environment(KX_UPDATER=self.root, A=2),
                             kept | {"KX_UPDATER": str(self.root), "A": "2"})

    def test_logs_are_kept_in_the_build_folder(self):
        self.assertEqual(PLACES, (PROJECT, PROJECT / "build/test"))

    def test_names_of_files_are_made_of_letters(self):
        self.assertEqual(gate.kept("unit tests (asan)", ".log"), self.logs / "unit-tests-asan.log")
        self.assertEqual(gate.kept("(a)", ".xml"), self.logs / "a.xml")

    def test_the_output_of_a_command_is_kept_and_returned(self):
        commands = self.played(statuses={"tool": 3}, printed={"tool": "words\n"})
        self.assertEqual(gate.run_logged("a part", ["tool", "x"], KX_A=1), (3, "words\n"))
        self.assertEqual(commands.seen, [["tool", "x"]])
        self.assertEqual(commands.folders, [self.root])
        self.assertEqual(commands.added, [{"KX_A": "1"}])
        self.assertEqual((self.logs / "a-part.log").read_text(encoding="utf-8"), "words\n")

        self.patch(processes, "run", lambda *_, output, **__: output.write(b"\xff") and 0)
        self.assertEqual(gate.run_logged("x", ["tool"]), (0, "\N{REPLACEMENT CHARACTER}"))

    def test_a_build_is_one_case(self):
        builds = self.patch(common, "try_build", mock.Mock(return_value=None))
        self.assertEqual(gate.build("dev", "a", "b")(), [Case("build dev", "passed")])
        builds.assert_called_once_with("dev", "a", "b")

        builds.return_value = "the compiler's words"
        self.expect_failed("the compiler's words", gate.build("dev"))

    def test_unit_tests_are_counted_from_the_reports_of_this_run(self):
        old = self.write("build/asan/reports/old.xml")
        commands = self.played(statuses={"ctest": 8}, printed={"ctest": "words"})
        counted = self.patch(results, "of_ctest", mock.Mock(return_value=["cases"]))
        self.patch(os, "cpu_count", lambda: 7)

        self.assertEqual(gate.unit_tests("units", "asan")(), ["cases"])

        report, folder = self.logs / "units.xml", self.root / "build/asan/reports"
        self.assertEqual(commands.lines, [
            f"ctest --preset asan -j 8 --output-on-failure -V --output-junit {report}"])
        self.assertEqual(commands.added, [
            {"KX_SECOND": str(self.root / "build/release/kx-package")}])
        counted.assert_called_once_with(report, folder, 8, "words")
        self.assertFalse(old.exists())

    def test_device_tests_are_those_of_the_panel_or_of_the_updater(self):
        panel = ("demo.bats", "demo_x.bats", "drive.bats", "sandbox.bats", "sandbox_y.bats")
        updater = ("drives.bats", "install.bats", "my_demo.bats")
        for name in (*panel, *updater, "demo.bash"):
            self.write(f"tests/device/{name}")
        counted = self.patch(results, "of_program", mock.Mock(return_value=["cases"]))
        for about_panel, names in ((True, panel), (False, updater)):
            for status in (0, 1):
                commands = self.played(statuses={"bats": status}, printed={"bats": "words"})
                self.assertEqual(gate.device_tests("on it", "asan", about_panel)(), ["cases"])
                report = self.logs / "on-it.xml"
                self.assertEqual(commands.seen, [[
                    "bats", "--timing", "--formatter", f"{self.root}/tests/support/bats-report",
                    *(f"{self.root}/tests/device/{name}" for name in names)]])
                self.assertEqual(commands.added, [{
                    "KX_BATS_REPORT": str(report),
                    "KX_UPDATER": f"{self.root}/build/asan/kx_Updater",
                    "KX_PANEL": f"{self.root}/build/asan/kx-panel"}])
                counted.assert_called_with("bats", report, status == 0, "words")

    def test_trials_and_installations_are_made_with_what_is_shipped_and_only_there(self):
        for name in ("install.bats", "my_try.bats", "panel_check.bats", "panel_guard.bats",
                     "panel_install.bats", "sandbox.bats", "try.bats", "try_boot.bats"):
            self.write(f"tests/device/{name}")
        self.patch(results, "of_program", mock.Mock(return_value=[]))
        plan = {part.name: part for part in gate.schedule()}
        for part, names in (
                ("device tests (release)", ["install", "my_try", "panel_check", "panel_guard",
                                            "panel_install", "try", "try_boot"]),
                ("device tests (sanitizers)", ["install", "my_try", "panel_check"])):
            commands = self.played()
            plan[part].work()
            self.assertEqual(commands.seen[0][4:],
                             [f"{self.root}/tests/device/{name}.bats" for name in names])

    def test_a_folder_without_device_tests_is_an_error(self):
        self.write("tests/device/drive.bats")
        self.expect_failed("no bats file in tests/device is about this",
                           gate.device_tests("x", "asan", False))

    def test_what_a_script_does_is_one_case_and_its_end_is_shown(self):
        commands = self.played()
        self.assertEqual(gate.script("a part", "scripts/x", "y")(), [Case("a part", "passed")])
        self.assertTrue((self.logs / "a-part.log").exists())
        self.assertEqual(commands.lines, ["nice scripts/x y"])

        self.played(statuses={"nice": 1},
                    printed={"nice": "".join(f"{number}\n" for number in range(100))})
        self.expect_failed("\n".join(map(str, range(40, 100))), gate.script("a part", "scripts/x"))

    def test_of_parts_one_after_the_other_each_waits_for_the_one_before(self):
        plan = list(gate.one_after_the_other("begin", ("a", "scripts/a"), ("b", "scripts/b", "c")))
        self.assertEqual([(part.name, part.needs, part.after) for part in plan],
                         [("a", (), ("begin",)), ("b", (), ("a",))])
        commands = self.played()
        plan[1].work()
        self.assertEqual(commands.lines, ["nice scripts/b c"])


class Schedule(InProject):
    """The plan: what is in it, and what each part cannot be done without."""

    def setUp(self):
        super().setUp()
        self.plan = {part.name: part for part in gate.schedule()}

    def test_every_check_is_made_by_a_part_of_its_name(self):
        commands = self.played()
        for name in checks.CHECKS:
            self.plan[f"check {name}"].work()
            self.assertEqual(commands.seen[-1][-2:], ["scripts/check", name])

    def test_packages_are_made(self):
        commands = self.played()
        self.plan["packages"].work()
        self.assertEqual(commands.lines, ["nice scripts/packages"])

    def test_tests_need_the_builds_that_they_run(self):
        self.write("tests/device/install.bats")
        self.write("tests/device/sandbox.bats")
        for name, updater, needs in (
                ("device tests (panel)", "release", {"build release"}),
                ("device tests (release)", "release", {"build release"}),
                ("device tests (sanitizers)", "asan", {"build release", "build asan"})):
            commands = self.played()
            part = self.plan[name]
            part.work()
            self.assertLessEqual(needs, set(part.needs))
            self.assertEqual(commands.added[0]["KX_UPDATER"],
                             f"{self.root}/build/{updater}/kx_Updater")
            self.assertEqual(commands.added[0]["KX_PANEL"],
                             f"{self.root}/build/{updater}/kx-panel")
            self.assertEqual([os.path.basename(word) for word in commands.seen[0][4:]],
                             ["sandbox.bats" if "panel" in name else "install.bats"])
        self.assertLessEqual({"build release", "build asan"},
                             set(self.plan["unit tests (asan)"].needs))
        commands = self.played()
        self.plan["unit tests (asan)"].work()
        self.assertEqual(commands.seen[0][:3], ["ctest", "--preset", "asan"])

    def test_builds_make_what_the_tests_start(self):
        builds = self.patch(common, "try_build", mock.Mock(return_value=None))
        self.plan["build release"].work()
        self.assertEqual(builds.call_args.args[0], "release")
        self.assertLessEqual({"all", "kx_probe"}, set(builds.call_args.args[1:]))
        self.plan["build asan"].work()
        self.assertEqual(builds.call_args.args[0], "asan")

    def test_it_can_be_done_and_ends(self):
        plan = [Part(part.name, lambda: [Case("x", "passed")], part.needs, part.after)
                for part in gate.schedule()]
        done = parts.run(plan, lambda part: None, lambda one: None)
        self.assertEqual(len(done), len(self.plan))
        self.assertEqual([one.failed for one in done], [0] * len(plan))


class Telling(InProject):
    """What is told."""

    def done(self, name, *cases, seconds=1.0):
        """What a part of this name has left."""
        return Done(Part(name, None), list(cases), seconds)

    def test_times_for_people(self):
        self.assertEqual([gate.duration(seconds) for seconds in
                          (0, 1.25, 59.94, 60, 61.9, 119.9, 3600)],
                         ["0.0 s", "1.2 s", "59.9 s", "1 min 0 s", "1 min 1 s", "1 min 59 s",
                          "60 min 0 s"])

    def test_a_part_is_told_when_it_begins_and_when_it_ends(self):
        self.tell(gate.tell_begun, Part("a", None))
        self.assertEqual(self.out, "a ...\n")

        text = "".join(f"{number}\n" for number in range(100))
        self.tell(gate.tell_ended, self.done("a", Case("x", "passed", 0.0, "unseen"),
                                             Case("y", "failed", 0.0, text),
                                             Case("z", "skipped", 0.0, "unseen")))
        self.assertEqual(self.out, "a: 1 passed, 2 failed, 1.0 s\n-- a: y\n" + "".join(
            f"   {number}\n" for number in range(40, 100)))

    def test_what_is_told_is_seen_at_once(self):
        for tell in (lambda: gate.tell_begun(Part("a", None)),
                     lambda: gate.tell_ended(self.done("a", Case("x", "passed"))),
                     lambda: gate.tell_all([], 1)):
            with mock.patch("sys.stdout", mock.Mock()) as stream:
                tell()
            self.assertEqual(stream.mock_calls[-1], mock.call.flush())

    def test_of_many_failed_cases_the_first_are_shown(self):
        cases = [Case(f"c{number}", "failed", 0.0, "why") for number in range(21)]
        self.tell(gate.tell_ended, self.done("a", *cases[:20]))
        self.assertEqual(self.out.splitlines()[-2:], ["-- a: c19", "   why"])
        self.tell(gate.tell_ended, self.done("a", *cases))
        self.assertEqual(self.out.splitlines()[-2:],
                         ["   why", "-- a: 1 more; all output: build/test/"])
        self.assertNotIn("c20", self.out)

    def test_the_slowest_cases_are_told_with_their_parts(self):
        cases = [Case(f"c{number}", "passed", number) for number in range(12)]
        self.assertEqual(gate.slowest([self.done("a", *cases[:6]), self.done("b", *cases[6:])]), [
            f"{number:8.1f} s  {'a' if number < 6 else 'b'}: c{number}"
            for number in range(11, 1, -1)])
        self.assertEqual(gate.slowest([self.done("a", cases[0], cases[1])]),
                         ["     1.0 s  a: c1"])

    def test_skipped_cases_are_told_together_by_part_and_reason(self):
        cases = [Case(name, "skipped", 0.0, why) for name, why in
                 (("x", "no font"), ("y", "no net"), ("z", "no font"), ("w", "no font"))]
        self.assertEqual(list(gate.skipped([
            self.done("a", Case("p", "passed"), Case("f", "failed"), *cases),
            self.done("b", cases[0])])), [
                "  a: x and 2 more: no font", "  a: y: no net", "  b: x: no font"])

    def tell_all(self, *done, seconds=75):
        """Tells all; leaves the exit status and the lines."""
        self.status = self.tell(gate.tell_all, list(done), seconds)
        return self.out.splitlines()

    def test_all_is_summed_up(self):
        self.assertEqual(self.tell_all(self.done("a", Case("x", "passed", 2.0)),
                                       self.done("b", Case("y", "passed"), seconds=61)), [
            "", "slowest tests:", "     2.0 s  a: x", "", "parts:",
            "       1.0 s  a: 1 passed, 0 failed", "   1 min 1 s  b: 1 passed, 0 failed",
            "  1 min 15 s  in all", "", "2 passed, 0 failed"])
        self.assertEqual(self.status, 0)

    def test_what_failed_and_what_was_skipped_stands_before_the_sum(self):
        self.assertEqual(self.tell_all(
            self.done("a", Case("x", "failed"), Case("z", "passed")),
            self.done("b", Case("y", "skipped", 0.0, "why"), Case("v", "failed")))[-9:], [
                "", "failed; all output is in build/test/:", "  a: x", "  b: v", "",
                "skipped, and so not known to work, which counts as failed:", "  b: y: why", "",
                "1 passed, 3 failed"])
        self.assertEqual(self.status, 1)

    def test_only_what_passed_whole_and_not_empty_ends_well(self):
        good = self.done("a", Case("x", "passed"))
        for other, status in ((good, 0), (self.done("b", Case("y", "failed"), good.cases[0]), 1),
                              (self.done("b", Case("y", "failed")), 1),
                              (self.done("b", Case("y", "skipped")), 1), (self.done("b"), 1)):
            self.tell_all(good, other)
            self.assertEqual(self.status, status)
        self.tell_all()
        self.assertEqual(self.status, 1)


class Main(InProject):
    """The program."""

    def setUp(self):
        super().setUp()
        self.setups = self.patch(common, "setup", mock.Mock())
        self.patch(gate, "schedule", lambda: [Part("a", lambda: [Case("x", "passed")])])

    def test_it_installs_forgets_the_earlier_run_and_tells_the_sum(self):
        old = self.write("build/test/old/x.xml")
        self.assertEqual(self.main(gate), 0)
        self.setups.assert_called_once_with("build", "tools", "demo", "test", "vm", "display",
                                            "web", "vnc", "packages")
        self.assertFalse(old.parent.exists())
        self.assertTrue(self.logs.is_dir())
        self.assertEqual(self.out.splitlines()[:2], ["a ...", "a: 1 passed, 0 failed, 0.0 s"])
        self.assertEqual(self.out.splitlines()[-1], "1 passed, 0 failed")
        self.assertIn(" 0.0 s  in all\n", self.out)

    def test_it_is_the_first_run_of_a_project(self):
        self.logs.rmdir()
        self.logs.parent.rmdir()
        self.assertEqual(self.main(gate), 0)
        self.assertTrue(self.logs.is_dir())

    def test_a_failed_part_is_the_end_of_the_gate(self):
        self.patch(gate, "schedule", lambda: [Part("a", lambda: [Case("x", "failed")])])
        self.assertEqual(self.main(gate), 1)
        self.assertEqual(self.out.splitlines()[-1], "0 passed, 1 failed")

    def test_what_cannot_be_installed_ends_it(self):
        self.setups.side_effect = common.Failed("no")
        self.assertEqual(self.main(gate), 1)
        self.assertEqual((self.out, self.err), ("", "scripts/test: no\n"))

    def test_a_signal_ends_it_with_what_it_has_started(self):
        stopped = self.patch(processes, "stop_all", mock.Mock())
        self.setups.side_effect = lambda *_: os.kill(os.getpid(), signal.SIGTERM)
        self.assertEqual(self.main(gate), 143)
        self.assertEqual((self.out, self.err), (
            "", "scripts/test: interrupted by SIGTERM: nothing is known of what was not told\n"))
        stopped.assert_called_once_with()

    def test_it_takes_no_arguments(self):
        self.assertEqual(self.main(gate, "x"), 2)
        self.assertEqual(self.main(gate, "--help"), 0)
        self.assertIn("usage: scripts/test", self.out)
        self.assertIn("Ends with 0 only when", self.out)
        self.setups.assert_not_called()


if __name__ == "__main__":
    unittest.main()
