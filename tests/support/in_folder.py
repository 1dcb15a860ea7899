# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""A test with a folder of its own, which keeps what is printed."""
import contextlib
import io
import pathlib
import tempfile
import unittest
from unittest import mock


class InFolder(unittest.TestCase):
    """A test with a folder of its own, `root`, that stands for the project's; `out` and `err` are
    what was printed in `told`."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name).resolve()
        self.out = self.err = ""

    def patch(self, target, name, value):
        """Replaces something for the time of the test, and returns the replacement."""
        patcher = mock.patch.object(target, name, value)
        patcher.start()
        self.addCleanup(patcher.stop)
        return value

    @contextlib.contextmanager
    def told(self):
        """Keeps what the body prints."""
        out, err = io.StringIO(), io.StringIO()
        try:
            with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
                yield
        finally:
            self.out, self.err = out.getvalue(), err.getvalue()
