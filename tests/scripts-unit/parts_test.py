# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The parts of a long run wait for each other, and whatever goes wrong with one is told."""
import threading
import unittest
from unittest import mock

from kxscripts import common, parts, processes
from kxscripts.parts import Done, Part
from kxscripts.results import Case


def passes(*outcomes):
    """The work of a part that leaves these outcomes."""
    return lambda: [Case(f"case {number}", outcome) for number, outcome in enumerate(outcomes)]


def raises(problem):
    """The work of a part that raises something."""
    def work():
        raise problem
    return work


class Run(unittest.TestCase):
    """Runs of a few small parts."""

    def run_parts(self, *plan):
        """Returns what each part has left, in the order in which they ended in `self.ended`."""
        self.begun, self.ended = [], []

        def begun(part):
            self.assertIs(threading.current_thread(), threading.main_thread())
            self.begun.append(part.name)

        def ended(done):
            self.assertIs(threading.current_thread(), threading.main_thread())
            self.ended.append(done.part.name)
        return parts.run(plan, begun, ended)

    def test_what_a_part_leaves_is_counted(self):
        done, = self.run_parts(Part("a", passes("passed", "failed", "skipped", "passed")))

        self.assertEqual((done.passed, done.failed), (2, 2))
        self.assertEqual(done.part.name, "a")
        self.assertEqual(done.cases[1], Case("case 1", "failed", 0.0, ""))

    def test_whatever_goes_wrong_is_a_failed_case(self):
        for work, text in ((raises(common.Failed("no\nluck")), "no\nluck"),
                           (raises(processes.Stopped()), "interrupted"),
                           (passes(), "nothing was tested"), (lambda: None, "nothing was tested")):
            done, = self.run_parts(Part("a", work))
            self.assertEqual(done.cases, [Case("a", "failed", 0.0, text)])
        done, = self.run_parts(Part("a", raises(KeyError("k"))))
        self.assertEqual((done.passed, done.failed, done.cases[0].name), (0, 1, "a"))
        self.assertRegex(done.cases[0].text, r"(?s)^Traceback .*KeyError: 'k'")

    def test_a_part_takes_the_time_of_its_work(self):
        clock = [10.0]

        def work():
            clock[0] += 2.5
            return [Case("x", "passed")]
        with mock.patch.object(parts.time, "monotonic", lambda: clock[0]):
            done, = self.run_parts(Part("a", work))
        self.assertEqual(done.seconds, 2.5)

    def test_parts_that_wait_for_nothing_run_side_by_side_and_are_told_as_they_end(self):
        other = threading.Event()
        done = self.run_parts(
            Part("first", lambda: other.wait(10) and passes("passed")()),
            Part("second", lambda: other.set() or passes("passed")()),
            Part("third", passes("passed"), after=("first",)))

        self.assertEqual([one.part.name for one in done], ["first", "second", "third"])
        self.assertEqual(self.begun, ["first", "second", "third"])
        self.assertEqual([one.failed for one in done], [0, 0, 0])
        self.assertLess(self.ended.index("first"), self.ended.index("third"))

    def test_a_part_begins_when_all_that_it_waits_for_are_over(self):
        over = []

        def work(name):
            def do():
                # A part that hangs must not keep the script from its end.
                self.assertTrue(threading.current_thread().daemon)
                over.append((name, sorted(self.ended)))
                return [Case(name, "passed")]
            return do
        self.run_parts(Part("a", work("a")), Part("b", raises(common.Failed("no"))),
                       Part("c", work("c"), needs=("a",), after=("b",)),
                       Part("d", work("d"), after=("a", "b", "c")))
        self.assertEqual(over, [("a", []), ("c", ["a", "b"]), ("d", ["a", "b", "c"])])

    def test_what_needs_a_failed_part_has_failed_and_so_on(self):
        done = self.run_parts(
            Part("good", passes("passed")), Part("bad", passes("passed", "skipped")),
            Part("x", passes("passed"), needs=("good", "bad")),
            Part("y", passes("passed"), needs=("x",)), Part("z", passes("passed"), after=("y",)))

        self.assertEqual([(one.passed, one.failed) for one in done],
                         [(1, 0), (1, 1), (0, 1), (0, 1), (1, 0)])
        self.assertEqual(done[2].cases,
                         [Case("x", "failed", 0.0, "not done, because bad failed")])
        self.assertEqual(done[3].cases, [Case("y", "failed", 0.0, "not done, because x failed")])
        self.assertEqual(sorted(self.begun), ["bad", "good", "z"])
        self.assertEqual(sorted(self.ended), ["bad", "good", "x", "y", "z"])
        self.assertEqual(done[2].seconds, 0.0)

    def test_a_plan_that_could_not_end_is_refused_before_anything_begins(self):
        begun = []
        good = Part("a", lambda: begun.append(1))
        for plan, text in (
                ((good, Part("b", None, after=("c",))),
                 "b: listed twice, or waits for {'c'} too early"),
                ((good, Part("b", None, needs=("b",))),
                 "b: listed twice, or waits for {'b'} too early"),
                ((good, good), "a: listed twice, or waits for set() too early")):
            with self.assertRaises(ValueError) as raised:
                self.run_parts(*plan)
            self.assertEqual(str(raised.exception), text)
        self.assertEqual(begun, [])

    def test_no_parts_leave_nothing(self):
        self.assertEqual(self.run_parts(), [])

    def test_a_part_and_what_it_has_left_do_not_change(self):
        part = Part("a", None)
        self.assertEqual((part.needs, part.after), ((), ()))
        with self.assertRaises(AttributeError):
            part.name = "b"
        with self.assertRaises(AttributeError):
            Done(part, [], 0.0).seconds = 1


if __name__ == "__main__":
    unittest.main()
