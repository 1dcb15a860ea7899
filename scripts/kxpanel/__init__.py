# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""A panel that boots: its image, and the emulator that it is tried and tested in."""
