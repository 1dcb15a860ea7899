# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The link to the probe in the program's process, which tells what its windows show."""

import json
import os
import socket
import threading


class Observer:
    """What a program has told. `state` is the last of it, None before the first word; `ended` tells
    whether nothing more will come. Whoever has the link to the program notes what comes over it."""

    def __init__(self):
        self._news = threading.Condition()
        self._syncs = 0
        self.state = None
        self.ended = False

    def note(self, told):
        """Takes a line of the program."""
        with self._news:
            if "sync" in told:
                self._syncs = told["sync"]
            else:
                self.state = told
            self._news.notify_all()

    def note_end(self):
        """Says that nothing more will come."""
        with self._news:
            self.ended = True
            self._news.notify_all()

    def forget(self):
        """Begins anew, with the next program."""
        with self._news:
            self._syncs = 0
            self.state = None
            self.ended = False

    def wait_for(self, condition, seconds):
        """Waits until condition(state) holds. Returns False when time or program end before."""
        with self._news:
            self._news.wait_for(
                lambda: self.ended or (self.state is not None and condition(self.state)), seconds)
            return self.state is not None and bool(condition(self.state))

    def wait_for_end(self, seconds):
        """Waits until the program is gone. Returns whether it is."""
        with self._news:
            return self._news.wait_for(lambda: self.ended, seconds)

    def sync(self, seconds):
        """Waits until the screen shows all that was drawn by now. Returns whether it does."""
        wanted = self._syncs + 1
        if not self.ask("sync"):
            return False
        with self._news:
            self._news.wait_for(lambda: self.ended or self._syncs >= wanted, seconds)
            return self._syncs >= wanted

    def ask(self, request):
        """Sends a request. Returns False when nobody is there."""
        try:
            self.send(os.fsencode(request) + b"\n")
        except (AttributeError, OSError):
            return False
        return True


class Probe(Observer):
    """Listens for one program of this machine."""

    def __init__(self, path):
        super().__init__()
        self._server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._server.bind(path)
        self._server.listen(1)
        self._link = None
        threading.Thread(target=self._listen, daemon=True).start()

    @staticmethod
    def environment(path, plugins):
        """What a program needs in its environment to load the probe."""
        return {"KX_PROBE": path, "QT_PLUGIN_PATH": plugins, "QT_QPA_GENERIC_PLUGINS": "kxprobe"}

    def _listen(self):
        # Everything is read as it comes: the program must never have to wait for its observer.
        self._link, _ = self._server.accept()
        try:
            with self._link.makefile("rb") as lines:
                for line in lines:
                    self.note(json.loads(line))
        except (OSError, ValueError):
            pass  # a program that was killed leaves half a line, or a broken link
        self.note_end()

    def send(self, request):
        """Sends a request; AttributeError or OSError when nobody is there."""
        self._link.sendall(request)
