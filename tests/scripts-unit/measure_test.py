# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the programs of a benchmark cost, and the order in which they run; nothing is run here but a
few short commands of the shell."""
import io
import json
import os
import resource
import sys
import unittest
from unittest import mock

from played import InProject, program

measure = program("tests/bench/measure.py")


class Runs(InProject):
    """One run."""

    def test_a_run_is_told_with_what_it_cost(self):
        told = measure.run(["/bin/sh", "-c", "i=0; while [ $i -lt 20000 ]; do i=$((i+1)); done; "
                                             "/bin/sh -c :; echo unseen; echo unseen >&2; exit 3"])
        self.assertEqual(told["status"], 3)
        self.assertTrue(0 < told["own"] <= told["cpu"] < 60)
        self.assertTrue(0 <= told["children"] < told["cpu"])
        self.assertTrue(0 < told["wall"] < 60)
        self.assertTrue(100 < told["peak_kib"] < 1000000)
        self.assertEqual(measure.run(["/bin/sh", "-c", "kill -9 $$"])["status"], -9)

    def test_a_program_has_no_input_and_its_output_is_thrown_away(self):
        file = self.write("told")
        with file.open("r+b") as other:
            before = [os.dup(fd) for fd in range(3)]
            for fd in range(3):
                os.dup2(other.fileno(), fd)
            try:
                measure.run([sys.executable, "-ISBc", (
                    "import os, sys\nfds = [os.readlink(f'/proc/self/fd/{fd}') for fd in range(3)]"
                    "\nopen(sys.argv[1], 'x').write(' '.join(fds))"), f"{file}.fds"])
            finally:
                for fd, kept in enumerate(before):
                    os.dup2(kept, fd)
                    os.close(kept)
        told = (self.root / "told.fds").read_text(encoding="utf-8")
        self.assertEqual(told.split(), ["/dev/null"] * 3)

    def test_the_time_of_its_own_is_that_of_the_process(self):
        opened = mock.mock_open(read_data="2500000000 7 9\n")
        with mock.patch("builtins.open", opened):
            self.assertEqual(measure.own_cpu_seconds(12), 2.5)
        self.assertEqual(opened.call_args.args[0], "/proc/12/schedstat")


class Rounds(InProject):
    """All runs, which are played."""

    def measured(self, rounds, seconds, clock):
        """Measures three programs; returns what was run and removed, and what was told."""
        job = {"programs": {name: [name] for name in "abc"}, "rounds": rounds, "seconds": seconds,
               "clean": [str(self.root / "x"), str(self.root / "y")]}
        ran = []
        self.patch(measure.os.path, "exists", lambda path: path == "/.kx-device")
        self.patch(measure, "run", lambda command: ran.append(command[0]) or {"wall": 1})
        self.patch(measure.shutil, "rmtree", lambda folder, ignore_errors: ran.append(folder[-1]))
        self.patch(measure.resource, "setrlimit", mock.Mock())
        self.patch(measure.time, "monotonic", mock.Mock(side_effect=clock))
        with mock.patch("sys.stdin", io.StringIO(json.dumps(job))):
            self.tell(measure.main)
        return "".join(ran), [json.loads(line) for line in self.out.splitlines()]

    def test_each_program_is_the_first_in_its_turn_with_clean_folders(self):
        ran, told = self.measured(4, 1000, range(9))
        self.assertEqual(ran, "".join(f"xy{name}" for name in "abc" "bca" "cab" "abc"))
        self.assertEqual([(one["round"], one["name"]) for one in told[2:5]],
                         [(1, "c"), (2, "b"), (2, "c")])
        self.assertEqual(told[0], {"round": 1, "name": "a", "wall": 1})
        measure.resource.setrlimit.assert_called_once_with(resource.RLIMIT_CORE, (0, 0))

    def test_no_round_begins_that_would_not_end_in_time(self):
        for clock, rounds in (((0, 10, 20, 30), 3), ((0, 10, 19, 26), 3), ((0, 15, 30), 2),
                              ((5, 21), 1), ((5, 19, 33), 2), ((0, 31), 1)):
            _, told = self.measured(3, 30, clock)
            self.assertEqual(told[-1]["round"], rounds, clock)

    def test_each_run_is_told_at_once(self):
        stream = self.patch(sys, "stdout", mock.Mock())
        self.tell = lambda work: work()
        self.measured(1, 1, range(9))
        self.assertEqual(stream.flush.call_count, 3)

    def test_nothing_is_run_outside_of_the_sandboxed_device(self):
        self.patch(measure, "run", mock.Mock())
        with self.assertRaisesRegex(SystemExit, "^measure: only on the sandboxed device$"):
            measure.main()
        measure.run.assert_not_called()


if __name__ == "__main__":
    unittest.main()
