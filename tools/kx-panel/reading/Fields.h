// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kx::guard
{

// The bytes of a message: numbers of eight bytes, least byte first, and texts behind their length.

/// Puts a message together.
class FieldsWriter
{
public:
    FieldsWriter& Number(std::uint64_t number);
    FieldsWriter& Text(std::string_view text);

    [[nodiscard]] const std::string& Bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

/// Takes a message apart that nobody vouches for.
class FieldsReader
{
public:
    /// @param bytes  not owned
    explicit FieldsReader(std::string_view bytes) : m_rest(bytes) {}

    /// Returns the number that stands next.
    /// @throws Unread when none does, or a larger one than @p most
    [[nodiscard]] std::uint64_t Number(std::uint64_t most = UINT64_MAX);

    /// Returns the text that stands next, a piece of the message.
    /// @throws Unread when none does, or one of more than @p most bytes
    [[nodiscard]] std::string_view Text(std::size_t most);

    /// @throws Unread when something is left
    void End() const;

private:
    std::string_view m_rest;
};

} // namespace kx::guard
