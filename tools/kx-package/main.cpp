// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
int main() { return 0; }
