// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "decision/Decision.h"
#include "journal/State.h"
#include "journal/StateFolder.h"

#include <optional>
#include <string>

namespace kx::guard
{

/// What a panel remembers of packages, for one that only reads it: nothing is locked or written.
/// What cannot be read is a reason to refuse.
class Remembered
{
public:
    /// @param root  folder with the panel's files
    explicit Remembered(const StatePlace& place, std::string root = "/");

    /// Returns the highest version that was ever installed of a package; nothing when none was, or
    /// when that cannot be told: then it is among the reasons.
    [[nodiscard]] std::optional<std::string> Highest(const std::string& name);

    /// Puts what could not be read before the reasons of a decision.
    void AddReasons(Decision& decision) const;

private:
    std::string m_root;
    std::optional<StateFolder> m_folder;
    std::vector<Reason> m_reasons;
};

} // namespace kx::guard
