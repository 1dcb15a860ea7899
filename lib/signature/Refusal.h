// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"

#include <string>

namespace kx::signature
{

/// Why a package, or its signature, is refused.
enum class Reason {
    kEnd,     ///< the file does not end in the records that a signature can stand before
    kBlock,   ///< the block with the signatures is damaged, or not written as it must be
    kChanged, ///< the file is not the one that was signed
    kHidden,  ///< the archive holds more than its directory tells, or contradicts itself
    kLimit,   ///< with the block the file would get larger than its format allows
};

/// Tells why a package is refused.
class Refusal final : public io::Error
{
public:
    Refusal(Reason reason, const std::string& where, const std::string& what,
            const std::string& remedy = {})
        : Error(io::ExitCode::kProblems, where, what, remedy), m_reason(reason)
    {
    }

    [[nodiscard]] Reason Why() const { return m_reason; }

private:
    Reason m_reason;
};

} // namespace kx::signature
