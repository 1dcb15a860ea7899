// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/StandardInput.h"

#include "io/Error.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"

#include <unistd.h>

namespace kx::io
{

std::uint64_t CopyStandardInput(const Descriptor& file, const std::string& shown,
                                std::uint64_t limit, const std::string& remedy)
{
    // Nobody types a package.
    if (isatty(STDIN_FILENO) != 0) {
        throw Error(ExitCode::kWrongUse, kStandardInput, "standard input is a terminal",
                    "name a package, or pipe one in");
    }
    return CopyAll(STDIN_FILENO, "standard input", file.Number(), shown, limit, remedy);
}

StandardInput::StandardInput()
{
    m_file = MakeTemporaryFile();
    m_path = m_file.Path();
    CopyStandardInput(m_file, "a temporary file", UINT64_MAX);
}

} // namespace kx::io
