// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "confined/Confinement.h"
#include "confined/Frames.h"
#include "confined/Rights.h"

namespace kx::guard
{

/// What each work in a process without rights may use, and say.
struct ConfinementLimits {
    ProcessLimits process; ///< the seconds are those of the clock, too, for which it is waited
    FrameLimits frames;
};

/// Does work in a process of its own that can do nothing but read one file and tell what it found
/// (see GiveUpRights, AllowOnlyReading). It has nothing of its parent's but the copy of its memory.
class ConfinedProcess final : public IConfinement
{
public:
    explicit ConfinedProcess(const ConfinementLimits& limits) : m_limits(limits) {}

    /// @throws Unread also when the work takes too long; the time that @p take needs does not count
    /// @throws Error also without root's rights, and when the program is asked to end. Whatever is
    ///         thrown, no process is left
    void Run(int descriptor, const ConfinedWork& work, const MessageTaker& take) override;

private:
    ConfinementLimits m_limits;
};

} // namespace kx::guard
