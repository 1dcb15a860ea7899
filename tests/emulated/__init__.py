# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a user and an integrator meet on an emulated panel, one road a test; scripts/test-panel plays
them."""
