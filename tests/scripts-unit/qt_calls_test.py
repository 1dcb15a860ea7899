# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The list of what of Qt is used, and how it is made of Qt's documentation."""
import unittest

from kxscripts import qt_calls, qt_versions
from kxscripts.qt_calls import Use
from played import InProject

USES = {"QFont": Use("qfont.h", 56, "a.cpp:1"),
        "QProcess::errorOccurred(QProcess::ProcessError)": Use("qprocess.h", 304, "a.cpp:2")}
INDEX = """<INDEX><root>
<class name="QProcess" location="qprocess.h" lineno="110" status="active">
  <enum name="ProcessError" fullname="QProcess::ProcessError" location="qprocess.h" lineno="114">
    <value name="FailedToStart"/><value name="Crashed"/></enum>
  <function name="errorOccurred" fullname="QProcess::errorOccurred" since="5.6" location="qprocess.h"
            lineno="304"/>
  <function name="kill" fullname="QProcess::kill" location="qprocess.h" lineno="305"/>
  <function name="of" fullname="QProcess::of" location="qprocess.h" lineno="306" since="5.2"/>
  <function name="of" fullname="QProcess::of" location="qprocess.h" lineno="307" since="5.10"/>
</class>
<class name="QNew" since="5.14" location="qnew.h" lineno="1">
  <function name="old" fullname="QNew::old" location="qnew.h" lineno="2"/></class>
</root></INDEX>"""
PAGE = """<tr><td class="a"><code>QProcess::Crashed</code></td><td>1</td>
<td>It crashed. (This value was introduced in Qt 5.2&#x2e;)</td></tr>
<tr><td class="a"><code>QProcess::FailedToStart</code></td><td>0</td><td>Not there</td></tr>"""


class List(InProject):
    """The list, compared with what is used."""

    def problems(self, versions, limit=(5, 7)):
        """What is told."""
        return list(qt_calls.problems(USES, versions, limit))

    def test_what_is_there_and_old_enough_is_accepted(self):
        self.assertEqual(self.problems(dict.fromkeys(USES, "5.7")), [])

    def test_what_is_missing_is_told_with_its_place(self):
        problem, = self.problems({"QFont": "4.0"})
        self.assertTrue(problem.startswith(
            "a.cpp:2: QProcess::errorOccurred(QProcess::ProcessError) is not in docs/qt-calls.md; "))

    def test_what_is_newer_is_told_by_numbers(self):
        versions = {**dict.fromkeys(USES, "5.6"), "QFont": "5.10"}
        self.assertEqual(self.problems(versions), [
            "a.cpp:1: QFont came with Qt 5.10, and the updater is built with Qt 5.7, too; take "
            "something that is there"])

    def test_what_is_not_used_any_more_is_told(self):
        problem, = self.problems({**dict.fromkeys(USES, "5.6"), "QLabel": "4.0"})
        self.assertTrue(problem.startswith("docs/qt-calls.md: QLabel is not used any more; "))

    def test_the_list_reads_what_was_written(self):
        versions = {"QFont": "4.0", "QFlags::QFlags<T>(Enum)": "5.10"}
        self.write(qt_calls.LIST, qt_versions.text_of(versions, (5, 7)))
        self.assertEqual(qt_calls.listed(self.root), versions)

    def test_the_oldest_version_is_the_builds(self):
        self.write("CMakeLists.txt", "find_package(Qt5 5.9 REQUIRED COMPONENTS Core)")
        self.assertEqual(qt_calls.oldest(self.root), (5, 9))
        self.write("CMakeLists.txt", "find_package(Qt5 REQUIRED)")
        self.expect_failed("CMakeLists.txt asks for no version of Qt",
                           lambda: qt_calls.oldest(self.root))


class Documentation(InProject):
    """Versions from Qt's documentation."""

    def setUp(self):
        super().setUp()
        for module in qt_versions.MODULES:
            self.write(f"doc/{module}/{module}.index", "<INDEX/>")
        self.write("doc/qtcore/qtcore.index", INDEX)
        self.write("doc/qtcore/qprocess.html", PAGE)
        self.found = qt_versions.Documentation(self.root / "doc")

    def version(self, name, header="qprocess.h", line=1):
        """The version of something that a header declares in a line."""
        return self.found.version_of(name, Use(header, line, ""))

    def test_a_place_in_a_header_tells_overloads_apart(self):
        self.assertEqual(self.version("QProcess::of(int)", line=306), "5.2")
        self.assertEqual(self.version("QProcess::of(char)", line=307), "5.10")
        self.assertIsNone(self.version("QProcess::of(long)", line=999))

    def test_a_name_tells_where_there_is_one_version(self):
        self.assertEqual(self.version("QProcess::errorOccurred(int)", line=999), "5.6")
        self.assertEqual(self.version("QProcess::kill()", line=305), "4.0")

    def test_a_member_is_not_older_than_its_class(self):
        self.assertEqual(self.version("QNew::old()", "qnew.h", 2), "5.14")

    def test_constants_are_as_old_as_their_type_or_as_told_in_the_text(self):
        self.assertEqual(self.version("QProcess::FailedToStart", line=115), "4.0")
        self.assertEqual(self.version("QProcess::Crashed", line=116), "5.2")

    def test_what_is_told_nowhere_is_none(self):
        self.assertIsNone(self.version("QSecret::call()", "qsecret.h", 7))

    def test_a_module_without_its_index_is_refused(self):
        (self.root / "doc/qtgui/qtgui.index").unlink()
        self.expect_failed(f"there is no {self.root}/doc/qtgui/qtgui.index",
                           lambda: qt_versions.Documentation(self.root / "doc"))


if __name__ == "__main__":
    unittest.main()
