// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>

#include <dirent.h>
#include <sys/stat.h>

// Everything that the OS layer asks of the machine outside the process: its shell, its files, its
// clock. The layer calls these functions and nothing else for it.
//
// They are declared here and defined by whoever makes a program of the layer: the updater links the
// real ones of OSA_System.cpp (kx_osa_system), another program links its own. The choice is made
// by the linker, so nothing can change it while a program runs.

/// Hands a command line to the shell and waits for its end, as `system` does.
/// @return the raw status word of `system`; -1 when no shell was started
[[nodiscard]] int OSA_SystemRun(const char* command);

/// Examines what @p path leads to; links are followed.
/// @param info  filled when the result is 0; at least the kind in st_mode and st_size must be right
/// @return 0, or -1 with `errno` set
[[nodiscard]] int OSA_SystemStat(const char* path, struct stat* info);

/// Opens a file as `fopen` does. The caller closes it with `fclose`.
/// @param mode  "r", "rb" or "w"
/// @return null with `errno` set when it cannot be opened
[[nodiscard]] std::FILE* OSA_SystemOpen(const char* path, const char* mode);

/// Lists a folder, "." and ".." included when there are such entries, in the collation order of
/// the process's locale.
/// @param entries  set to the listing when the result is not negative: a block that the caller
///                 frees with `free`, after each entry in it; an entry's d_type must be right or
///                 DT_UNKNOWN
/// @return the number of entries, or -1 with `errno` set
[[nodiscard]] int OSA_SystemList(const char* dir, dirent*** entries);

/// Sleeps whole seconds; a signal that is caught ends it early.
void OSA_SystemSleep(unsigned seconds);

/// Sleeps less than a second, given in microseconds; a signal that is caught ends it early.
void OSA_SystemPause(unsigned microseconds);
