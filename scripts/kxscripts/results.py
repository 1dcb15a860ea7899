# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Counts test cases from the reports that test programs leave. What a program did not report is a
failure: a missing, an empty or a half-written report, one that names fewer cases than it says, and a
program that failed without a failed case."""
import dataclasses
import re
import xml.etree.ElementTree as ElementTree

from kxscripts import common

PASSED, FAILED, SKIPPED = "passed", "failed", "skipped"


@dataclasses.dataclass(frozen=True)
class Case:
    """One test case, or one step of the gate that can fail like one."""
    name: str
    outcome: str
    seconds: float = 0.0
    text: str = ""  # why it failed or was skipped


class BadReport(Exception):
    """A report cannot be counted; the text says why."""


def _parse(path):
    """The root element of a report."""
    try:
        data = path.read_bytes()
    except FileNotFoundError as error:
        raise BadReport(f"left no report {path}") from error
    # Test programs print characters that no XML file can hold, not even by number.
    data = re.sub(rb"[\0-\x08\x0b\x0c\x0e-\x1f]|&#(?:[0-8]|1[124-9]|2\d|3[01]);"
                  rb"|&#x0*(?:[0-8bcef]|1[0-9a-f]);", b"?", data, flags=re.IGNORECASE)
    try:
        return ElementTree.fromstring(data.decode("utf-8", errors="replace"))
    except ElementTree.ParseError as error:
        kind = "an empty" if not data.strip() else "a half-written"
        raise BadReport(f"left {kind} report {path}: {error}") from error


def _seconds(text):
    return float((text or "0").replace(",", ""))


def _text_of(element):
    """The message and the text of a failure or a skip, each once."""
    words = [element.get("message") or "", element.text or ""]
    if words[0].strip() in words[1]:
        words = words[1:]
    return "\n".join(word.strip() for word in words if word.strip())


def _outcome_of(case):
    """How a JUnit case ended, and why."""
    faults = [*case.findall("failure"), *case.findall("error")]
    if faults:
        return FAILED, "\n".join(filter(None, map(_text_of, faults)))
    skip = case.find("skipped")
    if skip is not None:
        return SKIPPED, _text_of(skip) or "no reason given"
    if case.get("status") in ("notrun", "disabled"):
        return SKIPPED, "disabled"
    return PASSED, ""


def _junit_cases(root):
    for suite in (root, *root.iter("testsuite")):
        found, stated = len(list(suite.iter("testcase"))), int(suite.get("tests") or 0)
        if found < stated:
            raise BadReport(f"reported {found} of {stated} cases")
    cases = []
    for case in root.iter("testcase"):
        name = ".".join(filter(None, (case.get("classname"), case.get("name"))))
        outcome, text = _outcome_of(case)
        cases.append(Case(name, outcome, _seconds(case.get("time")), text))
    return cases


QT_OUTCOMES = {"pass": PASSED, "xfail": None, "fail": FAILED, "xpass": FAILED, "bpass": SKIPPED,
               "bfail": SKIPPED, "bxpass": SKIPPED, "bxfail": SKIPPED}


def _qt_cases(root):
    """Every function and every row of QtTest's own format; its JUnit knows no rows."""
    cases = []
    for function in root.findall("TestFunction"):
        duration = function.find("Duration")
        seconds = _seconds(duration.get("msecs")) / 1000 if duration is not None else 0
        incidents = function.findall("Incident") + function.findall("Message[@type='skip']")
        for incident in incidents:
            tag = incident.findtext("DataTag") or ""
            name = f"{root.get('name')}::{function.get('name')}({tag})"
            text = incident.findtext("Description") or ""
            if incident.tag == "Message":
                cases.append(Case(name, SKIPPED, 0.0, text))
                continue
            outcome = QT_OUTCOMES.get(incident.get("type"), FAILED)
            if outcome is None or (outcome == PASSED and
                                   function.get("name") in ("initTestCase", "cleanupTestCase")):
                continue
            place = f"{incident.get('file')}:{incident.get('line')}: " if text else ""
            # A function tells the time of all its rows together: each gets its share.
            cases.append(Case(name, outcome, seconds / len(incidents), place + text))
    if root.find("Duration") is None:
        raise BadReport("ended before all its functions had run")
    return cases


def read(path):
    """The cases of a JUnit report or one of QtTest's. Raises BadReport; no cases are one, too."""
    root = _parse(path)
    cases = _qt_cases(root) if root.tag == "TestCase" else _junit_cases(root)
    if not cases:
        raise BadReport(f"reported no case in {path}")
    return cases


def of_program(name, report, status_is_good, output):
    """The cases of one test program, each with the program's name before its own.

    output   what the program printed, shown where the report does not tell what went wrong"""
    end = "\n".join(output.splitlines()[-common.TAIL:])
    try:
        cases = [dataclasses.replace(case, name=f"{name}: {case.name}") for case in read(report)]
    except BadReport as error:
        return [Case(name, FAILED, 0.0, f"{error}\n{end}".rstrip())]
    if not status_is_good and all(case.outcome != FAILED for case in cases):
        cases.append(Case(name, FAILED, 0.0, f"failed, but no case of it did\n{end}".rstrip()))
    return cases


def of_ctest(report, folder, status, output):
    """The cases of all programs that CTest ran.

    report   CTest's own JUnit: one case for each program
    folder   where each program left its report, called as CTest calls it"""
    try:
        programs = [case for case in _parse(report).iter("testcase")]
        listed = read(report)
    except BadReport as error:
        end = "\n".join(output.splitlines()[-common.TAIL:])
        return [Case("ctest", FAILED, 0.0, f"{error}\n{end}".rstrip())]
    cases = []
    for program, entry in zip(programs, listed):
        name = program.get("name")
        printed = program.findtext("system-out") or ""
        if entry.outcome == SKIPPED:
            reason = [line.strip() for line in printed.splitlines() if line.strip()]
            cases.append(Case(name, SKIPPED, 0.0, reason[-1] if reason else entry.text))
            continue
        cases += of_program(name, folder / f"{name}.xml", entry.outcome == PASSED, printed)
    if status != 0 and all(case.outcome != FAILED for case in cases):
        cases.append(Case("ctest", FAILED, 0.0, f"ended with {status}, but no test failed"))
    return cases
