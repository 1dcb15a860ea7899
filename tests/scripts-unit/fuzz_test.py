# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What scripts/fuzz asks of the fuzzers, and what it makes of how they end."""
import unittest
from unittest import mock

from kxscripts import common, fuzz
from played import PROJECT, InProject

DONE = ("INFO: seed \udcff\nstat::number_of_executed_units: 12\nstat::average_exec_per_sec: 3\n"
        "stat::peak_rss_mb: 40\nDone 12 runs in 4 second(s)\n")
FUZZER = "build/fuzz/tests/fuzz/fuzz_"


class Fuzz(InProject):
    """The fuzzers are played; each does its work unless the test says otherwise."""

    def setUp(self):
        super().setUp()
        self.patch(fuzz, "ROOT", self.root)
        self.groups = self.patch(common, "setup", mock.Mock()).call_args_list
        self.findings = self.root / "build/fuzz/findings"

    def fuzzed(self, *words, **keywords):
        """Starts the script; leaves its exit status and its commands."""
        self.commands = self.played(**{"printed": {FUZZER: DONE}, **keywords})
        self.status = self.main(fuzz, *words)

    def leaves(self, target, name):
        """What a fuzzer does that leaves a finding."""
        def does(words):
            if words[0] == FUZZER + target:
                prefix = next(word for word in words if word.startswith("-artifact_prefix="))
                with open(prefix.partition("=")[2] + name, "xb"):
                    pass
        return does

    def of(self, target):
        """The command line of a target's fuzzer, without its name."""
        return next(words[1:] for words in self.commands.seen if words[0] == FUZZER + target)

    def test_all_targets_share_the_time(self):
        self.fuzzed("10")

        self.assertEqual(self.status, 0)
        self.assertEqual(self.err, "")
        targets = list(fuzz.TARGETS)
        self.assertEqual(targets[:7], ["reader", "installer", "strings", "archive", "check",
                                       "manifest", "policy"])
        self.assertEqual(self.commands.lines[:2],
                         ["cmake --preset fuzz", "cmake --build --preset fuzz --target " +
                          " ".join(f"fuzz_{target}" for target in targets)])
        self.assertEqual([words[0] for words in self.commands.seen[2:]],
                         [FUZZER + target for target in targets])
        self.assertEqual(set(self.commands.folders), {self.root})
        self.assertEqual([call.args for call in self.groups], [("build", "tools", "test")])
        for target in targets:
            self.assertIn(f"-max_total_time={600 // len(targets)}", self.of(target))
        self.assertIn("\n== building the fuzzers\n", self.out)
        self.assertIn(f"\n== fuzzing manifest for {600 // len(targets)} seconds\n"
                      "stat::number_of_executed_units: 12\nstat::peak_rss_mb: 40\n"
                      "Done 12 runs in 4 second(s)\n", self.out)

    def test_a_fuzzer_reads_its_own_inputs_and_is_bounded(self):
        self.fuzzed("1", "strings", "check")

        folder = str(self.root / "build/fuzz")
        rest = ["-max_total_time=30", "-max_len=8192", "-timeout=20", "-rss_limit_mb=3072",
                "-malloc_limit_mb=1024"]
        self.assertEqual(self.of("strings"), [
            f"{folder}/corpus/strings", "tests/fuzz/corpus/strings", *rest,
            f"-artifact_prefix={folder}/findings/strings-", "-print_final_stats=1"])
        self.assertEqual(self.of("check"), [
            f"{folder}/corpus/check", "tests/fuzz/corpus/check",
            "-dict=tests/fuzz/description.dict", *rest,
            f"-artifact_prefix={folder}/findings/check-", "-print_final_stats=1"])
        self.assertTrue((self.root / "build/fuzz/corpus/check").is_dir())
        self.assertEqual(self.commands.lost, set())
        self.assertEqual(self.commands.added[2:], [{}] * 2)

    def test_every_target_has_its_inputs_and_what_it_reads_is_there(self):
        folders = [path.name for path in (PROJECT / "tests/fuzz/corpus").iterdir()]
        self.assertEqual(sorted(fuzz.TARGETS), sorted(folders))
        for target in ("reader", "installer", "check", "policy", "decision"):
            self.assertEqual(len(fuzz.TARGETS[target]), 1, target)
        for options in fuzz.TARGETS.values():
            for option in options:
                key, _, file = option.partition("=")
                self.assertEqual(key, "-dict")
                self.assertTrue((PROJECT / file).is_file(), file)

    def test_a_target_named_twice_gets_the_time_once(self):
        self.fuzzed("1", "reader", "reader")

        self.assertEqual(len(self.commands.seen), 3)
        self.assertIn("-max_total_time=60", self.of("reader"))

    def test_a_wrong_command_line_is_refused_before_anything_is_built(self):
        for words, text in (((), "required: MINUTES"), (("0",), "'0' is no number of minutes"),
                            (("-1",), ""), (("1.5",), "'1.5' is no number"), (("x",), "'x' is"),
                            (("1000000",), "from 1 to 999999"), (("١",), "is no number"),
                            (("1\n",), "is no number"), (("01",), "is no number"),
                            (("1", ".."), "no target '..'; there are: reader installer strings "
                                          "archive check manifest policy"),
                            (("1", "."), "no target '.'"), (("1", ""), "no target ''"),
                            (("1", "reader", "../reader"), "no target '../reader'")):
            self.fuzzed(*words)
            self.assertEqual((self.status, self.commands.seen, self.groups), (2, [], []), words)
            self.assertIn(text, self.err)
        self.fuzzed("999999", "reader")
        self.assertIn("-max_total_time=59999940", self.of("reader"))

    def test_the_help_names_the_targets_and_the_places(self):
        self.fuzzed("--help")

        self.assertEqual((self.status, self.commands.seen), (0, []))
        for text in ("all by default: reader, installer", "usage: scripts/fuzz", "MINUTES",
                     "build/fuzz/corpus", "build/fuzz/findings"):
            self.assertIn(text, self.out)

    def test_a_finding_is_told_and_the_other_targets_are_fuzzed(self):
        self.fuzzed("1", "reader", "strings", statuses={FUZZER + "reader": 77},
                    printed={FUZZER + "reader": "".join(f"line {n}\n" for n in range(50)),
                             FUZZER: DONE},
                    does=self.leaves("reader", "crash-1"))

        self.assertEqual(self.status, 1)
        self.assertEqual(self.err, "scripts/fuzz: failed:\n  reader: found "
                         "build/fuzz/findings/reader-crash-1; all of it: build/fuzz/reader.log\n")
        self.assertIn("seconds\nline 10\nline 11\n", self.out)
        self.assertIn("line 49\n", self.out)
        self.assertIn(FUZZER + "strings", self.commands.lines[3])

    def test_findings_of_two_targets_are_told_each_with_its_own(self):
        self.findings.mkdir(parents=True)
        (self.findings / "reader-crash-earlier").touch()
        crash = [self.leaves("reader", "b"), self.leaves("reader", "a"), self.leaves("check", "c")]

        self.fuzzed("1", "reader", "check", statuses={FUZZER: 77},
                    does=lambda words: [does(words) for does in crash])

        self.assertEqual(self.err.splitlines(), [
            "scripts/fuzz: failed:",
            "  reader: found build/fuzz/findings/reader-a build/fuzz/findings/reader-b; "
            "all of it: build/fuzz/reader.log",
            "  check: found build/fuzz/findings/check-c; all of it: build/fuzz/check.log"])

    def test_a_slow_input_that_ended_no_fuzzer_is_a_finding(self):
        self.fuzzed("1", "reader", does=self.leaves("reader", "slow-unit-1"))

        self.assertEqual(self.status, 1)
        self.assertIn("reader: found build/fuzz/findings/reader-slow-unit-1;", self.err)

    def test_a_fuzzer_that_could_not_start_has_found_nothing(self):
        self.findings.mkdir(parents=True)
        (self.findings / "reader-crash-earlier").touch()

        self.fuzzed("1", "reader", statuses={FUZZER: 127},
                    printed={FUZZER: "fuzz_reader: not found\n"})

        self.assertEqual(self.status, 1)
        self.assertEqual(self.err, "scripts/fuzz: failed:\n  reader: the fuzzer ended with 127 and "
                         "left no finding; all of it: build/fuzz/reader.log\n")
        self.assertIn("fuzz_reader: not found\n", self.out)

    def test_a_fuzzer_that_a_signal_has_ended_has_failed(self):
        self.fuzzed("1", "reader", statuses={FUZZER: -9})
        self.assertEqual(self.status, 1)
        self.assertIn("reader: the fuzzer ended with -9 and left no finding;", self.err)

    def test_a_fuzzer_that_tried_nothing_has_not_passed(self):
        for told in ("", "stat::number_of_executed_units: 0\nDone 0 runs in 1 second(s)\n",
                     "stat::peak_rss_mb: 40\n"):
            self.fuzzed("1", "reader", printed={FUZZER: told})
            self.assertEqual(self.status, 1)
            self.assertIn("reader: the fuzzer has tried no input; all of it", self.err)

    def test_the_output_of_an_earlier_run_does_not_count(self):
        self.fuzzed("1", "reader")
        self.assertEqual(self.status, 0)
        self.fuzzed("1", "reader", printed={})
        self.assertEqual(self.status, 1)

    def test_a_build_that_fails_starts_no_fuzzer(self):
        self.fuzzed("1", statuses={"cmake --build": 1})

        self.assertEqual((self.status, len(self.commands.seen)), (1, 2))
        self.assertIn("scripts/fuzz: building the preset fuzz failed; all of it: build/fuzz.log",
                      self.err)


if __name__ == "__main__":
    unittest.main()
