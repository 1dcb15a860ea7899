# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The lines of a trace, its bound, and which shells are kept from starting."""

import ctypes
import errno
import os
import struct
import tempfile
import unittest
from unittest import mock

from kxdevice import linux, trace
from played import play


class Trace(unittest.TestCase):
    """Events are written to a file, line by line."""

    def setUp(self):
        self.file = tempfile.TemporaryFile()
        self.addCleanup(self.file.close)
        self.trace = trace.Trace(self.file.fileno())

    def text(self):
        """Returns what was written."""
        self.file.seek(0)
        return self.file.read()

    def test_fields_stay_apart_and_on_their_line(self):
        self.trace.event(b"tool", b"a\tb\\t\nc\r\0\xff", b"", b"\\")

        self.assertEqual(self.text(), b"tool\ta\\tb\\\\t\\nc\r\0\xff\t\t\\\\\n")
        self.assertEqual(self.trace.failed, "")

    def test_without_a_file_nothing_is_written(self):
        silent = trace.Trace(-1)
        silent.event(b"tool")

        self.assertEqual((silent.failed, silent.written), ("", 0))

    def test_a_trace_grows_to_its_bound_and_no_further(self):
        with mock.patch.object(trace, "MOST", 3 << 20):
            line = b"x" * ((1 << 20) - 1)
            for _ in range(5):
                self.trace.event(line)
            self.trace.event(b"short")

        self.assertEqual(len(self.text()), 3 << 20)
        self.assertEqual(self.trace.failed, "more than 3 MiB")

    def test_the_bounds_are_a_quarter_of_a_gibibyte_and_four_mebibytes_of_words(self):
        self.assertEqual((trace.MOST, trace.LONGEST), (256 << 20, 4 << 20))

    def test_any_open_descriptor_may_be_the_traces(self):
        done = play(self, trace, "trees", write_all=None)
        trace.Trace(0).event(b"a")

        self.assertEqual(done, [("write_all", 0, b"a\n")])

    def test_a_full_disk_is_told_and_ends_the_trace(self):
        full = os.open("/dev/full", os.O_WRONLY)
        self.addCleanup(os.close, full)
        broken = trace.Trace(full)
        broken.event(b"tool")
        broken.descriptor = self.file.fileno()
        broken.event(b"tool")

        self.assertEqual((broken.failed, self.text()), ("No space left on device", b""))


class Refusals(unittest.TestCase):
    """Which shells of a process may not start."""

    def setUp(self):
        self.listener = trace.ExecListener(-1, trace.Trace(-1), False, {})
        patch = mock.patch.object(trace, "_parent", {10: 1, 11: 1, 12: 1, 13: 1, 20: 10}.get)
        patch.start()
        self.addCleanup(patch.stop)

    def test_only_the_nth_of_exactly_that_text_is_refused(self):
        self.listener.refuse(1, [(2, "sync"), (1, "a=b")])
        applies = self.listener.refusals.apply_to

        self.assertEqual([applies(10, b"sync"), applies(11, b"sync "), applies(12, b"sync"),
                          applies(13, b"sync"), applies(10, b"a=b"), applies(11, b"a=b")],
                         [False, False, True, False, True, False])

    def test_a_start_that_is_seen_twice_counts_once(self):
        self.listener.refuse(1, [(2, "sync")])
        applies = self.listener.refusals.apply_to

        self.assertEqual([applies(10, b"sync"), applies(10, b"sync"), applies(11, b"sync"),
                          applies(11, b"sync")], [False, False, True, True])

    def test_shells_of_other_processes_do_not_count(self):
        self.listener.refuse(1, [(1, "sync")])

        self.assertFalse(self.listener.refusals.apply_to(20, b"sync"))
        self.assertTrue(self.listener.refusals.apply_to(10, b"sync"))

    def test_without_failures_nothing_is_refused(self):
        self.listener.refuse(1, [])

        self.assertIsNone(self.listener.refusals)


class Notices(unittest.TestCase):
    """The kernel tells of a program's start; its words are in the memory of this process."""

    def setUp(self):
        file = tempfile.TemporaryFile()
        self.addCleanup(file.close)
        self.file = file
        self.trace = trace.Trace(file.fileno())
        self.answers = []
        self.receive = self.send = self.there = None  # errors
        play(self, trace, "fcntl", ioctl=self.ioctl)
        self.kept = []  # memory that must live

    def listener(self, with_shell=True, missing=()):
        """Makes a listener."""
        return trace.ExecListener(44, self.trace, with_shell, dict(missing))

    def ioctl(self, descriptor, request, data):
        """Stands for the kernel."""
        self.assertEqual(descriptor, 44)
        error = {0xC0502100: self.receive, 0xC0182101: self.send, 0x40082102: self.there}[request]
        if error:
            raise OSError(error, os.strerror(error))
        if request == 0xC0502100:
            self.assertEqual(bytes(data), bytes(80))
            data[:] = self.notice
        elif request == 0xC0182101:
            self.answers.append(struct.unpack("=QqiI", data))
        else:
            self.assertEqual(data, struct.pack("=Q", 987654321012))

    def told(self, listener, path, *words, call=None, process=None):
        """Handles the start of a program; returns the answers to the kernel and the trace."""
        text = ctypes.create_string_buffer(path)
        texts = [ctypes.create_string_buffer(word) for word in words]
        array = (ctypes.c_void_p * (len(texts) + 1))(*map(ctypes.addressof, texts), None)
        self.kept += [text, texts, array]
        places = [ctypes.addressof(text), ctypes.addressof(array)]
        number = linux.number("execve") if call is None else call
        if number == linux.number("execveat"):
            places.insert(0, 99)
        places += [0] * (6 - len(places))
        self.notice = struct.pack("=QIIiIQ6Q", 987654321012, process or os.getpid(), 0, number,
                                  0xC000003E, 7, *places)
        self.answers.clear()
        os.truncate(self.file.fileno(), 0)
        self.file.seek(0)
        before = len(os.listdir("/proc/self/fd"))
        listener.handle()
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)
        self.file.seek(0)
        return self.answers[:], self.file.read()

    on = [(987654321012, 0, 0, 1)]  # let it go on
    refused = [(987654321012, 0, -errno.EACCES, 0)]

    def test_a_shell_is_told_with_its_text_and_goes_on(self):
        for path, words, line in (
                (b"/bin/sh", (b"sh", b"-c", b"a\tb"), b"shell\ta\\tb\n"),
                (b"/usr/bin/sh", (b"x", b"-c", b"--", b"a"), b"shell\ta\n"),
                (b"/bin/sh", (b"sh", b"-c", b"a", b"b", b"c"), b"shell\ta\n"),
                (b"/bin/sh", (b"sh", b"-c", b"--"), b"shell\t--\n"),
                (b"/bin/sh", (b"sh", b"-e", b"--", b"a"), b""),
                (b"/bin/sh", (b"sh", b"-c"), b""), (b"/bin/sh", (b"sh", b"-x", b"a"), b""),
                (b"/bin/sh", (), b""), (b"/bin/bash", (b"sh", b"-c", b"a"), b""),
                (b"/usr/local/bin/sh", (b"sh", b"-c", b"a"), b"")):
            with self.subTest(path, words=words):
                self.assertEqual(self.told(self.listener(), path, *words), (self.on, line))
        self.assertEqual(self.told(self.listener(False), b"/bin/sh", b"sh", b"-c", b"a"),
                         (self.on, b""))

    def test_a_start_by_a_folders_descriptor_is_told_as_well(self):
        self.assertEqual(self.told(self.listener(), b"/bin/sh", b"sh", b"-c", b"a",
                                   call=linux.number("execveat")), (self.on, b"shell\ta\n"))

    def test_the_panels_own_start_is_not_told(self):
        listener = self.listener()
        listener.first.add(os.getpid())

        self.assertEqual(self.told(listener, b"/bin/sh", b"sh", b"-c", b"a"), (self.on, b""))
        self.assertEqual(self.told(listener, b"/bin/sh", b"sh", b"-c", b"a"),
                         (self.on, b"shell\ta\n"))

    def test_a_missing_tool_is_told_once_for_each_place_that_is_tried(self):
        missing = {b"/bin/cp": b"cp", b"/usr/bin/cp": b"cp"}
        listener = self.listener(False, missing)
        words = (b"/x/cp", b"a", b"b", b"c", b"d")

        for path, line in ((b"/bin/cp", b"tool\tcp\ta\tb\tc\td\n"), (b"/bin/cp", b""),
                           (b"/usr/bin/cp", b"tool\tcp\ta\tb\tc\td\n"),
                           (b"/bin/cp", b"tool\tcp\ta\tb\tc\td\n"), (b"/bin/rm", b"")):
            self.assertEqual(self.told(listener, path, *words), (self.on, line))

    def test_what_is_refused_is_told_and_does_not_start(self):
        for with_shell, lines in ((True, b"shell\ta\nrefused\ta\n"), (False, b"refused\ta\n")):
            listener = self.listener(with_shell)
            listener.refuse(os.getppid(), [(1, "a")])
            self.assertEqual(self.told(listener, b"/bin/sh", b"sh", b"-c", b"a"),
                             (self.refused, lines))
        listener = self.listener(False)
        listener.refuse(os.getppid(), [(2, "a")])
        self.assertEqual(self.told(listener, b"/bin/sh", b"sh", b"-c", b"a"), (self.on, b""))

    def test_commands_of_the_one_process_are_told_once(self):
        listener = self.listener(False)
        listener.tell_starts(os.getppid(), self)
        words = (b"/bin/sh", b"sh", b"-c", b"a\tb")

        self.assertEqual(self.told(listener, *words), (self.on, b"command\ta\\tb\n"))
        self.assertEqual(self.told(listener, *words), (self.on, b""))
        self.assertEqual(self.told(listener, b"/bin/cp", b"cp"), (self.on, b""))
        listener = self.listener(False)
        listener.tell_starts(1 << 30, self)
        self.assertEqual(self.told(listener, *words), (self.on, b""))

    def look(self, process, path):
        """Stands for the programs of a panel: those of /opt are its own."""
        self.assertEqual(process, os.getpid())
        return (path, b"arm", b"yes", b"") if path.startswith(b"/opt") else None

    def test_programs_are_told_once_for_each_command(self):
        listener = self.listener(True)
        listener.tell_starts(os.getppid(), self)
        line = b"\t".join((b"program", b"/opt/a", b"arm", b"yes", b"\n"))

        for path, told in ((b"/opt/a", line), (b"/opt/a", b""),
                           (b"/opt/b", line.replace(b"/a", b"/b")), (b"/bin/a", b""),
                           (b"/opt/a", b"")):
            self.assertEqual(self.told(listener, path, b"x"), (self.on, told))
        self.told(listener, b"/bin/sh", b"sh", b"-c", b"next")
        self.assertEqual(self.told(listener, b"/opt/a", b"x"), (self.on, line))

    def test_a_command_that_is_refused_is_told_before(self):
        listener = self.listener(False)
        listener.refuse(os.getppid(), [(1, "a")])
        listener.tell_starts(os.getppid(), self)

        self.assertEqual(self.told(listener, b"/bin/sh", b"sh", b"-c", b"a"),
                         (self.refused, b"command\ta\nrefused\ta\n"))

    def test_what_was_told_is_remembered_up_to_a_bound(self):
        listener = self.listener(False)
        listener.tell_starts(1 << 30, self)
        with mock.patch.object(trace, "MOST_TOLD", 1):
            told = [self.told(listener, path, b"x")[1] != b""
                    for path in (b"/opt/a", b"/opt/b", b"/opt/a", b"/opt/b")]

        self.assertEqual(told, [True, True, False, True])

    def test_a_process_that_is_gone_is_not_told_of(self):
        self.there = errno.ENOENT
        listener = self.listener(True, {b"/bin/cp": b"cp"})
        listener.refuse(os.getppid(), [(1, "a")])

        self.assertEqual(self.told(listener, b"/bin/sh", b"sh", b"-c", b"a"), (self.on, b""))
        self.assertEqual(self.told(listener, b"/bin/cp", b"cp"), (self.on, b""))
        listener.tell_starts(os.getppid(), self)
        self.assertEqual(self.told(listener, b"/opt/a", b"a"), (self.on, b""))
        self.assertEqual(self.told(listener, b"/bin/sh", b"sh", process=(1 << 22) + 1),
                         (self.on, b""))

    def test_memory_that_cannot_be_read_lets_it_go_on(self):
        with mock.patch.object(trace, "_string", side_effect=OSError(errno.EIO, "no")):
            self.assertEqual(self.told(self.listener(), b"/bin/sh", b"sh"), (self.on, b""))

    def test_no_notice_is_fine_and_other_trouble_is_not(self):
        for self.receive in (errno.ENOENT, errno.EINTR, errno.EAGAIN):
            self.assertEqual(self.told(self.listener(), b"/bin/sh"), ([], b""))
        self.receive = errno.EBADF
        with self.assertRaises(OSError):
            self.told(self.listener(), b"/bin/sh")
        self.receive, self.send = None, errno.ENOENT
        self.assertEqual(self.told(self.listener(), b"/bin/sh"), ([], b""))
        self.send = errno.EBADF
        with self.assertRaises(OSError):
            self.told(self.listener(), b"/bin/sh")

    def test_a_parent_is_known_whatever_its_childs_name(self):
        name = ctypes.create_string_buffer(b"a) (b 1 2")
        child = os.fork()
        if child == 0:
            linux._LIBC.prctl(15, name)  # the name of a process
            os.kill(os.getpid(), 19)  # stops itself
            os._exit(0)
        os.waitpid(child, os.WUNTRACED)
        try:
            self.assertEqual(trace._parent(child), os.getpid())
        finally:
            os.kill(child, 9)
            os.waitpid(child, 0)


class Memory(unittest.TestCase):
    """Texts are read from another process, whatever their place."""

    def setUp(self):
        self.file = tempfile.TemporaryFile()
        self.addCleanup(self.file.close)

    def put(self, address, data):
        """Lays bytes at an address."""
        os.pwrite(self.file.fileno(), data, address)

    def test_a_text_may_cross_pages_and_has_a_longest(self):
        text = bytes(range(1, 256)) * 40
        self.put(4000, text + b"\0rest")

        self.assertEqual(trace._string(self.file.fileno(), 4000, 1 << 20), text)
        self.assertLessEqual(len(trace._string(self.file.fileno(), 4000, 5000)), 5000 + 4096)
        self.assertEqual(trace._string(self.file.fileno(), 4000 + len(text), 10), b"")

    def test_words_end_with_the_null_pointer_or_the_most(self):
        for number, word in enumerate((b"sh", b"-c", b"text", b"more")):
            self.put(100 + 10 * number, word + b"\0")
            self.put(8192 + 8 * number, (100 + 10 * number).to_bytes(8, "little"))
        self.put(8192 + 32, bytes(8))

        self.assertEqual(trace._words(self.file.fileno(), 8192, 9),
                         [b"sh", b"-c", b"text", b"more"])
        self.assertEqual(trace._words(self.file.fileno(), 8192, 2), [b"sh", b"-c"])

    def test_words_have_a_longest_together(self):
        self.put(100, b"x" * 50 + b"\0")
        self.put(8192, (100).to_bytes(8, "little") * 10)
        for longest, count in ((100, 2), (101, 3), (50, 1)):
            with mock.patch.object(trace, "LONGEST", longest):
                self.assertEqual(len(trace._words(self.file.fileno(), 8192, 9)), count)

    def test_a_text_that_is_cut_off_by_the_end_of_memory_is_told_as_far_as_it_goes(self):
        self.put(4000, b"abc")

        self.assertEqual(trace._string(self.file.fileno(), 4000, 100), b"abc")

    def test_a_page_is_read_at_a_time(self):
        self.put(4000, b"x" * 5000 + b"\0")
        done = play(self, trace, "os", pread=os.pread)
        trace._string(self.file.fileno(), 4000, 1 << 20)

        self.assertEqual([call[2:] for call in done], [(96, 4000), (4096, 4096), (4096, 8192)])


if __name__ == "__main__":
    unittest.main()
