# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The lines of a trace, its bound, and which shells are kept from starting."""

import os
import tempfile
import unittest
from unittest import mock

from kxdevice import trace


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

    def test_the_bound_is_a_quarter_of_a_gibibyte(self):
        self.assertEqual(trace.MOST, 256 << 20)

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


if __name__ == "__main__":
    unittest.main()
