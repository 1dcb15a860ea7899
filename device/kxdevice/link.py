# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the front and process 1 of the panel tell each other: one JSON object a line."""

import json


class Link:
    """One end of a connected stream socket, which it owns."""

    def __init__(self, connected):
        self._socket = connected
        self._pending = b""

    def fileno(self):
        """Returns the descriptor of this end."""
        return self._socket.fileno()

    def send(self, **message):
        """Sends a message; raises OSError when the other end is gone."""
        self._socket.sendall(json.dumps(message).encode() + b"\n")

    def receive(self):
        """Waits for something to arrive; returns the messages that are complete by now, or None
        when the other end is gone."""
        data = self._socket.recv(1 << 20)
        if not data:
            return None
        *lines, self._pending = (self._pending + data).split(b"\n")
        return [json.loads(line) for line in lines]

    def close(self):
        """Lets go of this end."""
        self._socket.close()
