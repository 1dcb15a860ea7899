# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The sandboxed device: a throw-away panel with its own root."""
