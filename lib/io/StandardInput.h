// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::io
{

/// What stands for standard input where a package is named.
constexpr const char* kStandardInput = "-";

/// What a package from standard input is taken to be called.
constexpr const char* kStandardInputName = "package.kx-update";

/// All of standard input, in a file without a name: packages are read from their end.
class StandardInput
{
public:
    /// Reads standard input to its end.
    /// @throws Error when it is a terminal, cannot be read, or is larger than the temporary folder
    ///         has room ($TMPDIR, otherwise /tmp)
    StandardInput();
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;
    ~StandardInput();

    /// A path under which the file can be opened as long as this object lives.
    [[nodiscard]] const std::string& Path() const { return m_path; }

private:
    void Read();

    int m_file;
    std::string m_path;
};

} // namespace kx::io
