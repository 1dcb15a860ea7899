# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What built programs need, and the documentation's tables about it; readelf is played."""
import subprocess
import unittest

from kxscripts import needs
from played import InProject

ARM = """ELF Header:
  Class:                             ELF32
  Machine:                           ARM
  Flags:                             0x5000400, Version5 EABI, hard-float ABI
      [Requesting program interpreter: /lib/ld-linux-armhf.so.3]
 0x00000001 (NEEDED)                     Shared library: [libm.so.6]
 0x00000001 (NEEDED)                     Shared library: [libc.so.6]
Version needs section '.gnu.version_r' contains 2 entries:
  000000: Version: 1  File: libc.so.6  Cnt: 3
  0x0010:   Name: GLIBC_2.4  Flags: none  Version: 3
  0x0020:   Name: GLIBC_2.34  Flags: none  Version: 5
  0x0030:   Name: GLIBC_2.9  Flags: none  Version: 6
  0x0040:   Name: Qt_5_PRIVATE_API  Flags: none  Version: 7
Attribute Section: aeabi
  Tag_CPU_arch: v7
  Tag_ABI_VFP_args: VFP registers
"""
SYSTEM = "| armhf | 32-bit ARM, v7, hard float | `/lib/ld-linux-armhf.so.3` |"
ROWS = [f"| `{name}` | armhf | `libc.so.6` `libm.so.6` | GLIBC_2.34 Qt_5_PRIVATE_API |"
        for name in needs.PROGRAMS]


class Played(InProject):
    """Programs of a build, as readelf would tell them."""

    def setUp(self):
        super().setUp()
        self.text, self.status = ARM, 0
        self.patch(subprocess, "run", lambda words, **_: subprocess.CompletedProcess(
            words, self.status, self.text, "no such file"))

    def page(self, *rows):
        """The documentation with some rows."""
        self.write(needs.PAGE, "\n".join(("# Page", *rows, "| `x` | arm64 | y | z |", "")))


class Reading(Played):
    """What readelf prints."""

    def test_a_program_tells_its_kind_its_loader_and_its_libraries(self):
        found = needs.read("program")
        self.assertEqual(found, needs.Needs(
            "32-bit ARM, v7, hard float", "/lib/ld-linux-armhf.so.3", ["libc.so.6", "libm.so.6"],
            ["GLIBC_2.34", "Qt_5_PRIVATE_API"]))

    def test_other_numbers_and_other_processors_are_told(self):
        self.text = ARM.replace("hard-float", "soft-float")
        self.assertEqual(needs.read("program").kind, "32-bit ARM, v7, soft float")
        self.text = ARM.replace("   ARM\n", "   MIPS R3000\n").replace("hard-float", "o32")
        self.assertEqual(needs.read("program").kind, "MIPS R3000, v7")

    def test_what_is_no_program_is_refused(self):
        self.status = 1
        self.expect_failed("program is no program that needs libraries: no such file",
                           lambda: needs.read("program"))
        self.status, self.text = 0, ARM.replace("NEEDED", "RUNPATH")
        self.expect_failed("program is no program that needs libraries: no such file",
                           lambda: needs.read("program"))

    def test_versions_are_compared_as_numbers(self):
        self.assertEqual(needs.newest(["A_1.9", "A_1.10", "A_1.10.1", "B_2", "C"]),
                         ["A_1.10.1", "B_2", "C"])


class Comparing(Played):
    """The tables."""

    def test_tables_that_fit_are_accepted(self):
        self.page(SYSTEM, *ROWS)
        needs.check(self.root, "armhf")

    def test_each_row_that_differs_is_told_from_both_sides(self):
        newer = ROWS[0].replace("2.34", "2.36")
        self.page(SYSTEM, newer, *ROWS[1:])
        with self.assertRaises(needs.Failed) as caught:
            needs.check(self.root, "armhf")
        self.assertEqual(str(caught.exception).splitlines()[:2], [
            f"docs/building.md lacks this row about the programs in build/armhf: {ROWS[0]}",
            f"docs/building.md has a row that does not fit the programs in build/armhf: {newer}"])

    def test_a_processor_without_rows_is_no_success(self):
        self.page()
        with self.assertRaises(needs.Failed) as caught:
            needs.check(self.root, "armhf")
        self.assertEqual(str(caught.exception).count("lacks this row"), 4)


if __name__ == "__main__":
    unittest.main()
