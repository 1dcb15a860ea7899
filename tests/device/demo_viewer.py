#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""A small VNC viewer that presses buttons.

  demo_viewer.py vnc PORT [X,Y]...    connects to 127.0.0.1, prints the screen's size, presses
  demo_viewer.py web PORT [X,Y]...    the same as a browser does, through a WebSocket
"""

import base64
import hashlib
import os
import socket
import struct
import sys

PATIENCE = 10  # seconds for every answer
ACCEPT = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11"


class Plain:
    """A byte stream over TCP."""

    def __init__(self, port):
        self._link = socket.create_connection(("127.0.0.1", port), PATIENCE)

    def read_some(self):
        """Returns the next bytes; raises EOFError at the end."""
        data = self._link.recv(65536)
        if not data:
            raise EOFError("the other end has closed the connection")
        return data

    def write(self, data):
        """Sends bytes."""
        self._link.sendall(data)


class Web(Plain):
    """A byte stream in binary WebSocket messages."""

    def __init__(self, port):
        super().__init__(port)
        key = base64.b64encode(os.urandom(16)).decode()
        super().write((f"GET /websockify HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\n"
                       "Upgrade: websocket\r\nConnection: Upgrade\r\n"
                       f"Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: {key}\r\n"
                       "Sec-WebSocket-Protocol: binary\r\n\r\n").encode())
        self._raw = b""
        while b"\r\n\r\n" not in self._raw:
            self._raw += super().read_some()
        head, self._raw = self._raw.split(b"\r\n\r\n", 1)
        wanted = base64.b64encode(hashlib.sha1((key + ACCEPT).encode()).digest())
        if not head.startswith(b"HTTP/1.1 101 ") or wanted not in head:
            raise ValueError(f"no WebSocket: {head!r}")

    def _take(self, count):
        while len(self._raw) < count:
            self._raw += super().read_some()
        taken, self._raw = self._raw[:count], self._raw[count:]
        return taken

    def read_some(self):
        """Returns the content of the next message."""
        first, length = self._take(2)
        if first & 0x0F != 2:
            raise ValueError(f"a frame of kind {first & 0x0F} instead of bytes")
        if length == 126:
            (length,) = struct.unpack(">H", self._take(2))
        elif length == 127:
            (length,) = struct.unpack(">Q", self._take(8))
        return self._take(length)

    def write(self, data):
        """Sends one short message, masked with zeros."""
        super().write(bytes([0x82, 0x80 | len(data)]) + bytes(4) + data)


class Viewer:
    """The protocol of VNC, as far as it is needed."""

    def __init__(self, link):
        self._link = link
        self._rest = b""
        greeting = self._read(12)
        if not greeting.startswith(b"RFB 003."):
            raise ValueError(f"no VNC server: {greeting!r}")
        link.write(b"RFB 003.008\n")
        kinds = self._read(self._read(1)[0])
        if 1 not in kinds:
            raise ValueError(f"no way in without a password: {kinds!r}")
        link.write(b"\1")
        if self._read(4) != bytes(4):
            raise ValueError("refused")
        link.write(b"\1")  # others may stay connected
        self.size = struct.unpack(">HH", self._read(4))
        self._read(16)
        self._read(struct.unpack(">I", self._read(4))[0])

    def _read(self, count):
        while len(self._rest) < count:
            self._rest += self._link.read_some()
        taken, self._rest = self._rest[:count], self._rest[count:]
        return taken

    def press(self, x, y):
        """Presses the left mouse button."""
        for buttons in (0, 1, 0):
            self._link.write(struct.pack(">BBHH", 5, buttons, x, y))

    def finish(self):
        """Returns when the server has handled everything: it has sent a pixel then."""
        self._link.write(struct.pack(">BBHHHH", 3, 0, 0, 0, 1, 1))
        self._read(1)


def main():
    """Connects and presses."""
    viewer = Viewer({"vnc": Plain, "web": Web}[sys.argv[1]](int(sys.argv[2])))
    print("{}x{}".format(*viewer.size))
    for place in sys.argv[3:]:
        viewer.press(*map(int, place.split(",")))
    viewer.finish()


main()
