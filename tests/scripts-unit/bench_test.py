# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What scripts/bench starts, and what it makes of what it measured; nothing is measured here."""
import io
import json
import os
import subprocess
import unittest
import zlib
from types import SimpleNamespace
from unittest import mock

from played import PROJECT, InProject, program

bench = program("scripts/bench")
w = bench.w
PLACES = (bench.ROOT, bench.WORK, bench.BUILD)


class Told:
    """Stands for the results: keeps what was told."""

    def __init__(self):
        self.lines, self.rows, self.goals = [], [], []

    def say(self, text=""):
        """Keeps a line."""
        self.lines.append(text)

    def run(self, *row):
        """Keeps a row."""
        self.rows.append(row)

    def goal(self, *goal):
        """Keeps a goal, its value in thousandths."""
        workload, what, value, limit = goal
        self.goals.append((workload, what, round(value, 3), limit))


def run_of(wall, cpu=None, own=None, peak=1024):
    """One run."""
    return {"wall": wall, "cpu": wall if cpu is None else cpu,
            "own": wall if own is None else own, "peak_kib": peak}


class InProject(InProject):
    """The work is done in a folder that stands for the project; no device is made."""

    def setUp(self):
        super().setUp()
        self.work = self.patch(bench, "WORK", self.root / "build/bench-work")
        self.build = self.patch(bench, "BUILD", self.root / "build/bench")
        self.patch(bench, "ROOT", self.root)
        self.results = Told()
        self.started = []

    def started_with(self, stdout="", does=lambda words: None):
        """Plays subprocess.run from here on."""
        def run(words, **keywords):
            self.started.append(([os.fspath(word) for word in words], keywords))
            told = does(self.started[-1][0])
            return SimpleNamespace(stdout=stdout if told is None else told, returncode=0)
        self.patch(subprocess, "run", run)

    def exits(self, text, work, *words, **keywords):
        """Does something that must end the program with this text."""
        with self.assertRaises(SystemExit) as raised:
            self.tell(work, *words, **keywords)
        self.assertEqual(str(raised.exception.code), text)


class Device(InProject):
    """What is started on the sandboxed device."""

    def test_the_work_is_done_in_the_build_folder(self):
        self.assertEqual(PLACES, (PROJECT, PROJECT / "build/bench-work", PROJECT / "build/bench"))

    def test_the_device_has_what_is_measured_and_room_for_it(self):
        build, work = self.build, self.work
        self.assertEqual(bench.device_command(["prog", "x"], ["--env", "A=1"]), [
            f"{self.root}/device/run", "--seconds", "3000", "--memory", "8192", "--disk", "4096",
            "--share", f"{work}=/opt/bench/input", "--share", f"{work}/package=/opt/bench/package",
            "--share", f"{build}/kx_Updater=/opt/bench/kx_Updater",
            "--share", f"{build}/tests/bench=/opt/bench/programs",
            "--share", f"{self.root}/tests/bench/measure.py=/opt/bench/measure.py",
            "--env", "A=1", "--", "prog", "x"])
        self.assertEqual(bench.updater_command(),
                         ["/opt/bench/kx_Updater", "-unzipedDir", "/opt/bench/package"])

    def test_what_fails_on_the_device_is_no_result(self):
        self.started_with("words")
        self.assertEqual(bench.on_device(["prog"], ["--boot"], stderr=3), "words")
        words, keywords = self.started[0]
        self.assertEqual(words, bench.device_command(["prog"], ["--boot"]))
        self.assertEqual(keywords, {"check": True, "stdout": subprocess.PIPE, "text": True,
                                    "stderr": 3})

    def test_a_new_package_has_nothing_of_an_earlier_one(self):
        self.write("build/bench-work/package/old")
        self.assertEqual(bench.new_package(), self.work / "package")
        self.assertEqual([path.name for path in self.work.rglob("*")], ["package"])

    def test_commands_are_proved_one_by_one(self):
        bench.new_package()
        trace = self.work / "trace"

        def traced(*lines):
            self.patch(bench, "on_device", lambda words, options: (
                self.assertEqual((words, options), (["prog"], ["--trace", str(trace),
                                                               "--trace-shell", "--boot"])),
                trace.write_text("".join(f"{line}\n" for line in lines), encoding="utf-8")))
        traced("shell\ta\tb", "tool\tx", "shell\tc", "shells\td")
        bench.prove_commands("n", ["a\tb", "c"], ["prog"], ["--boot"])
        self.assertFalse((self.work / "expected").exists())

        for expected in (["c", "a\tb"], ["a\tb"], ["a\tb", "c", "d"]):
            self.exits(f"n: the updater ran 2 commands, not the {len(expected)} that are specified; "
                       f"compare {trace} with {self.work}/expected",
                       bench.prove_commands, "n", expected, ["prog"], ["--boot"])
            self.assertEqual((self.work / "expected").read_text(encoding="utf-8").splitlines(),
                             expected)

    def measured(self, lines, status=0):
        """Measures what a device tells."""
        self.given = io.StringIO()
        self.given.close = lambda: setattr(self.given, "closed_by", True)
        process = mock.MagicMock(stdin=self.given, stdout=lines, returncode=status)
        process.__enter__.return_value = process
        self.process = process
        self.popen = self.patch(subprocess, "Popen", mock.Mock(return_value=process))
        return bench.measure(self.results, "load", (3, 60), {"a": ["x"], "b": ["y"]}, ["/c"],
                             ["--boot"])

    def test_each_run_goes_to_its_program_and_to_the_rows(self):
        lines = [json.dumps({"round": 1, "name": name, "status": 0, "wall": wall})
                 for name, wall in (("a", 1), ("b", 2), ("a", 3))]
        runs = self.measured(lines)
        self.assertEqual({name: [run["wall"] for run in each] for name, each in runs.items()},
                         {"a": [1, 3], "b": [2]})
        self.assertEqual([row[:3] for row in self.results.rows],
                         [("load", 1, "a"), ("load", 1, "b"), ("load", 1, "a")])
        self.assertEqual(self.results.rows[0][3]["wall"], 1)
        self.assertEqual(json.loads(self.given.getvalue()), {
            "programs": {"a": ["x"], "b": ["y"]}, "rounds": 3, "seconds": 60, "clean": ["/c"]})
        self.assertTrue(self.given.closed_by)
        self.assertEqual(self.popen.call_args.args[0], bench.device_command(
            ["/usr/bin/python3", "/opt/bench/measure.py"], ["--boot"]))

    def test_a_program_or_a_device_that_fails_ends_the_benchmark(self):
        self.exits("b ended with 7", self.measured,
                   ['{"round": 1, "name": "b", "status": 7}'])
        self.process.kill.assert_called_once_with()
        self.assertEqual(self.results.rows, [])
        self.exits("load: the sandboxed device ended with 125", self.measured, [], 125)

    def test_commands_are_written_one_behind_the_other(self):
        bench.new_package()
        bench.write_commands("commands", ["a b", "ü"])
        self.assertEqual((self.work / "commands").read_bytes(), b"a b\0\xc3\xbc\0")
        bench.write_commands("commands", [])
        self.assertEqual((self.work / "commands").read_bytes(), b"")

    def test_a_table_of_medians(self):
        bench.show(self.results, {"floor": [run_of(1), run_of(3), run_of(2)],
                                  "updater": [run_of(4, 5, 6, 3 * 1024)] * 3})
        self.assertEqual(self.results.lines, [
            "                      wall s      cpu s  own cpu s   peak MiB   medians of 3 rounds",
            "  floor                 2.000      2.000     2.0000        1.0",
            "  updater               4.000      5.000     6.0000        3.0"])


class Installations(InProject):
    """Installations, whose runs are given."""

    def setUp(self):
        super().setUp()
        self.proved = []
        self.patch(bench, "prove_commands", lambda *words: self.proved.append(
            (*words, sorted(path.name for path in self.work.iterdir()))))
        self.runs = {}
        self.asked = []

        def measure(results, name, limits, programs, clean, options=()):
            self.asked.append((name, limits, programs, clean, options))
            self.inputs = {path.name: path.read_bytes() for path in self.work.iterdir()
                           if path.is_file()}
            self.package = sorted(path.relative_to(self.work / "package").as_posix()
                                  for path in (self.work / "package").rglob("*"))
            return {program: [run_of(*self.runs.get(program, (1,)))] for program in programs}
        self.patch(bench, "measure", measure)

    def workload(self, **keywords):
        """Makes a workload of three small files, called `load`."""
        self.patch(w, "WORKLOADS", {"load": w.Installation(
            "three files", lambda package: w.folder_step(package, 1, 3, 4), 5, 60,
            **{"files": 3, **keywords})})

    def test_an_installation_is_measured_against_the_floor(self):
        self.workload()
        self.runs = {"floor": (2, 4, 1e-3), "updater": (2.2, 4, 1.5e-3), "empty": (1, 1, 4e-4, 512),
                     "control": (2.1, 5, 2e-3)}

        micros = bench.run_installation(self.results, "load", (5, 60))

        floor = ["/opt/bench/programs/bench_floor", "/opt/bench/input/commands"]
        self.assertEqual(self.asked, [("load", (5, 60), {
            "floor": floor, "updater": bench.updater_command(), "control": floor,
            "empty": [floor[0], "/opt/bench/input/no-commands"]},
            ["/mnt/user/target", "/var/lib/KxUserPackages"], ())])
        expected = w.expected_commands(w.folder_step(self.root / "again", 1, 3, 4)[1])
        self.assertEqual(self.inputs["commands"].decode().split("\0")[:-1], expected)
        self.assertEqual(self.inputs["no-commands"], b"")
        self.assertIn("UserPackage.kx-project", self.package)
        self.assertEqual(self.proved, [("load", expected, bench.updater_command(),
                                        ["commands", "no-commands", "package"])])
        self.assertAlmostEqual(micros, 1100 / 3)
        self.assertEqual(self.results.lines[0], "\nload: three files; 10 commands")
        self.assertIn("  updater               2.200      4.000     0.0015        1.0",
                      self.results.lines)
        self.assertIn("  control/floor: wall 1.050, cpu 1.250, own cpu 2.000", self.results.lines)
        self.assertIn("  peak memory: updater/empty application 2.000", self.results.lines)
        self.assertEqual(self.results.lines[-1],
                         "  own cpu for a file: updater 366.7 us, floor 200.0 us")
        self.assertEqual(self.results.goals, [("load", "wall updater/floor", 1.1, 1.01),
                                              ("load", "cpu updater/floor", 1.0, 1.01),
                                              ("load", "own cpu updater/floor", 1.5, 1.10)])
        self.assertFalse(self.work.exists())

    def test_a_long_one_has_no_control_and_a_smaller_one_proves_its_commands(self):
        self.workload(is_long=True)
        bench.run_installation(self.results, "load", (1, 1))
        self.assertEqual(self.proved, [])
        self.assertEqual(list(self.asked[0][2]), ["floor", "updater", "empty"])
        self.assertEqual([line for line in self.results.lines if "control" in line], [])

    def test_parts_of_the_updater_s_work_are_floors_of_their_own(self):
        self.workload(parts=("look", "format+look"))
        self.runs = {"look": (1, 1, 4), "empty": (1, 1, 1)}
        bench.run_installation(self.results, "load", (1, 1))
        floor = self.asked[0][2]["floor"]
        self.assertEqual(self.asked[0][2]["look"], [*floor, "look"])
        self.assertEqual(self.asked[0][2]["format+look"], [*floor, "format", "look"])
        self.assertIn("look 1000000.0 us", self.results.lines[-1])

    def test_one_without_files_has_no_goals(self):
        self.workload(files=0)
        self.assertIsNone(bench.run_installation(self.results, "load", (1, 1)))
        self.assertEqual(self.results.goals, [])
        self.assertEqual(len(self.proved), 1)

    def test_what_a_file_costs_must_not_grow(self):
        bench.tell_growth(self.results, {"folder-10k": 3.0, "one-512m": 99, "folder-1k": 2.0,
                                         "folder-50k": 4.0})
        self.assertEqual(self.results.goals, [("growth", "dearest/cheapest file", 2.0, 1.10)])
        self.assertEqual(self.results.lines, ["\ngrowth: own cpu for a file: folder-1k 2.0 us, "
                                              "folder-10k 3.0 us, folder-50k 4.0 us"])
        self.results = Told()
        bench.tell_growth(self.results, {"folder-1k": 1.0, "folder-50k": 1.5})
        self.assertEqual(self.results.goals, [("growth", "dearest/cheapest file", 1.5, 1.10)])
        for own in ({"folder-1k": 1.0}, {}, {"one-512m": 1.0, "items-1k": 2.0}):
            self.results = Told()
            bench.tell_growth(self.results, own)
            self.assertEqual((self.results.lines, self.results.goals), ([], []))

    def test_the_window_s_start_is_measured_with_a_package_on_the_drive(self):
        self.started_with(does=lambda words: self.assertTrue((self.work / "drive").is_dir()))
        self.patch(w, "folder_step", mock.Mock(return_value=([], [])))
        self.patch(w, "WORKLOADS", {"window-start": w.Window("a start", 1, 1)})
        self.runs = {"floor": (2, 1, 1, 1000), "updater": (3, 1, 1, 1100), "control": (5,)}

        bench.run_window(self.results, "window-start", (9, 60))

        drive = self.work / "drive"
        self.assertEqual(self.started, [(["zip", "-q", "-r", f"{drive}/Bench.kx-update", "."],
                                         {"cwd": self.work / "package", "check": True})])
        commands = ["sync", 'rm -r "/mnt/user/drive/Bench.temp"',
                    'mkdir -p "/mnt/user/drive/Bench.temp"',
                    'unzip -o "/mnt/user/drive/Bench.kx-update" -d "/mnt/user/drive/Bench.temp" ']
        self.assertEqual(self.inputs["commands"].decode().split("\0")[:-1], commands)
        updater = ["/opt/bench/kx_Updater", "-upDir", "/mnt/user/drive"]
        floor = ["/opt/bench/programs/bench_window", "/opt/bench/input/commands"]
        options = ["--put", f"{drive}=/mnt/user/drive", "--env", "QT_QPA_PLATFORM=offscreen",
                   "--env", "QT_PLUGIN_PATH=/opt/bench/programs/plugins",
                   "--env", "QT_QPA_GENERIC_PLUGINS=kxfirstshow"]
        self.assertEqual(self.proved[0][:4], ("window-start", commands, updater, options))
        self.assertEqual(self.asked, [("window-start", (9, 60), {
            "floor": floor, "updater": updater, "control": floor},
            ["/mnt/user/drive/Bench.temp"], options)])
        w.folder_step.assert_called_once_with(self.work / "package", 3, 100, 209715)
        self.assertEqual(self.package, ["UserPackage.kx-project"])
        self.assertEqual(self.results.lines[0], "\nwindow-start: a start; offscreen platform")
        self.assertIn("  floor                 2.000      1.000     1.0000        1.0",
                      self.results.lines)
        self.assertEqual(self.results.lines[-1], "  control/floor: wall 2.500")
        self.assertEqual(self.results.goals, [
            ("window-start", "wall updater/floor", 1.5, 1.10),
            ("window-start", "memory updater/bare window with a log", 1.1, 1.10)])
        self.assertFalse(self.work.exists())


class Windows(InProject):
    """The cost of a child's output, as the program tells it."""

    def measured(self, rounds, *outputs):
        """Measures; the programs print these in turn."""
        outputs = list(outputs)
        self.patch(w, "WORKLOADS", {"window-log": w.Window("pieces", 1, 1)})
        self.patch(bench, "on_device", lambda *words, **keywords: (
            self.started.append((words, keywords)),
            self.assertTrue((self.work / "package").is_dir()), outputs.pop(0))[-1])
        bench.run_window(self.results, "window-log", (rounds, 60))

    def test_first_and_last_pieces_are_compared(self):
        self.measured(2, "1 2 3 4096 400x300", "1 4 6 1024 400x300\n", "3 4 9 4096 400x300",
                      "1 4 6 3072 400x300")

        self.assertEqual(self.results.rows, [
            ("window-log", 1, "window", {"wall": 3.0, "peak_kib": 4096.0}),
            ("window-log", 1, "bare", {"wall": 6.0, "peak_kib": 1024.0}),
            ("window-log", 2, "window", {"wall": 9.0, "peak_kib": 4096.0}),
            ("window-log", 2, "bare", {"wall": 6.0, "peak_kib": 3072.0})])
        self.assertEqual(self.results.lines, [
            "\nwindow-log: pieces; offscreen platform",
            "          first 1,000 s   last 1,000 s    all s   peak MiB",
            "  window          2.000          3.000    6.000        4.0",
            "  bare            1.000          4.000    6.000        2.0",
            "  bare: last/first 1,000 4.000; window/bare: time 1.000"])
        self.assertEqual(self.results.goals, [
            ("window-log", "last/first 1,000 of the window", 1.5, 1.2),
            ("window-log", "memory window/bare", 2.0, 1.25)])
        words, keywords = self.started[1]
        self.assertEqual(words, (["/opt/bench/programs/bench_log", "bare", "10000"],
                                 ["--env", "QT_QPA_PLATFORM=offscreen"]))
        self.assertEqual(keywords, {"stderr": subprocess.DEVNULL})
        self.assertFalse(self.work.exists())

    def test_areas_of_different_sizes_cannot_be_compared(self):
        self.exits("window-log: log areas of different sizes: 2x1 9x1", self.measured, 1,
                   "1 2 3 4 9x1", "1 2 3 4 2x1")


class Packing(InProject):
    """Building and checking, against zip and unzip; all of them are played."""

    def setUp(self):
        super().setUp()
        self.patch(w, "MIB", 1 << 14)
        self.patch(w, "WORKLOADS", {"pack": w.Packing("small", 2, 3 * w.MIB // 2, 5, 40)})
        self.here = []

        def run_here(command, folder):
            words = [os.fspath(word) for word in command]
            self.here.append((words, folder))
            if words[1] == "build" and len(self.here) == 1:
                self.files = {path.name: path.stat().st_size
                              for path in (self.work / "source").rglob("*") if path.is_file()}
                self.manifest = (self.work / "source/package.toml").read_text(encoding="utf-8")
                self.write("build/bench-work/bench.kx-update", "x" * w.MIB)
            if words[0] == "zip":
                self.assertFalse((self.work / "zip.zip").exists())
                self.write("build/bench-work/zip.zip")
            key = words[1] if words[0].endswith("kx-package") else words[0]
            return run_of({"build": 2, "zip": 4, "check": 3, "unzip": 1}[key])
        self.patch(bench, "run_here", run_here)
        self.started_with()

    def test_each_is_compared_with_its_like_in_turn(self):
        self.patch(bench.time, "monotonic", mock.Mock(side_effect=[0, 10, 20, 30, 40]))
        bench.run_packing(self.results, "pack", (5, 30))

        work, tool = self.work, f"{self.build}/kx-package"
        one_round = [
            ([tool, "build", f"{work}/source", "-o", f"{work}/bench.kx-update", "--updater",
              "/usr/bin/true"], work),
            *[(["zip", "-q", "-X", "-6", "-r", f"{work}/zip.zip", "."], work / "tree")] * 2,
            ([tool, "check", f"{work}/bench.kx-update"], work),
            (["unzip", "-tqq", f"{work}/bench.kx-update"], work)]
        self.assertEqual(self.here, [one_round[0], *one_round * 3])
        self.assertEqual(self.started, [(["unzip", "-q", f"{work}/bench.kx-update", "-d",
                                          f"{work}/tree"], {"check": True})])
        self.assertEqual([row[:3] for row in self.results.rows[:5]],
                         [("pack", 1, name) for name in ("build", "zip", "control", "check",
                                                         "unzip -t")])
        self.assertEqual(self.results.rows[-1][1], 3)
        self.assertEqual(self.results.lines, [
            "\npack: small, 1.0 MiB packed",
            "             wall s    cpu s   peak MiB   medians of 3 rounds",
            *(f"  {name:8} {wall:9.3f} {wall:8.3f}        1.0" for name, wall in (
                ("build", 2), ("zip", 4), ("control", 4), ("check", 3), ("unzip -t", 1))),
            "  control/zip: wall 1.000"])
        self.assertEqual(self.results.goals, [("pack", "wall build/zip", 0.5, 1.0),
                                              ("pack", "wall check/unzip -t", 3.0, 1.0)])
        self.assertFalse(self.work.exists())

    def test_no_more_rounds_are_made_than_asked_for(self):
        bench.run_packing(self.results, "pack", (2, 10000))
        self.assertEqual(len(self.here), 11)

    def test_the_sources_are_those_of_a_package(self):
        self.write("build/bench-work/source/old")
        bench.run_packing(self.results, "pack", (1, 0))
        self.assertEqual(self.files, {"f0000": 3 * w.MIB // 2, "f0001": 3 * w.MIB // 2,
                                      "package.toml": len(self.manifest)})
        for line in ('name = "bench"', 'kind = "copy-folder"',
                     f'processor = "{os.uname().machine}"',
                     'folders = [{ source = "payload", target = "/opt/bench" }]'):
            self.assertIn(f"{line}\n", self.manifest)

    def test_files_look_like_programs_half_of_which_can_be_compressed(self):
        self.patch(w, "MIB", 1 << 18)
        bench.write_sources(self.root / "a", 9, 2 * w.MIB)
        bench.write_sources(self.root / "b", 4, 2 * w.MIB)
        files = [(self.root / "a/payload" / f"f{number:04}").read_bytes() for number in range(9)]
        self.assertEqual(files[3], (self.root / "b/payload/f0003").read_bytes())
        self.assertEqual(len(set(files[:8])), 8)
        self.assertNotEqual(files[0][:w.MIB], files[0][w.MIB:])
        packed = len(zlib.compress(files[0], 6)) / len(files[0])
        self.assertTrue(0.5 < packed < 0.9, packed)

    def test_a_file_has_its_size_to_the_byte(self):
        for size in (0, 1, w.MIB, w.MIB + 1):
            bench.fill_mixed(self.root / "x/file", size, [b"a" * w.MIB, b"b" * w.MIB])
            data = (self.root / "x/file").read_bytes()
            self.assertEqual((len(data), data[w.MIB:]), (size, b"b" * max(size - w.MIB, 0)))


class Archived(InProject):
    """Folders that travel in one archive; everything that is started is played."""

    def test_the_same_folder_is_installed_in_every_way(self):
        self.patch(w, "WORKLOADS", {"fast": w.Archived("small", 2, 3, 40, 5, 60)})
        self.started_with()
        built, devices, asked = [], [], []

        def run_here(command, folder):
            built.append(([os.fspath(word) for word in command], folder))
            self.files = sorted(path.relative_to(self.work / "payload").as_posix()
                                for path in (self.work / "payload").rglob("*") if path.is_file())
        self.patch(bench, "run_here", run_here)
        self.patch(bench, "on_device", devices.append)

        def measure(_results, name, limits, programs, clean):
            asked.append((name, limits, programs, clean))
            self.manifests = [(self.work / f"{each}.toml").read_text(encoding="utf-8")
                              for each in ("plain", "fast")]
            self.packed = sorted(path.relative_to(self.work / "deb").as_posix()
                                 for path in (self.work / "deb").rglob("*") if path.is_file())
            walls = {"plain step": 100, "fast step": 4, "unzip, fast step": 6, "unzip, tar": 5,
                     "tar": 3, "dpkg -i": 12}
            self.assertEqual(list(programs), list(walls))
            return {program: [run_of(wall)] for program, wall in walls.items()}
        self.patch(bench, "measure", measure)

        bench.run_archived(self.results, "fast", (5, 60))

        work, tool = self.work, f"{self.build}/kx-package"
        self.assertEqual(built, [([tool, "build", f"{work}/{name}.toml", "-o",
                                   f"{work}/{name}.kx-update", "--updater", "/usr/bin/true"], work)
                                 for name in ("plain", "fast")])
        files = [f"d{folder:04}/f{file:04}" for folder in range(2) for file in range(3)]
        self.assertEqual(self.files, files)
        self.assertEqual(self.packed,
                         ["DEBIAN/control", *(f"mnt/user/target/{file}" for file in files)])
        plain, fast = self.manifests
        self.assertEqual(fast, plain.replace("plain", "fast").replace("fast = false", "fast = true"))
        self.assertIn('folders = [{ source = "payload", target = "/mnt/user/target" }]', fast)
        self.assertEqual([words for words, _ in self.started], [
            *(["unzip", "-q", f"{work}/{name}.kx-update", "-d", f"{work}/{name}"]
              for name in ("plain", "fast")),
            ["dpkg-deb", "--root-owner-group", "-b", f"{work}/deb", f"{work}/bench.deb"]])
        updater, inside = "/opt/bench/kx_Updater -unzipedDir", "/opt/bench/input"
        self.assertEqual(devices, [["/bin/sh", "-c", (
            f"{updater} {inside}/plain && mv /mnt/user/target /mnt/user/root && "
            f"{updater} {inside}/fast && diff -r /mnt/user/target /mnt/user/root")]])
        (name, limits, programs, clean), = asked
        self.assertEqual((name, limits, clean), ("fast", (5, 60), [
            "/mnt/user/target", "/mnt/user/drive/fast.temp", "/mnt/user/dpkg", "/mnt/user/root"]))
        for words in programs.values():
            self.assertEqual(words[:2], ["/bin/sh", "-c"])
            self.assertRegex(words[2], "^sync && .* && sync$")
        self.assertEqual(programs["fast step"][2], f"sync && {updater} {inside}/fast && sync")
        self.assertIn("/mnt/user/drive/fast.temp/0/0/files.tar", programs["unzip, tar"][2])
        self.assertIn(f"-i {inside}/bench.deb", programs["dpkg -i"][2])
        self.assertEqual(self.results.goals, [
            ("fast", "wall fast step/plain step", 0.04, 0.05),
            ("fast", "wall unzip, fast step/unzip, tar", 1.2, 1.5)])
        self.assertEqual(self.results.lines[-1], "  unzip, fast step/dpkg -i: wall 0.500")
        self.assertFalse(self.work.exists())


class Deciding(InProject):
    """Deciding on a signed package, against reading it and against other updaters; whatever makes
    or verifies one is played."""

    def setUp(self):
        super().setUp()
        self.patch(w, "WORKLOADS", {"panel": w.Deciding("small", 2, 30, 9, 60)})
        self.here = []

        def run_here(command, folder):
            words = [os.fspath(word) for word in command]
            self.here.append((words, folder))
            if words[1] == "build":
                self.write("build/bench-work/bench.kx-update", "x" * w.MIB)
            if words[1] == "key":
                self.write("build/bench-work/bench.pub.pem", "public")
        self.patch(bench, "run_here", run_here)
        for name in ("make_certificate", "pack_payload"):
            self.patch(bench.rivals, name, mock.Mock())
        for name in ("make_bundle", "make_image"):
            self.patch(bench.rivals, name, lambda folder, target: target.write_bytes(b"abc"))
        self.devices = []
        self.panel = ["--put", f"{self.work}/panel=/etc/kx_Updater",
                      "--put", f"{self.build}/kx-panel=/usr/bin/kx-panel",
                      "--put", f"{self.build}/kx_Updater=/usr/bin/kx_Updater",
                      "--put", f"{self.work}/certificate.pem=/mnt/user/drive/certificate.pem"]

    def put(self, *names):
        """The options of device/run for these files."""
        return [word for name in names
                for word in ("--put", f"{self.work}/{name}=/mnt/user/drive/{name}")]

    def test_a_package_is_signed_and_a_panel_made_that_takes_it(self):
        old = os.umask(0o002)
        self.addCleanup(os.umask, old)
        files = bench.write_deciding(w.WORKLOADS["panel"])

        work, tool = self.work, f"{self.build}/kx-package"
        self.assertEqual(files, {"kx-panel": work / "bench.kx-update",
                                 "rauc info": work / "bench.raucb", "swupdate -c": work / "bench.swu"})
        self.assertEqual(self.here, [
            ([tool, "build", f"{work}/source", "-o", f"{work}/bench.kx-update", "--updater",
              "/usr/bin/true"], work),
            ([tool, "key", "new", "--type", "p256", "bench"], work),
            ([tool, "sign", "--key", "bench.key.pem", f"{work}/bench.kx-update"], work)])
        panel = work / "panel"
        self.assertEqual({path.relative_to(panel).as_posix(): path.stat().st_mode & 0o777
                          for path in (panel, *panel.rglob("*"))},
                         {".": 0o755, "keys": 0o755, "keys/bench.pub.pem": 0o644,
                          "panel.toml": 0o644})
        said = (panel / "panel.toml").read_text(encoding="utf-8")
        for line in (work / "source/package.toml").read_text(encoding="utf-8").splitlines():
            for key, said_so in (("model", "models = [{}]"), ("os-version", "os-versions = [{}]"),
                                 ("processor", "processor = {}")):
                if line.startswith(f"{key} = "):
                    self.assertIn(said_so.format(line.partition(" = ")[2]) + "\n", said)
        self.assertEqual(len(list((work / "source/payload").iterdir())), 2)
        for made, words in ((bench.rivals.make_certificate, (work,)),
                            (bench.rivals.pack_payload, (work, work / "source/payload"))):
            made.assert_called_once_with(*words)

    def prove(self, output):
        """Asks whether a program reads its file."""
        self.work.mkdir(parents=True, exist_ok=True)
        file = self.work / "bench.kx-update"
        file.write_bytes(b"abcde")
        changed = self.work / "changed-bench.kx-update"
        self.patch(bench, "on_device", lambda words, options: (
            self.devices.append((words, options, changed.read_bytes())), output)[-1])
        bench.prove_verifying("kx-panel", file)
        self.assertEqual(list(self.work.iterdir()), [file])

    def test_a_program_must_refuse_a_file_with_another_byte(self):
        self.prove("good\nstatus 0\nbad\nstatus 1\n")
        inside = "/usr/bin/kx-panel check /mnt/user/drive/"
        self.assertEqual(self.devices, [(
            ["/bin/sh", "-c", f"exec 2>&1; {inside}bench.kx-update; echo status $?; "
             f"{inside}changed-bench.kx-update; echo status $?"],
            self.panel + self.put("bench.kx-update", "changed-bench.kx-update"), b"abbde")])
        for output in ("status 0\nstatus 0\n", "status 1\nstatus 1\n", "status 1\nstatus 0\n",
                       "status 0\n", "", "status 0\nstatus 0\nstatus 1\n"):
            self.exits("kx-panel does not tell a good file from one with a changed byte:\n" + output,
                       self.prove, output)

    def test_the_memory_of_the_largest_process_is_told(self):
        self.patch(bench, "on_device", lambda words, options: (
            self.devices.append((words, options)), "3072\n")[-1])
        self.assertEqual(bench.greatest_memory(["/bin/x", "a b"], ["--put"]), 3.0)
        (words, options), = self.devices
        self.assertEqual((words[3:], options), (["sh", "/bin/x", "a b"], ["--put"]))
        self.assertEqual(words[2], '/usr/bin/time -f %M -o /tmp/peak "$@" >/dev/null && '
                                   "cat /tmp/peak")

    def test_the_decision_is_compared_with_the_others_in_turn(self):
        proved, asked = [], []
        self.patch(bench, "prove_verifying", lambda *words: proved.append(words))
        self.patch(bench, "greatest_memory", lambda *words: asked.append(words) or 12.5)
        costs = {"kx-panel": (1.2, 1.5), "sha256sum": (1, 1), "control": (1.1, 1),
                 "openssl dgst": (0.5, 1), "rauc info": (1.2, 2), "swupdate -c": (2.4, 1)}

        def measure(_results, name, limits, programs, clean, options):
            asked.append((name, limits, programs, clean, options))
            return {program: [run_of(*costs[program])] for program in programs}
        self.patch(bench, "measure", measure)

        bench.run_deciding(self.results, "panel", (9, 60))

        work, inside = self.work, "/mnt/user/drive"
        options = self.panel + self.put("bench.kx-update", "bench.raucb", "bench.swu")
        decide = ["/usr/bin/kx-panel", "check", f"{inside}/bench.kx-update"]
        self.assertEqual(proved, [(program, work / file) for program, file in (
            ("kx-panel", "bench.kx-update"), ("rauc info", "bench.raucb"),
            ("swupdate -c", "bench.swu"))])
        certificate = f"{inside}/certificate.pem"
        self.assertEqual(asked, [("panel", (9, 60), {
            "kx-panel": decide,
            "rauc info": ["/usr/bin/rauc", "info", f"--keyring={certificate}",
                          f"{inside}/bench.raucb"],
            "swupdate -c": ["/usr/bin/swupdate", "-c", "-k", certificate, "-H", "bench:1", "-i",
                            f"{inside}/bench.swu"],
            "sha256sum": ["/usr/bin/sha256sum", decide[-1]],
            "control": ["/usr/bin/sha256sum", decide[-1]],
            "openssl dgst": ["/usr/bin/openssl", "dgst", "-sha256", decide[-1]]}, [], options),
            (decide, options)])
        self.assertEqual(self.results.lines[0], "\npanel: small; kx-panel 1.0 MiB, "
                                                "rauc info 0.0 MiB, swupdate -c 0.0 MiB")
        self.assertEqual(self.results.lines[-2:], ["  control/sha256sum: wall 1.100",
                                                   "  openssl dgst/sha256sum: wall 0.500"])
        self.assertEqual(self.results.goals, [
            ("panel", "wall kx-panel/sha256sum", 1.2, 1.10),
            ("panel", "wall kx-panel/rauc info", 1.0, 1.0),
            ("panel", "cpu kx-panel/rauc info", 0.75, 1.0),
            ("panel", "wall kx-panel/swupdate -c", 0.5, 1.0),
            ("panel", "cpu kx-panel/swupdate -c", 1.5, 1.0),
            ("panel", "MiB of the largest process of kx-panel", 12.5, 12)])
        self.assertFalse(self.work.exists())


class Here(InProject):
    """A command that is measured on this machine."""

    def test_its_seconds_and_its_memory_are_told(self):
        result = bench.run_here(["sh", "-c", "pwd; touch made; :"], self.root)
        self.assertTrue((self.root / "made").exists())
        self.assertEqual(result["status"], 0)
        self.assertTrue(0 < result["wall"] < 60)
        self.assertTrue(0 <= result["cpu"] < 60)
        self.assertTrue(100 < result["peak_kib"] < 1000000)

    def test_one_that_fails_ends_the_benchmark(self):
        self.exits("sh ended with 3", bench.run_here, ["sh", "-c", "exit 3"], self.root)
        self.exits("sh ended with -9", bench.run_here, ["sh", "-c", "kill -9 $$"], self.root)


class Reading(InProject):
    """The reader against the library, as the program tells it."""

    def test_medians_are_compared(self):
        self.patch(w, "WORKLOADS", {"read": w.Reading("a description", lambda: [{}] * 1000, 15, 2.5)})
        self.write("build/bench-work/old")
        self.started_with("parse 0.001\nread 0.002\nparse 0.003\nread 0.009\nparse 0.002\n"
                          "read 0.005\n", does=self.look)
        bench.run_reading(self.results, "read", (3, 0))
        self.assertEqual(self.started[0], (
            [f"{self.build}/tests/bench/bench_reader", f"{self.work}/UserPackage.kx-project", "3"],
            {"check": True, "stdout": subprocess.PIPE, "text": True}))
        self.assertEqual([row[:3] for row in self.results.rows],
                         [("read", number, what) for number in (1, 2, 3)
                          for what in ("parse", "read")])
        self.assertEqual(self.results.rows[-1][3], {"wall": 0.005})
        self.assertEqual(self.results.goals, [("read", "cpu reader/library", 2.5, 2.5)])
        self.assertEqual(self.results.lines, [
            f"\nread: a description, {self.size / w.MIB:.1f} MiB; medians of 3 rounds",
            "  JSON library 2.0 ms, reader 5.0 ms cpu"])
        self.assertFalse(self.work.exists())

    def look(self, words):
        """Keeps the size of the description."""
        self.size = os.stat(words[1]).st_size


class Main(InProject):
    """The whole."""

    def setUp(self):
        super().setUp()
        self.built = self.patch(bench, "build_programs", mock.Mock())
        self.ran = []

        def runner(kind):
            return lambda results, name, limits: self.ran.append((kind, name, limits)) or \
                (len(name) if name.startswith("folder") else None)
        self.patch(bench, "RUNNERS", {kind: runner(kind.__name__) for kind in bench.RUNNERS})

        real = bench.Results

        def kept(folder):
            """The real results, closed at last."""
            made = real(folder)
            for file in (made._text, made._rows):  # pylint: disable=protected-access
                self.addCleanup(file.close)
            return made
        self.patch(bench, "Results", kept)

    def test_every_workload_is_run_by_default(self):
        self.main(bench)
        self.assertEqual([name for _, name, _ in self.ran], list(w.WORKLOADS))
        self.assertIn(("Reading", "read-20k", (15, 0)), self.ran)
        self.assertIn(("Window", "window-log", (5, 60)), self.ran)
        self.assertIn(("Packing", "pack-512m", (3, 100)), self.ran)
        self.assertIn(("Installation", "folder-50k", (1, 300)), self.ran)
        self.built.assert_called_once_with(list(w.WORKLOADS))
        self.assertIn("growth: own cpu for a file: folder-1k 9.0 us, folder-10k 10.0 us, "
                      "folder-50k 10.0 us\n", self.out)
        self.assertIn("\n0 goals kept, 1 missed, 0.0 minutes\n", self.out)
        kept = list((self.build / "results").iterdir())
        self.assertEqual(sorted(path.suffix for path in kept), [".tsv", ".txt"])
        self.assertRegex(self.out, rf"^{os.cpu_count()} cores, {os.uname().release}, load [\d.]+; own "
                                   "cpu is the program's without its commands; kept in .*\\.txt\n")

    def test_quick_is_one_round_of_all_but_the_largest(self):
        self.main(bench, "--quick")
        self.assertEqual([name for _, name, _ in self.ran],
                         [name for name in w.WORKLOADS if name != "folder-50k"])
        self.assertEqual({limits[0] for _, _, limits in self.ran}, {1})
        self.ran.clear()
        self.main(bench, "--quick", "folder-50k", "no-steps")
        self.assertEqual(self.ran, [("Installation", "folder-50k", (1, 300)),
                                    ("Installation", "no-steps", (1, 30))])

    def test_an_unknown_workload_is_refused_before_anything_is_built(self):
        self.assertEqual(self.main(bench, "no-steps", "x"), 2)
        self.assertIn(f"no workload 'x'; there are: {' '.join(w.WORKLOADS)}\n", self.err)
        self.built.assert_not_called()

    def test_each_kind_of_workload_has_its_runner(self):
        kinds = {type(workload) for workload in w.WORKLOADS.values()}
        self.assertEqual(kinds, set(bench.RUNNERS))
        runners = program("scripts/bench").RUNNERS
        self.assertEqual({kind.__name__: run.__name__ for kind, run in runners.items()}, {
            "Installation": "run_installation", "Reading": "run_reading", "Window": "run_window",
            "Packing": "run_packing", "Archived": "run_archived",
            "Deciding": "run_deciding"})


class Build(InProject):
    """What is built first."""

    def test_all_that_is_measured_is_built(self):
        self.started_with()
        bench.build_programs(["no-steps", "pack-300"])
        self.assertEqual([words for words, _ in self.started], [
            [f"{self.root}/scripts/setup", "build", "tools", "demo", "test", "bench"],
            ["cmake", "--preset", "bench"],
            ["cmake", "--build", "--preset", "bench", "--target", "kx_Updater", "kx-package",
             "kx-panel", "tests/bench/all"]])
        self.assertTrue(self.started[0][1]["check"])
        self.assertEqual([keywords["cwd"] for _, keywords in self.started[1:]], [self.root] * 2)

    def test_other_updaters_are_installed_when_they_are_measured(self):
        self.started_with()
        bench.build_programs(["no-steps", "panel-300"])
        self.assertEqual(self.started[0][0][1:], ["build", "tools", "demo", "test", "bench",
                                                  "rivals"])

    def test_a_build_that_fails_ends_the_benchmark(self):
        for fails, count in (("cmake --preset", 2), ("cmake --build", 3)):
            self.started.clear()
            self.patch(subprocess, "run", lambda words, **_: self.started.append(words) or
                       SimpleNamespace(returncode=int(" ".join(map(str, words)).startswith(fails))))
            with self.assertRaisesRegex(SystemExit, f"^scripts/bench: failed: {fails}"):
                bench.build_programs([])
            self.assertEqual(len(self.started), count)


if __name__ == "__main__":
    unittest.main()
