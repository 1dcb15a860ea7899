// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kx::guard
{

/// How many bytes one message may have.
constexpr std::size_t kLargestMessage = std::size_t{64} << 10;

/// One message of what reads the bytes of a stranger. Whoever gets it trusts nothing in it.
struct Message {
    std::uint8_t kind = 0; ///< below 0xf0; what it is about: the work and its taker agree on that
    std::string_view bytes;
};

/// Where the work tells what it found.
class IMessages
{
public:
    /// Sends a message; at most kLargestMessage bytes. Ends the work when nobody listens any more.
    virtual void Send(std::uint8_t kind, std::string_view bytes) = 0;

protected:
    ~IMessages() = default;
};

/// What is done with the bytes of a stranger: it may read places of the file that it was given,
/// take memory, tell the local time, and send messages. Nothing else is possible in there. An
/// io::Error that it throws is thrown to whoever wanted the work, as kProblems or kNoAccess.
using ConfinedWork = std::function<void(IMessages& messages)>;

/// Takes a message; may throw io::Error, which ends the work and is passed on.
using MessageTaker = std::function<void(const Message& message)>;

/// What reads bytes of a stranger does so in here.
class IConfinement
{
public:
    IConfinement() = default;
    IConfinement(const IConfinement&) = delete;
    IConfinement& operator=(const IConfinement&) = delete;
    virtual ~IConfinement() = default;

    /// Does the work, and hands each of its messages to @p take, in order.
    /// @param descriptor  the only open file that the work may read; it stays owned by the caller
    /// @throws Unread when the work did not come to its own end
    /// @throws Error when the confinement cannot be made: the work is never done without it
    virtual void Run(int descriptor, const ConfinedWork& work, const MessageTaker& take) = 0;
};

} // namespace kx::guard
