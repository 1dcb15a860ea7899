// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"

#include <string>

namespace kx::guard
{

/// Tells that a package could not be read to the end: what read it was ended by a signal or by a
/// limit, or said what it must not say. The package is refused.
class Unread final : public io::Error
{
public:
    /// @param what  in English: "what reads the package was ended by signal 11"
    explicit Unread(const std::string& what) : Error(io::ExitCode::kProblems, "", what) {}
};

} // namespace kx::guard
