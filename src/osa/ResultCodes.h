// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

/// The result codes that the layers return besides 0 (success) and the raw status words of
/// `system`. They travel upwards unchanged; the process turns every value above 255 into
/// kExitResultTooLarge.
enum ResultCode : int {
    kReadError = 1002,    ///< a file could not be read
    kWriteError = 1003,   ///< a file could not be written
    kGeneralError = 2001, ///< no package description, or a step of unknown kind
    kFieldError = 2002,   ///< a field is missing or of another type, or an object of another class
    kElementError = 2003, ///< a list element or a hardware setting could not be created
};

/// Exit codes that the process itself adds to the results from 0 to 255.
enum ExitCode : int {
    kExitBadCommandLine = 100, ///< the usage text was printed
    kExitResultTooLarge = 101, ///< the mode's result was above 255
    kExitResultNegative = 102, ///< the mode's result was below 0
};
