# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the project's scripts do; each script of scripts/ starts its module."""
