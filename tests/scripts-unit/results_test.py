# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Cases counted from reports: what a program did not report is a failure."""
import unittest

from kxscripts import results
from kxscripts.results import BadReport, Case
from played import InProject

QT = '<TestCase name="tst">{}<Duration msecs="9"/></TestCase>'


class Reports(InProject):
    """One report."""

    def read(self, text):
        """The cases of a report with this text."""
        return results.read(self.write("report.xml", text))

    def expect_bad(self, pattern, text):
        """The report cannot be counted, and the reason is told."""
        with self.assertRaisesRegex(BadReport, pattern):
            self.read(text)

    def test_junit_cases_and_how_they_ended(self):
        self.assertEqual(self.read(
            '<testsuites tests="8"><testsuite tests="8">'
            '<testcase classname="A" name="good" time="1,000.25"/>'
            '<testcase name="bad"><failure message="m">text</failure><error>more</error></testcase>'
            '<testcase name="broken"><error message="why"/></testcase>'
            '<testcase name="silent"><failure/></testcase>'
            '<testcase name="off" status="notrun"/><testcase name="off2" status="disabled"/>'
            '<testcase name="skip"><skipped message="no font"/></testcase>'
            '<testcase name="skip2" status="run"><skipped/></testcase>'
            '</testsuite></testsuites>'), [
                Case("A.good", "passed", 1000.25, ""), Case("bad", "failed", 0.0, "m\ntext\nmore"),
                Case("broken", "failed", 0.0, "why"), Case("silent", "failed", 0.0, ""),
                Case("off", "skipped", 0.0, "disabled"), Case("off2", "skipped", 0.0, "disabled"),
                Case("skip", "skipped", 0.0, "no font"),
                Case("skip2", "skipped", 0.0, "no reason given")])

    def test_a_case_that_failed_and_was_skipped_has_failed(self):
        self.assertEqual(self.read('<testsuite><testcase name="a"><skipped/><failure/></testcase>'
                                   '</testsuite>')[0].outcome, "failed")

    def test_a_message_that_the_text_repeats_is_told_once(self):
        case, = self.read('<testsuite><testcase name="a">'
                          '<failure message=" a b ">\n  why: a b, c\n</failure></testcase></testsuite>')
        self.assertEqual(case.text, "why: a b, c")

    def test_a_report_that_says_more_than_it_names_is_bad(self):
        self.expect_bad("^reported 1 of 2 cases$",
                        '<testsuite tests="2"><testcase name="a"/></testsuite>')
        self.expect_bad("^reported 1 of 2 cases$",
                        '<testsuites><testsuite tests="1"><testcase name="b"/></testsuite>'
                        '<testsuite tests="2"><testcase name="a"/></testsuite></testsuites>')
        self.expect_bad("^reported 1 of 2 cases$", '<testsuites tests="2"><testsuite>'
                        '<testcase name="b"/></testsuite></testsuites>')
        self.assertEqual(len(self.read('<testsuite tests="1"><testcase/><testcase/></testsuite>')),
                         2)

    def test_a_report_that_is_missing_empty_or_cut_off_is_bad(self):
        with self.assertRaises(BadReport) as raised:
            results.read(self.root / "none.xml")
        self.assertEqual(str(raised.exception), f"left no report {self.root}/none.xml")
        self.expect_bad(r"^left an empty report /.*/report\.xml: no element", " \n")
        self.expect_bad(r"^left a half-written report /.*: ", '<testsuite><testcase name="a"/>')
        self.expect_bad(r"^reported no case in /.*/report\.xml$", "<testsuite/>")

    def test_characters_that_no_report_can_hold_become_question_marks(self):
        path = self.root / "report.xml"
        for raw, shown in ((b"\0", "?"), (b"\x08", "?"), (b"\x0b", "?"), (b"\x0c", "?"),
                           (b"\x0e", "?"), (b"\x1f", "?"), (b" a", "a"), (b"\xff", "\ufffd"),
                           *((b"&#%d;" % number, "?") for number in
                             (0, 1, 8, 11, 12, 14, 19, 20, 29, 30, 31)),
                           *((b"&#x%x;" % number, "?") for number in
                             (0, 8, 11, 12, 14, 15, 16, 27, 31)), (b"&#x001B;", "?"),
                           (b"&#x1B;", "?"),
                           (b"&#33;", "!"), (b"&#x21;", "!"), (b"&#48;", "0"), (b"a\tb\nc", "a\tb\nc"),
                           (b"a&#9;b&#10;c", "a\tb\nc"), (b"a&#xa;b&#xD;c", "a\nb\rc")):
            path.write_bytes(b'<testsuite><testcase name="a"><failure>' + raw +
                             b'</failure></testcase></testsuite>')
            self.assertEqual(results.read(path)[0].text, shown, raw)

    def test_qt_functions_and_rows(self):
        self.assertEqual(self.read(QT.format(
            '<TestFunction name="initTestCase"><Incident type="pass"/></TestFunction>'
            '<TestFunction name="f"><Incident type="pass"><DataTag>one</DataTag></Incident>'
            '<Incident type="fail" file="a.cpp" line="7"><DataTag>two</DataTag>'
            '<Description>wrong</Description></Incident><Duration msecs="3000"/></TestFunction>'
            '<TestFunction name="g"><Message type="skip"><DataTag>row</DataTag>'
            '<Description>no font</Description></Message>'
            '<Message type="qdebug"><Description>words</Description></Message></TestFunction>'
            '<TestFunction name="cleanupTestCase"><Incident type="pass"/></TestFunction>')), [
                Case("tst::f(one)", "passed", 1.5, ""),
                Case("tst::f(two)", "failed", 1.5, "a.cpp:7: wrong"),
                Case("tst::g(row)", "skipped", 0.0, "no font")])

    def test_qt_outcomes(self):
        for kind, outcome in (("pass", "passed"), ("fail", "failed"), ("xpass", "failed"),
                              ("bpass", "skipped"), ("bfail", "skipped"), ("bxpass", "skipped"),
                              ("bxfail", "skipped"), ("odd", "failed")):
            case, = self.read(QT.format(
                f'<TestFunction name="f"><Incident type="{kind}"/></TestFunction>'))
            self.assertEqual((case.name, case.outcome), ("tst::f()", outcome))
        self.expect_bad("reported no case", QT.format(
            '<TestFunction name="f"><Incident type="xfail"/></TestFunction>'))
        for name in ("initTestCase", "cleanupTestCase"):
            case, = self.read(QT.format(
                f'<TestFunction name="{name}"><Incident type="fail"/></TestFunction>'))
            self.assertEqual((case.name, case.outcome), (f"tst::{name}()", "failed"))

    def test_a_qt_program_that_did_not_come_to_its_end_is_bad(self):
        self.expect_bad("^ended before all its functions had run$",
                        '<TestCase name="tst"><TestFunction name="f"><Incident type="pass"/>'
                        '<Duration msecs="1"/></TestFunction></TestCase>')


class Programs(InProject):
    """One test program, by its report, its status and its output."""

    def test_its_cases_bear_its_name(self):
        report = self.write("r.xml", '<testsuite><testcase name="a" time="2"/></testsuite>')
        self.assertEqual(results.of_program("p", report, True, "words"),
                         [Case("p: a", "passed", 2.0, "")])

    def test_one_that_ended_badly_without_a_failed_case_has_failed(self):
        report = self.write("r.xml", '<testsuite><testcase name="a"/><testcase name="b"><skipped/>'
                                     '</testcase></testsuite>')
        output = "".join(f"{number}\n" for number in range(100))
        self.assertEqual(results.of_program("p", report, False, output)[2:], [
            Case("p", "failed", 0.0, "failed, but no case of it did\n" +
                 "\n".join(map(str, range(40, 100))))])
        self.assertEqual(results.of_program("p", report, False, "")[2].text,
                         "failed, but no case of it did")

        report = self.write("r.xml", '<testsuite><testcase name="a"><error/></testcase></testsuite>')
        self.assertEqual(len(results.of_program("p", report, False, "")), 1)

    def test_one_that_left_no_report_has_failed_whatever_it_ended_with(self):
        for good in (True, False):
            self.assertEqual(
                results.of_program("p", self.root / "r.xml", good, "1\n" * 99 + "end\n"), [
                    Case("p", "failed", 0.0, f"left no report {self.root}/r.xml\n" + "1\n" * 59 +
                         "end")])


class CTest(InProject):
    """All programs that CTest ran."""

    def of(self, status, *cases, output=""):
        """What is made of CTest's report with these cases."""
        report = self.write("ctest.xml", f"<testsuite>{''.join(cases)}</testsuite>")
        return results.of_ctest(report, self.root, status, output)

    def setUp(self):
        super().setUp()
        for name in ("one", "two"):
            self.write(f"{name}.xml", '<testsuite><testcase name="a"/></testsuite>')

    def test_the_cases_of_all_programs_are_counted(self):
        self.assertEqual([(case.name, case.outcome) for case in self.of(
            0, '<testcase name="one" status="run"/>', '<testcase name="two" status="run"/>')],
                         [("one: a", "passed"), ("two: a", "passed")])

    def test_a_program_that_ctest_calls_failed_has_failed(self):
        cases = self.of(8, '<testcase name="one"><failure/><system-out>crashed\n</system-out>'
                           '</testcase>', '<testcase name="two"/>')
        self.assertEqual([(case.name, case.outcome, case.text) for case in cases], [
            ("one: a", "passed", ""), ("one", "failed", "failed, but no case of it did\ncrashed"),
            ("two: a", "passed", "")])

    def test_a_program_without_a_report_has_failed(self):
        case, = self.of(0, '<testcase name="none"><system-out>words</system-out></testcase>')
        self.assertEqual((case.name, case.outcome, case.text),
                         ("none", "failed", f"left no report {self.root}/none.xml\nwords"))

    def test_a_skipped_program_tells_the_last_line_of_what_it_printed(self):
        skipped = '<testcase name="one"><skipped message="77"/>{}</testcase>'
        case, = self.of(0, skipped.format("<system-out>first\n last \n\n</system-out>"))
        self.assertEqual(case, Case("one", "skipped", 0.0, "last"))
        case, = self.of(0, skipped.format(""))
        self.assertEqual(case, Case("one", "skipped", 0.0, "77"))

    def test_ctest_that_ends_badly_without_a_failed_test_has_failed(self):
        good = '<testcase name="one"/>'
        self.assertEqual(self.of(-9, good)[1:], [
            Case("ctest", "failed", 0.0, "ended with -9, but no test failed")])
        self.assertEqual(len(self.of(8, good, '<testcase name="none"/>')), 2)
        skipped, ended = self.of(8, '<testcase name="one"><skipped/></testcase>')
        self.assertEqual((skipped.outcome, ended.text),
                         ("skipped", "ended with 8, but no test failed"))
        self.assertEqual(len(self.of(0, good)), 1)

    def test_ctest_without_a_report_or_a_test_has_failed(self):
        self.assertEqual(self.of(0, output="words\n")[0].text,
                         f"reported no case in {self.root}/ctest.xml\nwords")
        case, = results.of_ctest(self.root / "none.xml", self.root, 0, "x\n" * 99)
        self.assertEqual((case.name, case.outcome, case.seconds), ("ctest", "failed", 0.0))
        self.assertEqual(case.text.splitlines(),
                         [f"left no report {self.root}/none.xml", *["x"] * 60])


if __name__ == "__main__":
    unittest.main()
