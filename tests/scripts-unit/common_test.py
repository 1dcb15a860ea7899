# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What all scripts share: building quietly, the list of sources, and how a script ends."""
import os
import shutil
import signal
import subprocess
import sys
import unittest
from unittest import mock

from kxscripts import common, processes
from played import PROJECT, InProject


class Telling(InProject):
    """Headlines, ends of logs."""

    def test_a_headline_stands_by_itself(self):
        self.tell(common.say, "building")
        self.assertEqual(self.out, "\n== building\n")

    def test_a_headline_is_told_at_once(self):
        stream = self.patch(sys, "stdout", mock.Mock())
        common.say("building")
        stream.flush.assert_called_once()

    def test_the_end_of_a_log(self):
        log = self.write("log", "".join(f"{number}\n" for number in range(100)))
        self.assertEqual(common.tail_of(log), "\n".join(map(str, range(40, 100))))
        self.assertEqual(common.tail_of(log, 2), "98\n99")
        self.assertEqual([common.tail_of(self.root / name) for name in ("none", ".")], ["", ""])
        log.write_bytes(b"a\xffb\n")
        self.assertEqual(common.tail_of(str(log)), "a\N{REPLACEMENT CHARACTER}b")

    def test_the_root_is_the_project(self):
        self.assertEqual(common.ROOT, PROJECT)


class SettingUp(InProject):
    """Installing what is missing."""

    def test_the_groups_are_those_that_were_asked_for(self):
        self.patch(common, "ROOT", self.root)
        script = self.write("scripts/setup", f'#!/bin/sh\necho "$*" >>{self.root}/log\n', 0o755)
        common.setup("build", "test")
        self.assertEqual((self.root / "log").read_text(encoding="utf-8"), "build test\n")

        script.write_text("#!/bin/sh\nexit 3\n", encoding="utf-8")
        self.expect_failed("what is missing could not be installed", common.setup)


class Building(InProject):
    """cmake is played."""

    def test_it_configures_and_builds_quietly(self):
        for targets, more in (((), ""), (("a", "b"), " --target a b")):
            commands = self.played(printed={"cmake": "words\n"})
            self.assertIsNone(self.tell(common.build, "dev", *targets, root=self.root))
            self.assertEqual(commands.lines,
                             ["cmake --preset dev", f"cmake --build --preset dev{more}"])
            self.assertEqual(set(commands.folders), {self.root})
            self.assertEqual((self.out, self.err), ("", ""))
            self.assertEqual((self.root / "build/dev.log").read_text(encoding="utf-8"),
                             "words\nwords\n")

    def test_what_cannot_be_configured_is_not_built(self):
        commands = self.played(statuses={"cmake --preset": 1}, printed={"cmake": "why\n"})
        self.assertEqual(common.try_build("dev", root=self.root),
                         "why\nbuilding the preset dev failed; all of it: build/dev.log")
        self.assertEqual(len(commands.seen), 1)

    def test_what_a_signal_has_ended_is_not_built(self):
        for command, count in (("cmake --preset", 1), ("cmake --build", 2)):
            commands = self.played(statuses={command: -9})
            self.assertEqual(common.try_build("dev", root=self.root),
                             "\nbuilding the preset dev failed; all of it: build/dev.log")
            self.assertEqual(len(commands.seen), count)

    def test_a_failure_is_told_with_the_end_of_the_log(self):
        self.played(statuses={"cmake --build": 2},
                    printed={"cmake --build": "".join(f"{number}\n" for number in range(100))})
        self.expect_failed("building the preset dev failed; all of it: build/dev.log",
                           common.build, "dev", root=self.root)
        self.assertEqual(self.err.splitlines(), [str(number) for number in range(40, 100)])
        self.assertEqual(self.out, "")

    def test_the_program_builds_in_the_working_directory(self):
        before = os.getcwd()
        self.addCleanup(os.chdir, before)
        os.chdir(self.root)
        commands = self.played(statuses={"cmake --build --preset bad": 1})

        self.assertEqual(self.main(common, "build", "dev", "a"), 0)
        self.assertEqual(commands.lines[1], "cmake --build --preset dev --target a")
        self.assertEqual(self.main(common, "build", "bad"), 1)
        self.assertEqual(self.err.splitlines()[-1],
                         "building the preset bad failed; all of it: build/bad.log")
        self.write("b c.txt")
        self.write("a.cpp")
        self.assertEqual(self.main(common, "sources", "*.txt", "*.cpp"), 0)
        self.assertEqual(self.out, "a.cpp\nb c.txt\n")
        self.assertEqual(self.main(common, "sources", "*.none"), 1)
        with self.assertRaises(AssertionError):
            self.main(common, "other")


class Sources(InProject):
    """The list of sources."""

    def git(self, *words):
        """Asks git."""
        settings = {"GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_SYSTEM": "/dev/null"}
        subprocess.run(["git", *words], cwd=self.root, check=True, capture_output=True,
                       env=os.environ | settings)

    def test_git_knows_or_would_add_them(self):
        self.git("init", "-q")
        self.write(".gitignore", "*.o\n")
        names = ["new\nline.cpp", "src/b.cpp", "src/umläut.h", "z.txt"]
        for name in (*names, "a.o", "gone.cpp"):
            self.write(name)
        (self.root / "link").symlink_to("nowhere")
        self.git("add", "src", "gone.cpp")
        (self.root / "gone.cpp").unlink()

        self.assertEqual(self.tell(common.sources, root=self.root), sorted([".gitignore", "link",
                                                                            *names]))
        self.assertEqual(self.err, "")
        self.assertEqual(common.sources("*.h", "src/*", root=self.root), names[1:3])
        self.assertEqual(common.sources("*.CPP", "Z*", "z*", root=self.root), ["z.txt"])
        self.expect_failed(f"no source in {self.root} *.x *.y", common.sources, "*.x", "*.y",
                           root=self.root)

    def test_a_file_in_conflict_is_one_source(self):
        self.git("init", "-q")
        self.write("a.cpp")
        for stage in "123":
            subprocess.run(["git", "update-index", "--index-info"], cwd=self.root, check=True,
                           input=f"100644 {'1' * 40} {stage}\ta.cpp\n", text=True)
        self.assertEqual(common.sources(root=self.root), ["a.cpp"])

    def test_a_script_is_told_of_the_same_ones_to_its_end(self):
        self.write("a.cpp")
        self.tell(common.sources, root=self.root)
        self.write("b.cpp")
        self.assertEqual(self.tell(common.sources, root=self.root), ["a.cpp"])
        self.assertEqual(self.err, "")

    def test_without_a_repository_every_file_but_those_that_are_made_is_one(self):
        for folder in ("build", ".hg", ".svn", ".cache", "__pycache__", "src/build", "src/.git",
                       ".github"):
            self.write(f"{folder}/x.cpp")
        self.write("src/buildx/b.cpp")
        self.write("a.cpp")

        self.assertEqual(self.tell(common.sources, root=self.root),
                         [".github/x.cpp", "a.cpp", "src/buildx/b.cpp"])
        self.assertEqual(self.err, f"No repository in {self.root}: every file outside of build/ "
                                   "counts as a source.\n")

    def test_a_work_tree_without_its_repository_has_no_sources(self):
        self.write(".git", "gitdir: /nowhere/at/all\n")
        self.write("a.cpp")
        with self.assertRaisesRegex(common.Failed, "^git cannot tell the files of this folder:\n"
                                                   "fatal: not a git repository"):
            common.sources(root=self.root)

    def test_git_that_fails_or_is_missing_is_told(self):
        self.git("init", "-q")
        tool = self.write("bin/git", "#!/bin/sh\necho a.cpp\necho 'its words' >&2\nexit 3\n", 0o755)
        with mock.patch.dict(os.environ, {"PATH": str(tool.parent)}):
            self.expect_failed("git cannot tell the files of this folder:\nits words",
                               common.sources, root=self.root)
            tool.unlink()
            self.expect_failed("git is missing; scripts/setup installs it", common.sources,
                               root=self.root)

    def test_a_folder_without_files_is_an_error(self):
        self.expect_failed(f"no source in {self.root}", common.sources, root=self.root)


class Ending(InProject):
    """How a script ends."""

    def test_its_work_tells_the_exit_status(self):
        self.assertEqual([common.run_script("x", lambda: status) for status in (0, 2)], [0, 2])

    def test_what_fails_is_told_and_ends_with_one(self):
        for problem in (common.Failed("no luck"), OSError("no luck")):
            def work():
                raise problem  # pylint: disable=cell-var-from-loop
            self.assertEqual(self.tell(common.run_script, "scripts/x", work), 1)
            self.assertEqual((self.out, self.err), ("", "scripts/x: no luck\n"))

    def test_other_faults_are_those_of_the_script(self):
        with self.assertRaises(ZeroDivisionError):
            common.run_script("x", lambda: 1 // 0)

    def test_a_signal_ends_it_with_all_that_it_has_started(self):
        stopped = self.patch(processes, "stop_all", mock.Mock())
        for number in (signal.SIGTERM, signal.SIGINT):
            status = self.tell(common.run_script, "scripts/x",
                               lambda: os.kill(os.getpid(), number))  # pylint: disable=W0640
            self.assertEqual(status, 128 + number)
            self.assertEqual(self.err, f"scripts/x: interrupted by {number.name}\n")
        self.assertEqual(stopped.call_count, 2)

    def test_a_second_signal_does_not_disturb_the_end(self):
        ended = []

        def stop_all():
            for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT):
                os.kill(os.getpid(), number)
            ended.append(True)
        self.patch(processes, "stop_all", stop_all)
        status = self.tell(common.run_script, "x", lambda: os.kill(os.getpid(), signal.SIGTERM),
                           ": more")
        self.assertEqual((status, ended, self.err),
                         (143, [True], "x: interrupted by SIGTERM: more\n"))

    def test_what_went_wrong_is_told_at_once(self):
        for work in (lambda: self.fail_with(common.Failed("why")),
                     lambda: os.kill(os.getpid(), signal.SIGTERM)):
            self.patch(processes, "stop_all", mock.Mock())
            stream = mock.Mock()
            with mock.patch("sys.stderr", stream):
                common.run_script("x", work)
            self.assertEqual(stream.mock_calls[-1], mock.call.flush())

    @staticmethod
    def fail_with(problem):
        """Raises it."""
        raise problem

    def test_each_script_starts_its_program(self):
        # In a tree where nothing can be set up, should one of them not see the option.
        shutil.copytree(PROJECT / "scripts/kxscripts", self.root / "scripts/kxscripts",
                        ignore=shutil.ignore_patterns("__pycache__"))
        for name, text in (
                ("check", "A check that finds nothing to look at has failed. positional arguments: "
                          "CHECK all by default: format, layers, headers, spelling, shell, qt, "
                          "needs, odr, reproducible, tidy"),
                ("check-reproducible", "are the same bytes"), ("coverage", "below 95 percent"),
                ("fuzz", "MINUTES [TARGET ...]"), ("test", "Ends with 0 only when")):
            script = shutil.copy(PROJECT / "scripts" / name, self.root / "scripts")
            link = self.root / f"linked-{name}"
            link.symlink_to(script)
            told = subprocess.run([link, "--help"], capture_output=True, cwd="/", text=True,
                                  check=False)
            self.assertEqual((told.returncode, told.stderr), (0, ""), name)
            words = " ".join(told.stdout.split())
            self.assertIn(f"usage: scripts/{name} [-h]", words)
            self.assertIn(text, words)
        self.assertEqual(list(self.root.rglob("__pycache__")), [])


if __name__ == "__main__":
    unittest.main()
