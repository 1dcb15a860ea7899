# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The lines of bats' stream, and the report that is made of them."""
import io
import os
import pathlib
import signal
import unittest
from unittest import mock
from xml.etree import ElementTree

from played import InProject, program

bats_report = program("tests/support/bats-report")


class Report(InProject):
    """A stream, line by line."""

    def cases(self, *lines):
        """What the report tells of these lines: (file, name, time, kind, text)."""
        report = bats_report.Report()
        self.printed = [line for line in lines if report.take(line)]
        report.write(self.root / "report.xml")
        suite = ElementTree.parse(self.root / "report.xml").getroot()
        self.assertEqual(int(suite.get("tests")), len(suite))
        return [(case.get("classname"), case.get("name"), case.get("time"),
                 *((case[0].tag, case[0].text) if len(case) else (None, None))) for case in suite]

    def test_results_of_every_kind(self):
        self.assertEqual(self.cases(
            "1..5", "suite /x/one.bats", "begin 1 a", "ok 1 a in 1500ms", "begin 2 b",
            "ok 2 b in 20ms # skip no way", "suite /x/two.bats", "begin 3 c", "not ok 3 c in 2ms",
            "# why", "#   and where", "begin 4 d", "not ok 4 d in 9ms # timeout after 1s",
            "begin 5 e", "ok 5 e # skip"), [
                ("one", "a", "1.5", None, None), ("one", "b", "0.02", "skipped", "no way"),
                ("two", "c", "0.002", "failure", "why\n  and where"),
                ("two", "d", "0.009", "failure", None), ("two", "e", "0.0", "skipped", None)])
        self.assertEqual(self.printed, [
            "1..5", "ok 1 a in 1500ms", "ok 2 b in 20ms # skip no way", "not ok 3 c in 2ms", "# why",
            "#   and where", "not ok 4 d in 9ms # timeout after 1s", "ok 5 e # skip"])

    def test_a_failed_case_that_says_skip_has_failed(self):
        self.assertEqual(self.cases("1..1", "not ok 1 a in 1ms # skip x")[0][3], "failure")

    def test_what_was_planned_and_did_not_end_is_an_error(self):
        cut = ("", "a case that was not run", "0.0", "error", "bats ended before this case did")
        self.assertEqual(self.cases("1..3", "begin 1 a b"),
                         [("", "a b", *cut[2:]), cut, cut])
        self.assertEqual(self.cases("1..2", "begin 1 a", "ok 1 a in 1ms")[1:], [cut])
        self.assertEqual(self.cases(), [cut])
        self.assertEqual(self.cases("begin 1 a"), [("", "a", *cut[2:])])
        self.assertEqual(self.cases("1..0"), [])
        self.assertEqual(self.cases("1..1", "ok 1 a in 1ms", "begin 2 b")[1:],
                         [("", "b", *cut[2:])])

    def test_words_before_the_first_case_belong_to_none(self):
        self.assertEqual(self.cases("1..1", "# told", "ok 1 a in 1ms")[0][3], None)
        self.assertIn("# told", self.printed)

    def test_only_words_behind_a_number_sign_tell_why(self):
        self.assertEqual(self.cases("1..1", "not ok 1 a in 1ms", "words", "# why")[0][4], "why")

    def test_forbidden_characters_become_question_marks(self):
        case, = self.cases("1..1", "not ok 1 a\x1b\x7f in 1ms", "# \0\x08\x0b\x0c\x0e\x1f\ufffe\uffff",
                           "# \t\ud800x")
        self.assertEqual(case[1], "a?\x7f")
        self.assertEqual(case[4], "????????\n\t?x")

    def test_a_report_is_whole_or_not_there(self):
        report = bats_report.Report()
        path = self.write("report.xml", "earlier")

        def ends_halfway(file, **_):
            pathlib.Path(file).write_text("<testsuite", encoding="utf-8")
            raise OSError

        with mock.patch.object(ElementTree.ElementTree, "write", side_effect=ends_halfway):
            with self.assertRaises(OSError):
                report.write(path)
        self.assertEqual(path.read_text(encoding="utf-8"), "earlier")
        report.write(path)
        self.assertIn('encoding=\'utf-8\'', path.read_text(encoding="utf-8"))
        self.assertEqual([one.name for one in self.root.iterdir()], ["report.xml"])


class Program(InProject):
    """The program."""

    def start(self, stream, **environment):
        """Reads the stream; returns what is printed, as bytes."""
        self.addCleanup(signal.signal, signal.SIGINT, signal.getsignal(signal.SIGINT))
        printed = mock.Mock(buffer=io.BytesIO())
        with mock.patch.dict(os.environ, environment), mock.patch("sys.stdout", printed), \
                mock.patch("sys.stdin", mock.Mock(buffer=io.BytesIO(stream))):
            if not environment:
                os.environ.pop("KX_BATS_REPORT", None)
            bats_report.main()
        return printed.buffer.getvalue()

    def test_tap_is_printed_as_it_comes_and_the_report_left(self):
        report = self.root / "report.xml"
        self.assertEqual(self.start(b"1..1\nsuite x.bats\nbegin 1 a\n# \xff\nok 1 a in 1ms\n",
                                    KX_BATS_REPORT=str(report)),
                         b"1..1\n# \xff\nok 1 a in 1ms\n")
        self.assertIn('name="a"', report.read_text(encoding="utf-8"))
        self.assertEqual(signal.getsignal(signal.SIGINT), signal.SIG_IGN)

    def test_without_a_place_there_is_no_report(self):
        before = os.getcwd()
        self.addCleanup(os.chdir, before)
        os.chdir(self.root)
        self.assertEqual(self.start(b"1..0\n"), b"1..0\n")
        self.assertEqual(list(self.root.iterdir()), [])

    def test_each_line_is_told_when_it_comes(self):
        flushed = []
        self.addCleanup(signal.signal, signal.SIGINT, signal.getsignal(signal.SIGINT))
        out = mock.Mock()
        out.buffer.write.side_effect = lambda line: flushed.append(line)
        out.buffer.flush.side_effect = lambda: flushed.append("flush")
        with mock.patch("sys.stdout", out), mock.patch.dict(os.environ), \
                mock.patch("sys.stdin", mock.Mock(buffer=io.BytesIO(b"1..2\nok 1 a\n"))):
            os.environ.pop("KX_BATS_REPORT", None)
            bats_report.main()
        self.assertEqual(flushed, [b"1..2\n", "flush", b"ok 1 a\n", "flush"])


if __name__ == "__main__":
    unittest.main()
