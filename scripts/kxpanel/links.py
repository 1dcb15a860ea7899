# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the links to an emulated panel have in common: each is a socket that a thread reads."""
import contextlib
import socket


def end(connection, reader):
    """Ends a connection and the thread that reads it; the other side may have ended it already."""
    with contextlib.suppress(OSError):
        connection.shutdown(socket.SHUT_RDWR)
    reader.join()
    connection.close()
