// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "confined/Confinement.h"

#include <string>
#include <utility>
#include <vector>

namespace kx::guard
{

/// A confinement that was taken over: it says whatever it wants, and does no work.
class Lying final : public IConfinement
{
public:
    using Messages = std::vector<std::pair<std::uint8_t, std::string>>;

    explicit Lying(Messages messages) : m_messages(std::move(messages)) {}

    void Run(int /*descriptor*/, const ConfinedWork& /*work*/, const MessageTaker& take) override
    {
        for (const auto& [kind, bytes] : m_messages) {
            take({kind, bytes});
        }
    }

private:
    Messages m_messages;
};

} // namespace kx::guard
