# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What scripts/check asks of its tools, and what it makes of their answers."""
import json
import os
import pathlib
import signal
import subprocess
import threading
import unittest
from unittest import mock

from kxscripts import checks, common, processes, reproducible
from played import InProject


class InProject(InProject):
    """A folder with some sources; the tools are played."""

    def setUp(self):
        super().setUp()
        self.patch(checks, "ROOT", self.root)
        self.patch(common, "ROOT", self.root)
        # The folder of the project is a default of these.
        self.sources = ["a.h", "src/b.cpp", "run"]
        self.patch(common, "_all_sources", mock.Mock(
            side_effect=lambda root: sorted(self.sources), cache_clear=lambda: None))
        self.built = self.patch(common, "build", mock.Mock()).call_args_list

    def builds(self):
        """What was built."""
        return [call.args for call in self.built]

    def compiled(self, preset, *files):
        """Makes the compilation database of a build."""
        self.write(f"build/{preset}/compile_commands.json", json.dumps(
            [{"file": str(file), "command": f"c++ {number}", "directory": "/"}
             for number, file in enumerate(files)]))


class Checks(InProject):
    """Each check by itself."""

    def test_format_reads_every_source_and_header(self):
        self.sources += ["x.txt", "tests/c.cpp", "d.cpp.in", "e.hpp"]
        commands = self.played()
        checks.check_format()
        self.assertEqual(commands.lines,
                         ["clang-format --dry-run -Werror a.h src/b.cpp tests/c.cpp"])
        self.assertEqual(commands.folders, [self.root])

    def test_a_tool_that_complains_or_is_missing_fails(self):
        for status in (1, 127, -9):
            self.played(statuses={"/usr/bin/tool": status})
            self.expect_failed(f"tool ended with {status}", checks.run, "/usr/bin/tool", "x")
        self.played()
        checks.run("tool")

    def test_layers_are_checked_by_their_program(self):
        commands = self.played(statuses={"/usr/bin/python3": 1})
        self.expect_failed("python3 ended with 1", checks.check_layers)
        self.assertEqual(commands.lines, ["/usr/bin/python3 -B scripts/check-layers.py"])

    def test_spelling_reads_all_but_translations_pictures_and_fuzzed_inputs(self):
        self.sources = ["a.ts", "a.png", "tests/fuzz/corpus/x", "tests/fuzz/corpusx", "a.tsx",
                        "pngs", "x/tests/fuzz/corpus/y"]
        commands = self.played()
        checks.check_spelling()
        self.assertEqual(commands.lines,
                         ["codespell a.tsx pngs tests/fuzz/corpusx x/tests/fuzz/corpus/y"])

    def test_shell_reads_what_a_shell_runs(self):
        shells = {"a": "#!/bin/sh", "b": "#!/usr/bin/env bash", "c": "#!/bin/dash ",
                  "d": "#! bats", "e": "#!/usr/bin/bash", "o": "# shellcheck shell=bash",
                  "l": "#!/bin/sh -e"}
        others = {"f": "#!/usr/bin/python3", "g": "#!/bin/zsh", "h": "#!/bin/shx", "i": "/bin/sh",
                  "j": "", "k": "#!/bin/fish", "p": "# shellcheck disable=SC1", "q": " #!/bin/sh",
                  "m": "x\n#!/bin/sh", "n": "#" + "x" * 200 + "!/bin/sh"}
        for name, line in (shells | others).items():
            self.write(name, f"{line}\nmore\n")
        self.sources = [*shells, *others]
        commands = self.played()
        checks.check_shell()
        self.assertEqual(commands.lines, [f"shellcheck -x {' '.join(sorted(shells))}"])

        self.sources = list(others)
        self.expect_failed("no script of the shell", checks.check_shell)

    def test_headers_must_be_compiled_alone(self):
        self.sources += ["src/osa/Sum.h", "lib/io/Text.h", "tools/t/common/Out.h", "tests/T.h",
                         "src/x.hpp"]
        parts = [self.write(f"build/dev/tests/headers/{number}.cpp", text)
                 for number, text in enumerate(('#include "osa/Sum.h"\n#include "other/X.h"\n',
                                                '#include "io/Text.h"\n',
                                                '#include "common/Out.h"\n'))]
        apart = self.write("build/dev/apart.cpp", '#include "more/Left.h"\n')
        self.compiled("dev", *parts, apart)
        checks.check_headers()
        self.assertEqual(self.builds(), [("dev", "kx_headers")])

        self.sources += ["src/osa/MySum.h", "lib/other/X.h", "lib/studio/Text.h", "src/more/Left.h",
                         "tools/t/Out.h"]
        self.expect_failed("tests/headers.cmake leaves out: lib/other/X.h lib/studio/Text.h "
                           "src/more/Left.h src/osa/MySum.h tools/t/Out.h", checks.check_headers)

    def test_one_definition_of_each_type_is_asked_of_both_programs(self):
        checks.check_odr()
        self.assertEqual(self.builds(), [("lto", "kx_Updater", "kx-package", "kx-panel")])

    def test_reproducible_compares_this_project(self):
        checked = self.patch(reproducible, "check", mock.Mock())
        checks.check_reproducible()
        checked.assert_called_once_with(self.root)


class Tidy(InProject):
    """clang-tidy is played."""

    def setUp(self):
        super().setUp()
        self.targets = ("gui_autogen: phony\nCMakeFiles/x_autogen: phony\n/abs_autogen: phony\n"
                        "sub/b_autogen: phony\nc_autogen: CUSTOM\nall: phony\n")
        self.asked = self.patch(subprocess, "run", mock.Mock(
            side_effect=lambda *_, **__: mock.Mock(stdout=self.targets)))

    def test_each_compiled_file_is_read_once(self):
        self.compiled("tidy", "/x/src/b.cpp", "/x/src/b.cpp", "/x/tests/a.cpp",
                      "/x/mocs_compilation.cpp", "/x/tests/headers/c.cpp", "/x/qrc_d.cpp")

        self.assertEqual(checks.read_by_tidy(), ["/x/src/b.cpp", "/x/tests/a.cpp"])
        self.assertEqual(self.asked.call_args.args[0],
                         ["ninja", "-C", "build/tidy", "-t", "targets", "all"])
        self.assertTrue(self.asked.call_args.kwargs["check"])
        self.assertEqual(self.asked.call_args.kwargs["cwd"], self.root)
        once = json.loads((self.root / "build/tidy/once/compile_commands.json")
                          .read_text(encoding="utf-8"))
        self.assertEqual([entry["command"] for entry in once if entry["file"] == "/x/src/b.cpp"],
                         ["c++ 0"])
        self.assertEqual(self.builds()[0], ("tidy", "kx_forms"))
        self.assertEqual(self.builds()[-1], ("tidy", "gui_autogen", "sub/b_autogen"))

        self.built.clear()
        self.targets = "all: phony\n"
        checks.read_by_tidy()
        self.assertNotIn(("tidy",), self.builds())

    def unity(self, name, *sources):
        """Makes a file that compiles several sources. Returns its path."""
        return self.write(f"build/tidy/tests/{name}/Unity/unity_0.cxx",
                          "".join(f'#include "{source}"\n' for source in sources))

    def entries(self, *files_and_options):
        """Makes the compilation database of files with their options."""
        self.write("build/tidy/compile_commands.json", json.dumps(
            [{"file": str(file), "directory": "/built",
              "command": f"/usr/bin/c++ {options} -o x.o -c {file}"}
             for file, options in files_and_options]))

    def test_tests_with_the_same_options_are_read_together(self):
        one = self.unity("one", "/x/tests/a.cpp", "/x/tests/b.cpp")
        two = self.unity("two", "/x/tests/b.cpp", "/x/tests/c.cpp")
        other = self.unity("other", "/x/tests/d.cpp")
        product = self.unity("../src", "/x/src/e.cpp").resolve()
        self.entries(
            (product, "-DA -I/x/src"), (one, "-DA -I/x/src -I/b/autogen/one"),
            (two, "-I/x/src -DA -I/b/autogen/two"), (other, "-DB"),
            ("/x/tests/alone.cpp", "-DA -I/x/src"), ("/x/tests/apart.cpp", "-I/x/src -DA"),
            ("/x/tests/fuzz/f.cpp", "-DA -I/x/src"), ("/x/tests/bench/g.cpp", "-DA -I/x/src"))

        files = [pathlib.Path(file) for file in checks.read_by_tidy()]

        together = self.root / "build/tidy/once/tests"
        self.assertEqual(files[0], together / "2.cxx", "the longest comes first")
        self.assertEqual(set(files), {
            together / "0.cxx", together / "2.cxx", other, product,
            pathlib.Path("/x/tests/fuzz/f.cpp"), pathlib.Path("/x/tests/bench/g.cpp")})
        self.assertEqual(checks.sources_of(str(files[0])),
                         ["/x/tests/b.cpp", "/x/tests/c.cpp", "/x/tests/a.cpp"])
        self.assertEqual(checks.sources_of(str(together / "0.cxx")),
                         ["/x/tests/apart.cpp", "/x/tests/alone.cpp"])
        # Each program has a main function of its own.
        self.assertEqual(files[0].read_text(encoding="utf-8").splitlines()[3:6],
                         ["#undef main", "#define main main_1", '#include "/x/tests/c.cpp"'])
        once = {entry["file"]: entry for entry in json.loads(
            (together.parent / "compile_commands.json").read_text(encoding="utf-8"))}
        self.assertEqual(once[str(files[0])], {
            "directory": "/built", "file": str(files[0]),
            "arguments": ["c++", "-I/x/src", "-DA", "-I/b/autogen/two", "-I/b/autogen/one",
                          "-Wno-shadow", "-c", str(files[0])]})
        self.assertIn("-DB", once[str(other)]["command"])

    def test_product_and_tests_are_read_for_their_checks(self):
        commands = self.played()
        for file in ("/x/src/a.cpp", "/x/tests/a.cpp"):
            self.assertEqual(checks.tidy_one(file), (0, []))
        product, tests = commands.seen
        self.assertEqual(product[:5], ["clang-tidy", "-p", "build/tidy/once", "--quiet",
                                       "--extra-arg=-Wno-unknown-warning-option"])
        self.assertEqual(product[5:], ["--checks=-bugprone-suspicious-include", "/x/src/a.cpp"])
        self.assertEqual(tests[5:], [
            "--checks=-clang-analyzer-*,-bugprone-exception-escape,-bugprone-reserved-identifier,"
            "-bugprone-suspicious-include,-readability-convert-member-functions-to-static",
            "/x/tests/a.cpp"])
        self.assertEqual(commands.folders, [self.root] * 2)

    def test_tests_are_those_of_the_project_wherever_it_lies(self):
        self.patch(checks, "ROOT", pathlib.Path("/tests/project"))
        for file, is_test in (("/tests/project/src/a.cpp", False), ("/tests/other/a.cpp", False),
                              ("/tests/project/tests/a.cpp", True),
                              ("/tests/project/build/tidy/tests/a.cpp", True),
                              ("/tests/project/src/tests.cpp", False)):
            self.assertIs(checks.is_test(file), is_test, file)

    def test_findings_are_told_without_their_number(self):
        self.played(statuses={"clang-tidy": 1},
                    printed={"clang-tidy": "12 warnings generated.\n3 warnings and 1 error generated."
                                           "\na.cpp:1: found \udcff\n  code generated.\n"})
        self.assertEqual(checks.tidy_one("a.cpp"),
                         (1, ["a.cpp:1: found \N{REPLACEMENT CHARACTER}", "  code generated."]))

    def check(self, *files, **keywords):
        """Reads these files."""
        self.patch(checks, "read_by_tidy", lambda: list(files))
        self.played(**keywords)
        return self.tell(checks.check_tidy)

    def test_every_file_is_read_and_the_bad_ones_are_told(self):
        self.patch(checks, "tidy_one", lambda file: (int("bad" in file), [file, "words"]))
        with self.assertRaisesRegex(common.Failed, "^clang-tidy refuses 2 of 3 files; where names clash "
                                    "because tests are read together, give one of them another"):
            self.check("bad1", "good", "bad2")
        self.assertEqual(self.out, "bad1\nwords\nbad2\nwords\n")

        self.assertIsNone(self.check("good", "good2"))
        self.assertEqual(self.out, "")

    def test_no_file_is_an_error(self):
        with self.assertRaisesRegex(common.Failed,
                                    "^no file in build/tidy/compile_commands.json$"):
            self.check()

    def test_all_processors_read(self):
        together = threading.Barrier(3)
        self.patch(os, "cpu_count", lambda: 3)
        self.patch(checks, "tidy_one", lambda file: (together.wait(10) * 0, []))
        self.check("a", "b", "c")

    def test_an_interrupt_lets_no_further_file_be_read(self):
        read = []
        self.patch(processes, "_stopping", False)
        self.patch(os, "cpu_count", lambda: 1)
        stopped = threading.Event()

        def one(file):
            read.append(file)
            if len(read) == 1:
                signal.pthread_kill(threading.main_thread().ident, signal.SIGTERM)
                stopped.wait(10)
            if stopped.is_set():
                raise processes.Stopped
            return 0, []
        self.patch(checks, "tidy_one", one)
        self.patch(processes, "stop_all", stopped.set)
        with self.assertRaises(processes.Interrupted), processes.signals_end_the_script():
            self.check("a", "b", "c")
        self.assertTrue(stopped.is_set())


class Main(InProject):
    """The program."""

    def setUp(self):
        super().setUp()
        self.done = []
        self.patch(checks, "CHECKS", {
            "good": lambda: self.done.append("good"), "failed": self.fails(common.Failed("why")),
            "os": self.fails(OSError("gone")), "value": self.fails(ValueError("odd")),
            "tool": self.fails(subprocess.CalledProcessError(3, "x"))})

    def fails(self, problem):
        """A check that raises something."""
        def check():
            self.done.append(problem)
            raise problem
        return check

    def test_all_are_made_by_default_and_each_failure_is_told(self):
        self.assertEqual(self.main(checks), 1)
        self.assertEqual(len(self.done), 5)
        self.assertEqual(self.err.splitlines(), [
            "check failed: why", "check os: gone", "check value: odd",
            "check tool: Command 'x' returned non-zero exit status 3.",
            "scripts/check: failed: failed os value tool"])
        self.assertEqual(self.out.split(), "== check good == check failed == check os == check value "
                                           "== check tool".split())

    def test_those_that_are_named_are_made_in_their_order(self):
        self.assertEqual(self.main(checks, "good", "good"), 0)
        self.assertEqual((self.done, self.err), (["good", "good"], ""))
        self.assertEqual(self.out.splitlines()[-1], "== 2 checks passed")

    def test_an_unknown_one_is_refused_before_any_begins(self):
        self.assertEqual(self.main(checks, "good", "wrong"), 2)
        self.assertEqual(self.done, [])
        self.assertIn("scripts/check: error: unknown check 'wrong'\n", self.err)

    def test_a_signal_ends_them_with_what_they_have_started(self):
        stopped = self.patch(processes, "stop_all", mock.Mock())
        checks.CHECKS["good"] = lambda: os.kill(os.getpid(), signal.SIGINT)
        self.assertEqual(self.main(checks, "good", "os"), 130)
        self.assertEqual((self.done, self.err), ([], "scripts/check: interrupted by SIGINT\n"))
        stopped.assert_called_once_with()


class Names(unittest.TestCase):
    """The names of the checks."""

    def test_each_check_has_its_name(self):
        self.assertEqual({name: check.__name__ for name, check in checks.CHECKS.items()},
                         {name: f"check_{name}" for name in (
                             "format", "layers", "headers", "spelling", "shell", "qt", "needs",
                             "odr", "reproducible", "tidy")})


if __name__ == "__main__":
    unittest.main()
