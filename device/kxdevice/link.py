# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the front and process 1 of the panel tell each other: one JSON object a line."""

import json
import os
import socket


class Link:
    """One end of a connected stream socket, which it owns."""

    def __init__(self, connected):
        self._socket = connected
        self._pending = b""
        self._handed = -1  # the descriptor that came last

    def fileno(self):
        """Returns the descriptor of this end."""
        return self._socket.fileno()

    def send(self, **message):
        """Sends a message; raises OSError when the other end is gone."""
        self._socket.sendall(json.dumps(message).encode() + b"\n")

    def hand_over(self, descriptor):
        """Sends a descriptor, for the other end to take; raises OSError as above."""
        socket.send_fds(self._socket, [b"\n"], [descriptor])

    def take(self):
        """Returns the descriptor that was handed over last, -1 for none; the caller closes it."""
        handed, self._handed = self._handed, -1
        return handed

    def receive(self):
        """Waits for something to arrive; returns the messages that are complete by now, or None
        when the other end is gone."""
        data, descriptors, _, _ = socket.recv_fds(self._socket, 1 << 20, 1)
        for descriptor in descriptors:
            if self._handed >= 0:
                os.close(self._handed)
            self._handed = descriptor
        if not data:
            return None
        *lines, self._pending = (self._pending + data).split(b"\n")
        return [json.loads(line) for line in lines if line]

    def close(self):
        """Lets go of this end."""
        self._socket.close()
