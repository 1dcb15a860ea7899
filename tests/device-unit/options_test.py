# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of device/run, whole."""

import io
import os
import re
import tempfile
import unittest
from unittest import mock

from kxdevice import options
from kxdevice.options import Options, UsageError


class Parse(unittest.TestCase):
    """What is asked for, and what is refused."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = os.path.realpath(folder.name)
        os.mkdir(f"{self.here}/a=b")
        with open(f"{self.here}/file", "x", encoding="ascii"):
            pass
        before = os.getcwd()
        os.chdir(self.here)
        self.addCleanup(os.chdir, before)

    def test_a_command_alone_has_the_documented_defaults(self):
        self.assertEqual(options.parse(["true", "--boot", "--", "x"]), Options(
            state="", boot=False, no_startup=False, erase=False, help=False, share=(), put=(),
            usb="", env=(), chdir="/", ignore_sigchld=False, fail=(), fail_shell=(), missing=(),
            full=(), read_only=(), trace="", trace_shell=False, trace_programs=False, summary="",
            summary_json="", memory=4096, processes=256, seconds=600, disk=2048,
            command=("true", "--boot", "--", "x")))

    def test_every_option_is_taken_behind_it_and_behind_an_equals_sign(self):
        here = self.here
        wanted = Options(
            state=f"{here}/s", boot=True, no_startup=True, share=((f"{here}/a=b", "/x"), (f"{here}/file", "/y/z")),
            put=((f"{here}/file", "/opt/file"), (f"{here}/a=b", "/opt/c=d")), usb=f"{here}/a=b",
            env=(("A", "b=c"), ("_1", "")), chdir="/tmp", ignore_sigchld=True,
            fail=(("cp", 0, 0), ("rm", 255, 7)), fail_shell=((2, "a=b"),), missing=("m", "n.o"),
            full=("/f", "/g"), read_only=("/r/s",), trace="t", trace_shell=True, trace_programs=True,
            summary="-", summary_json="j", memory=16, processes=4, seconds=1, disk=16, command=("-c",))
        words = ["--state s", "--share a=b=/x", "--share file=//y//z", "--put file=/opt/",
                 "--put a=b=/opt/c=d", "--usb a=b", "--env A=b=c", "--env _1=", "--chdir /tmp",
                 "--fail cp=0", "--fail rm=255@7", "--fail-shell 2=a=b", "--missing m",
                 "--missing n.o", "--full /f", "--full //g/", "--read-only /r/./s", "--trace t",
                 "--summary-json j", "--memory 16", "--processes 4", "--seconds 1", "--disk 16"]
        flags = ["--boot", "--no-startup", "--ignore-sigchld", "--trace-shell", "--trace-programs",
                 "--summary", "--", "-c"]

        self.assertEqual(options.parse([w for word in words for w in word.split(" ")] + flags),
                         wanted)
        self.assertEqual(options.parse([word.replace(" ", "=", 1) for word in words] + flags),
                         wanted)

    def test_the_summary_may_have_a_file(self):
        for words, text in ((["--summary=f", "c"], "f"), (["--summary", "c"], "-")):
            parsed = options.parse(words)
            self.assertEqual((parsed.summary, parsed.command), (text, ("c",)))
            self.assertTrue(parsed.wants_summary())
        self.assertTrue(options.parse(["--summary-json", "j", "c"]).wants_summary())
        self.assertFalse(options.parse(["c"]).wants_summary())

    def test_the_largest_numbers_are_taken(self):
        parsed = options.parse(["--memory=1048576", "--processes=30000", "--seconds=1000000",
                                "--disk=1048576", "c"])

        self.assertEqual((parsed.memory, parsed.processes, parsed.seconds, parsed.disk),
                         (1048576, 30000, 1000000, 1048576))

    def test_help_and_erase_need_no_command(self):
        for word in ("-h", "--help"):
            self.assertTrue(options.parse([word]).help)
        self.assertTrue(options.parse(["--erase", "--state", "s"]).erase)

    def test_wrong_use_is_refused(self):
        for words in (
                [], ["--"], ["-x", "c"], ["--x", "c"], ["--boot=1", "c"], ["--summary=", "c"],
                ["--state"], ["--state=", "c"], ["--state", "", "c"],
                ["--memory=15", "c"], ["--memory=1048577", "c"], ["--memory=x", "c"],
                ["--memory=-1", "c"], ["--memory= 20", "c"], ["--memory=\u0661\u0662\u0663", "c"],
                ["--processes=3", "c"], ["--processes=30001", "c"], ["--processes=1e3", "c"],
                ["--seconds=0", "c"], ["--seconds=1000001", "c"], ["--seconds=0.5", "c"],
                ["--disk=15", "c"], ["--disk=1048577", "c"],
                ["--share", "file", "c"], ["--share", "=/x", "c"], ["--share", "file=x", "c"],
                ["--share", "file=/", "c"], ["--share", "file=/x/", "c"],
                ["--share", "nowhere=/x", "c"], ["--share", "file=/proc", "c"],
                ["--share", "file=/proc/x", "c"], ["--share", "file=/dev/x", "c"],
                ["--share", "file=/.kx-device", "c"], ["--share", "file=/x/../proc/y", "c"],
                ["--share", "file=//proc/y", "c"],
                ["--put", "file=/dev/", "c"], ["--put", "file=/..", "c"],
                ["--put", "file=/.kx-device/x", "c"], ["--put", "nowhere=/x", "c"],
                ["--usb", "file", "c"], ["--usb", "nowhere", "c"],
                ["--env", "A", "c"], ["--env", "=b", "c"], ["--env", "1=b", "c"],
                ["--env", "A-B=c", "c"], ["--env", "A\n=c", "c"],
                ["--fail", "cp", "c"], ["--fail", "cp=256", "c"], ["--fail", "cp=-1", "c"],
                ["--fail", "cp=1@0", "c"], ["--fail", "cp=1@", "c"], ["--fail", "/bin/cp=1", "c"],
                ["--fail", "..=1", "c"], ["--fail", "=1", "c"], ["--fail", "cp=1@1234567890", "c"],
                ["--fail-shell", "sync", "c"], ["--fail-shell", "0=sync", "c"],
                ["--fail-shell", "1=", "c"], ["--fail-shell", "x=y", "c"],
                ["--missing", "a/b", "c"], ["--missing", ".", "c"], ["--missing", "a b", "c"],
                ["--missing", "a@1", "c"],
                ["--full", "tmp", "c"], ["--full", "/", "c"], ["--full", "/proc/x", "c"],
                ["--full", "/dev", "c"], ["--full", "/x/..", "c"],
                ["--read-only", "x", "c"], ["--read-only", "/", "c"], ["--read-only", "/dev", "c"],
                ["--read-only", "/proc/sys", "c"], ["--read-only", "//proc", "c"],
                ["--erase"], ["--erase", "--state", "s", "c"], ["--erase", "c"],
                ["--trace-shell", "c"], ["--trace-programs", "c"], ["--chdir", "x", "c"]):
            with self.subTest(words=words), self.assertRaises(UsageError):
                options.parse(words)

    def test_what_is_wrong_is_told_with_the_option_and_its_text(self):
        number = "needs a number from"
        place = "needs a full path of the panel's files, not"
        pair = "needs HOST=INSIDE with a full path inside, not"
        for words, text in (
                ("", "COMMAND is missing"), ("-x c", "unknown option -x"),
                ("-boot c", "unknown option -boot"), ("--x=1 c", "unknown option --x=1"),
                ("--boot=1 c", "--boot takes no value"), ("--no-startup c", "--no-startup needs --boot"), ("--state", "--state needs a value"),
                ("--summary= c", "--summary= needs the name of a file"),
                ("--full= c", "--full needs a value"),
                ("--memory 15 c", f"--memory {number} 16 to 1048576, not '15'"),
                ("--processes 3 c", f"--processes {number} 4 to 30000, not '3'"),
                ("--seconds 0 c", f"--seconds {number} 1 to 1000000, not '0'"),
                ("--disk 0000000020 c", f"--disk {number} 16 to 1048576, not '0000000020'"),
                ("--share file c", f"--share {pair} 'file'"),
                ("--share =/x c", f"--share {pair} '=/x'"),
                ("--put file=x c", f"--put {pair} 'file=x'"),
                ("--share file=/x/ c", "--share file=/x/: INSIDE must not end in /"),
                ("--share nowhere=/x c", "--share nowhere=/x: there is no nowhere"),
                ("--put nowhere=/x c", "--put nowhere=/x: there is no nowhere"),
                ("--put file=/dev/ c", "--put file=/dev/: /dev/file belongs to the panel itself"),
                ("--share file=//proc/y c",
                 "--share file=//proc/y: /proc/y belongs to the panel itself"),
                ("--usb file c", "--usb: file is not a folder"),
                ("--env A c", "--env needs NAME=VALUE, not 'A'"),
                ("--env =b c", "--env needs NAME=VALUE, not '=b'"),
                ("--env 1=b c", "--env: '1' is not a name of a variable"),
                ("--fail cp c", "--fail needs TOOL=STATUS or TOOL=STATUS@N, not 'cp'"),
                ("--fail ..=1 c", "--fail needs the plain name of a tool, not '..'"),
                ("--fail-shell 0=sync c", "--fail-shell needs N=TEXT, not '0=sync'"),
                ("--missing a/b c", "--missing needs the plain name of a tool, not 'a/b'"),
                ("--full tmp c", f"--full {place} 'tmp'"),
                ("--read-only / c", f"--read-only {place} '/'"),
                ("--erase", "--erase needs --state DIR and no COMMAND"),
                ("--trace-shell c", "--trace-shell needs --trace FILE"),
                ("--trace-programs c", "--trace-programs needs --trace FILE"),
                ("--chdir x c", "--chdir needs a full path")):
            with self.subTest(words), self.assertRaises(UsageError) as raised:
                options.parse(words.split())
            self.assertEqual(str(raised.exception), text)

    def test_the_first_call_is_the_smallest_that_can_fail(self):
        parsed = options.parse(["--fail", "cp=1@1", "--fail-shell", "1=x", "c"])

        self.assertEqual((parsed.fail, parsed.fail_shell), ((("cp", 1, 1),), ((1, "x"),)))

    def test_what_is_given_of_the_host_is_known_by_its_real_name(self):
        os.symlink("a=b", "link")
        parsed = options.parse(["--share", "link=/x", "--put", "link=/opt/", "--usb", "link", "c"])

        self.assertEqual((parsed.share, parsed.put, parsed.usb), (
            ((f"{self.here}/a=b", "/x"),), ((f"{self.here}/a=b", "/opt/link"),),
            f"{self.here}/a=b"))

    def test_the_last_equals_sign_before_a_full_path_parts_the_names(self):
        os.makedirs("odd=/deep=")
        for host in ("odd=", "odd=/deep="):
            self.assertEqual(options.parse(["--share", f"{host}=/x", "c"]).share,
                             ((f"{self.here}/{host}", "/x"),))

    def test_a_copy_has_the_name_of_what_is_copied_however_that_is_written(self):
        os.mkdir("folder")
        for host in ("folder/", "./folder", "folder/../folder/."):
            self.assertEqual(options.parse(["--put", f"{host}=/opt/", "c"]).put,
                             ((f"{self.here}/folder", "/opt/folder"),), host)

    def test_options_that_need_a_value_are_known(self):
        for name in ("state", "share", "put", "usb", "env", "chdir", "fail", "fail-shell",
                     "missing", "full", "read-only", "trace", "summary-json", "memory",
                     "processes", "seconds", "disk", "unknown"):
            self.assertTrue(options.needs_value(f"--{name}"), name)
        for name in ("boot", "no-startup", "erase", "help", "ignore-sigchld", "trace-programs",
                     "trace-shell", "summary"):
            self.assertFalse(options.needs_value(f"--{name}"), name)


class Environment(unittest.TestCase):
    """The whole environment of the command."""

    def test_what_was_given_goes_before_what_the_caller_has(self):
        with mock.patch.dict(os.environ, {"LANG": "caller", "TERM": "t"}, clear=True):
            given = options.environment(Options(env=(("LANG", "given"), ("PATH", "/p"))))

        self.assertEqual(given, {"PATH": "/p", "HOME": "/root", "LANG": "given", "TERM": "t"})

    def test_it_holds_little_of_the_callers(self):
        caller = {"LANG": "l", "LC_ALL": "a", "TERM": "t", "PATH": "/x", "HOME": "/y",
                  "LC_TIME": "z", "SECRET": "s"}
        with mock.patch.dict(os.environ, caller, clear=True):
            self.assertEqual(options.environment(Options(env=(("HOME", "/h"), ("A", "1")))), {
                "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                "HOME": "/h", "A": "1", "LANG": "l", "LC_ALL": "a", "TERM": "t"})
        with mock.patch.dict(os.environ, {}, clear=True):
            self.assertEqual(options.environment(Options()), {
                "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                "HOME": "/root"})


class Words(unittest.TestCase):
    """What the device says by itself."""

    def test_the_help_names_every_option_with_its_default(self):
        told = re.findall(r"^  --([a-z-]+)", options.HELP, re.M)
        fields = [name.replace("-", "_") for name in told]

        self.assertEqual(sorted(fields), sorted({*Options._fields} - {"command", "help"}))
        defaults = re.findall(r"^  --([a-z]+) .*\(default ([^)]+)\)$", options.HELP, re.M)
        for name, default in defaults:
            self.assertEqual(str(getattr(Options(), name)), default, name)
        self.assertEqual(len(re.findall("default [0-9/]", options.HELP)), 5)

    def test_the_help_tells_the_names_of_the_panel_and_every_status(self):
        for text in (
                "usage: device/run [options] [--] COMMAND [ARG...]\n",
                "empty /tmp and /run, run /mnt/user/startup.sh\n",
                "plug in a USB drive holding a copy of DIR: /mnt/usb and /dev/sda1\n",
                "--put build/dev/kx_Updater=/usr/bin/kx_Updater --share pkg=/mnt/user/pkg \\\n",
                "--summary -- kx_Updater -unzipedDir /mnt/user/pkg\n", "sh -c 'ls /mnt/usb'\n",
                "--boot --fail usb_umount=1 --full /mnt/user -- sleep 5\n", ", 2 wrong use,\n",
                "\n124 time limit reached, 125 the panel cannot be made, 126 COMMAND cannot be "
                "executed,\n127 COMMAND not found.\n"):
            self.assertIn(text, options.HELP)

    def test_a_complaint_is_one_line_of_the_very_bytes(self):
        reader, writer = os.pipe()
        with mock.patch.object(options.os, "write", lambda to, data, write=os.write: write(
                {2: writer}[to], data)):
            options.complain("a\nb \udcff\u00e9")
        os.close(writer)
        with os.fdopen(reader, "rb") as file:
            self.assertEqual(file.read(), b"a b \xff\xc3\xa9\n")
        with mock.patch.object(options.os, "write", side_effect=OSError(28, "full")):
            options.complain("nobody hears it")

    def test_a_help_that_cannot_be_written_is_a_failure(self):
        with mock.patch.object(options.sys, "stdout", io.StringIO()) as out:
            self.assertEqual(options.show_help("text\n"), 0)
            self.assertEqual(out.getvalue(), "text\n")
        with open("/dev/full", "w", encoding="ascii") as full:
            with mock.patch.object(options.sys, "stdout", full):
                self.assertEqual(options.show_help("text\n"), 1)
            with self.assertRaises(OSError):
                full.close()
        with mock.patch.object(options.sys, "stdout", None):
            self.assertEqual(options.show_help("text\n"), 1)


if __name__ == "__main__":
    unittest.main()
