# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Plays the user of a panel: a screen, a program with windows on it, and hands that press."""
