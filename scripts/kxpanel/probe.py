# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the probe in a program of an emulated panel tells, over a port of the panel's."""
import json
import os
import select
import socket
import threading

from kxoperate.probe import Observer
from kxpanel import links

PORT = "/dev/virtio-ports/kx.probe"  # on the panel; what KX_PROBE names


class RelayedProbe(Observer):
    """Hears the programs of a panel, one after the other, over a connected socket, which it closes at
    its end. That one ends does not show on the link: note_closed() is told."""

    def __init__(self, connection):
        super().__init__()
        self._connection = connection
        self._woken, self._waker = os.pipe()
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def note_closed(self):
        """Says that the program has left the port; what it told before still counts."""
        os.write(self._waker, b"c")

    def expect_program(self):
        """Forgets the last program: what is told from here on comes from the next one."""
        self.forget()

    def _read(self):
        rest = b""
        while True:
            ready, _, _ = select.select([self._connection, self._woken], [], [])
            closed = self._woken in ready and os.read(self._woken, 1)
            try:
                while data := self._connection.recv(1 << 16, socket.MSG_DONTWAIT):
                    rest = self._take(rest + data)
                self.note_end()
                return  # the emulator has ended
            except BlockingIOError:
                pass
            except OSError:
                self.note_end()
                return
            if closed:
                rest = b""  # a program that was killed leaves half a line
                self.note_end()

    def _take(self, data):
        """Notes whole lines; returns the beginning of the last one."""
        *lines, rest = data.split(b"\n")
        for line in lines:
            if self.ended:
                self.forget()
            try:
                self.note(json.loads(line))
            except ValueError:
                pass  # the rest of what a killed program left
        return rest

    def send(self, request):
        """Sends a request to whoever is at the port."""
        self._connection.sendall(request)

    def close(self):
        """Ends the link."""
        links.end(self._connection, self._reader)
        os.close(self._woken)
        os.close(self._waker)
