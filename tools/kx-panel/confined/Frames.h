// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "confined/Confinement.h"
#include "io/Error.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kx::guard
{

// How messages travel through a pipe: a byte that tells the kind, four with the size, the least
// significant first, and the bytes.

/// From here on kinds belong to the frames themselves: how the work ended.
constexpr std::uint8_t kFirstOwnKind = 0xf0;

/// Bytes in front of those of a message.
constexpr std::size_t kFrameHeadSize = 5;

/// Writes messages into a pipe, and at last how the work ended. Needs no memory but its own.
class FrameWriter final : public IMessages
{
public:
    /// @param descriptor  the pipe, which is not owned
    explicit FrameWriter(int descriptor) : m_descriptor(descriptor) {}

    /// @throws Error when nobody reads any more
    /// @throws std::length_error, std::invalid_argument for what is no message of a work
    void Send(std::uint8_t kind, std::string_view bytes) override;

    // The last one says: the work is done; this Error ended it; there was not memory enough. Where
    // they cannot be written, nobody is left to be told.
    void TellDone();
    void TellError(const io::Error& error);
    void TellNoMemory();

private:
    [[nodiscard]] int Write(std::uint8_t kind, std::string_view bytes);

    int m_descriptor;
    std::array<char, kFrameHeadSize + kLargestMessage> m_frame{};
};

/// How much the work may say in all.
struct FrameLimits {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0; ///< of all messages
};

/// Takes apart what comes out of the pipe. It trusts nothing of that.
class FrameReader
{
public:
    explicit FrameReader(const FrameLimits& limits) : m_left(limits) {}

    /// Takes the next bytes, and hands the messages that are whole to @p take.
    /// @return true when the work has told that it is done
    /// @throws Unread for anything that a FrameWriter does not write, for more than the limits
    ///         allow, and when the work told that it had not memory enough
    /// @throws Error that ended the work, as it told; its texts are bounded and printable
    [[nodiscard]] bool Feed(std::string_view bytes, const MessageTaker& take);

private:
    void Take(std::uint8_t kind, std::string_view bytes, const MessageTaker& take);

    FrameLimits m_left;
    std::string m_rest; ///< of a frame that is not whole
    bool m_isDone = false;
};

} // namespace kx::guard
