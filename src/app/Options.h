// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

class QString;

/// The command line, byte for byte as it was given.
struct Options {
    std::string unzipedDir;  ///< folder of an unpacked package; non-empty selects console mode
    std::string upDir;       ///< folder on the USB flash drive; non-empty selects GUI mode
    std::string upFile;      ///< the one package file in upDir, found by ComformUpPath
    std::string updaterPath; ///< program that GUI mode starts as console installer, or empty

    /// Looks for exactly one `.kx-update` file in upDir and stores its path in upFile. An
    /// unreadable folder counts as an empty one.
    /// @param message  replaced by a translated message when the result is 0
    /// @return non-zero when the options are usable, else 0
    [[nodiscard]] int ComformUpPath(QString& message);
};

/// Fills @p options from the command line; ends the process through Help when it is wrong.
void ParseCommandLine(int argc, const char* const* argv, Options& options);

/// Prints the usage text on standard error, headed by @p message and @p detail, and ends the
/// process with exit code 100.
[[noreturn]] void Help(const char* message, const char* detail);

/// Reads a decimal integer from the start of @p text.
///
/// @param value  set to the number, also when it is out of range; to the nearest int when no int
///               can hold it; left alone when there is no number
/// @return 1 when the number lies between @p min and @p max, both included, else 0
[[nodiscard]] int StrToInt10(const char* text, int* value, int min, int max);
