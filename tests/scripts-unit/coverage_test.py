# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What scripts/coverage builds, runs and adds up, and what ends it."""
import shutil
import unittest
from unittest import mock

from kxscripts import common, coverage
from played import PROJECT, InProject

PLACES = (coverage.ROOT, coverage.BUILD, coverage.COUNTS, coverage.SUM, str(coverage.MEMORY))


class Coverage(InProject):
    """The tools are played; a run of bats leaves counts of the sandboxed device."""

    def setUp(self):
        super().setUp()
        self.build = self.root / "build/coverage"
        self.counts = self.root / "build/coverage-counts"
        for name, value in {"ROOT": self.root, "BUILD": self.build, "COUNTS": self.counts,
                            "SUM": self.root / "build/coverage-counts.sum",
                            "MEMORY": self.root / "memory"}.items():
            self.patch(coverage, name, value)
        self.groups = self.patch(common, "setup", mock.Mock()).call_args_list
        self.write("tests/device/a.bats", "#!\nload device\n")
        self.write("tests/device/b.bats", "x\nload window\n")
        self.write("tests/device/sandbox.bats", "load device_kit\n# load window\n")
        self.write("tests/device/panel_x.bats", "load panel\n")
        self.write("tests/device/try.bats", "#\n")
        self.write("tests/device/try_more.bats", "#\n")
        self.write("build/coverage/lib/old.gcda")
        self.write("build/coverage/old.gcno")
        self.write("build/coverage-counts/old/x")
        self.write("build/coverage-counts.sum/x.gcda", "wrong")
        self.patch(shutil, "disk_usage", lambda place: mock.Mock(free=coverage.ROOM + 1))

    def does(self, words):
        """Two programs on the device count in the first run of bats, and are added up."""
        self.left = getattr(self, "left", [])
        self.left.append(sorted(path.name for path in self.root.rglob("*.gcda")))
        if words[:2] == ["bats", "--tap"] and words[2].endswith("a.bats"):
            self.assertTrue(self.counts.is_dir())
            for number in "12":
                place = self.counts / f"device.{number}" / self.build.relative_to("/")
                place.mkdir(parents=True)
                (place / "a.gcda").write_text(number, encoding="utf-8")
        if words[0] == "gcov-tool":
            total, here, there = words[3:]
            there = (self.root / there / "a.gcda").read_text(encoding="utf-8")
            here = self.build / "a.gcda" if here == str(self.build) else None
            before = here.read_text(encoding="utf-8") if here.exists() else ""
            self.write(f"{total}/a.gcda", before + there)

    def measured(self, *words, **keywords):
        """Starts the script; leaves its exit status and its commands."""
        self.commands = self.played(**{"does": self.does, **keywords})
        with mock.patch.dict("os.environ", {"TMPDIR": ""}):
            self.status = self.main(coverage, *words)

    def test_everything_is_built_run_and_added_up(self):
        self.measured()

        self.assertEqual((self.status, self.err), (0, ""))
        tests, counts = f"{self.root}/tests/device", self.counts
        self.assertEqual(self.commands.lines, [
            "cmake --preset coverage", "cmake --build --preset coverage",
            "cmake --preset release",
            "cmake --build --preset release --target kx_Updater kx-package kx_probe",
            "ctest --preset coverage",
            f"bats --tap {tests}/a.bats {tests}/b.bats",
            f"bats --tap {tests}/try.bats {tests}/try_more.bats",
            f"bats --tap {tests}/panel_x.bats",
            *(f"gcov-tool merge -o {counts}.sum {self.build} {counts}/device.{n}{self.build}"
              for n in "12"),
            "gcovr --root . --filter src/ --filter lib/ --filter tools/ --object-directory "
            "build/coverage build/coverage --exclude-unreachable-branches --exclude-throw-branches "
            f"--txt --html-details {self.build}/report/index.html --fail-under-line 95 "
            "--print-summary"])
        self.assertEqual(set(self.commands.folders), {self.root})
        self.assertEqual([call.args for call in self.groups], [("build", "tools", "demo", "test")])
        self.assertEqual((self.build / "a.gcda").read_text(encoding="utf-8"), "12")
        self.assertFalse((self.root / "build/coverage-counts.sum").exists())
        self.assertTrue((self.build / "report").is_dir())
        self.assertEqual([line for line in self.out.splitlines() if line],
                         ["== building with instrumentation", "== running the unit tests",
                          "== running the device tests", "== adding up"])

    def test_each_run_has_its_programs_and_the_place_of_its_counts(self):
        self.write("memory/x")

        self.measured()

        self.assertEqual(self.commands.lost, set())
        out, memory = {"KX_COVERAGE_OUT": str(self.counts)}, {"TMPDIR": f"{self.root}/memory"}
        self.assertEqual(self.commands.added[4:8], [
            out, out | memory | {"KX_UPDATER": f"{self.build}/kx_Updater"},
            out | memory | {"KX_UPDATER": f"{self.root}/build/release/kx_Updater",
                            "KX_PACKAGE": f"{self.build}/kx-package"},
            out | memory | {"KX_PANEL": f"{self.build}/kx-panel"}])

    def test_nothing_of_an_earlier_measurement_is_left_when_the_tests_begin(self):
        self.measured()

        at = self.commands.lines.index("ctest --preset coverage")
        self.assertEqual(self.left[at], [])
        self.assertTrue((self.build / "old.gcno").exists())
        self.assertFalse((self.counts / "old").exists())

    def test_a_second_measurement_takes_the_place_of_the_first(self):
        for _ in range(2):
            self.measured()
            self.assertEqual((self.status, self.err), (0, ""))
            self.assertEqual((self.build / "a.gcda").read_text(encoding="utf-8"), "12")

    def test_memory_is_taken_where_there_is_room_and_nobody_has_chosen(self):
        memory = self.write("memory/x").parent
        with mock.patch.dict("os.environ", {"TMPDIR": "/elsewhere"}):
            self.assertEqual(coverage.in_memory(), {})
        with mock.patch.dict("os.environ"):
            coverage.os.environ.pop("TMPDIR", None)
            self.assertEqual(coverage.in_memory(), {"TMPDIR": str(memory)})
            self.patch(shutil, "disk_usage", lambda place: mock.Mock(
                free=coverage.ROOM if place == memory else 1 << 60))
            self.assertEqual(coverage.in_memory(), {})
            self.patch(coverage, "MEMORY", self.root / "none")
            self.assertEqual(coverage.in_memory(), {})
        self.assertEqual(coverage.ROOM, 1024000000)

    def test_a_run_that_fails_ends_the_measurement_and_shows_its_failures(self):
        rows = (
            ("ctest", "ctest", "\n".join(["fine", "1: [  FAILED  ] A.b", "more"])),
            ("ctest", "ctest", "\n".join(["fine", "x ...***Exception: SegFault", "more"])),
            ("bats --tap " + str(self.root / "tests/device/a.bats"), "bats", "ok 1\nnot ok 2\n# x"),
            ("bats --tap " + str(self.root / "tests/device/try.bats"), "try", "ok 1\nnot ok 2\n#"),
            ("bats --tap " + str(self.root / "tests/device/panel_x.bats"), "panel", "ok 1\nnot ok 2"),
            ("gcov-tool", "merge", "profile mismatch"))
        for count, (command, log, printed) in zip((5, 5, 6, 7, 8, 9), rows):
            self.measured(statuses={command: 3}, printed={command: printed})
            self.assertEqual(self.status, 1)
            shown = printed.splitlines()[1:] if log != "merge" else [printed]
            self.assertEqual(self.err.splitlines(), [
                *shown, f"scripts/coverage: {command.split()[0]} ended with 3; all of it: "
                f"build/coverage/{log}.log"])
            self.assertEqual(len(self.commands.seen), count)

    def test_a_build_that_fails_ends_the_measurement(self):
        for preset, count in (("coverage", 2), ("release", 4)):
            self.measured(statuses={f"cmake --build --preset {preset}": 1})
            self.assertEqual((self.status, len(self.commands.seen)), (1, count))
            self.assertIn(f"building the preset {preset} failed", self.err)

    def test_what_gcovr_ends_with_is_the_end(self):
        self.measured(statuses={"gcovr": 2})

        self.assertEqual(self.status, 2)

    def test_device_tests_that_run_nothing_are_an_error(self):
        for names in (("a", "b"), ("try", "try_more"), ("panel_x",)):
            kept = {name: self.root / f"tests/device/{name}.bats" for name in names}
            for path in kept.values():
                path.rename(path.with_suffix(".kept"))
            self.measured()
            self.assertEqual(self.status, 1)
            self.assertEqual(self.err, "scripts/coverage: no bats file in tests/device is about the "
                                       "updater, about kx-package try, or about kx-panel\n")
            for path in kept.values():
                path.with_suffix(".kept").rename(path)

    def test_the_lines_behind_each_failure_are_shown(self):
        log = self.root / "log"
        lines = [f"line {number}" for number in range(100)]
        lines[10], lines[25] = "not ok 1", "not ok 2"
        log.write_text("\n".join(lines), encoding="utf-8")
        self.assertEqual(coverage.failure_in(log, "^not ok").splitlines(), lines[10:46])
        self.assertEqual(coverage.failure_in(log, "none").splitlines(), lines[60:])
        log.write_bytes(b"not ok \xff")
        self.assertEqual(coverage.failure_in(log, "^not ok"), "not ok \N{REPLACEMENT CHARACTER}")

    def test_counts_are_kept_beside_the_build(self):
        build = PROJECT / "build"
        self.assertEqual(PLACES, (PROJECT, build / "coverage", build / "coverage-counts",
                                  build / "coverage-counts.sum", "/dev/shm"))

    def test_arguments_are_refused_and_the_help_tells_the_goal(self):
        self.measured("src")
        self.assertEqual((self.status, self.commands.seen), (2, []))

        self.measured("--help")
        self.assertEqual((self.status, self.commands.seen), (0, []))
        self.assertIn("usage: scripts/coverage", self.out)
        self.assertIn(f"below {coverage.LEAST} percent", self.out.replace("\n", " "))


if __name__ == "__main__":
    unittest.main()
