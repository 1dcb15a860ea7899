// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "confined/Confinement.h"

#include <string_view>

namespace kx::guard
{

/// Does the work here and now, for tests of what is done in the confinement.
class InProcess final : public IConfinement
{
public:
    void Run(int /*descriptor*/, const ConfinedWork& work, const MessageTaker& take) override
    {
        Teller teller(take);
        work(teller);
    }

private:
    class Teller final : public IMessages
    {
    public:
        explicit Teller(const MessageTaker& take) : m_take(take) {}
        void Send(std::uint8_t kind, std::string_view bytes) override { m_take({kind, bytes}); }

    private:
        const MessageTaker& m_take;
    };
};

} // namespace kx::guard
