// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

namespace kx::io
{

/// An open file, folder or end of a pipe, which it owns and closes at its end. Closing leaves errno
/// alone, so that the reason of a failure outlives the clean-up behind it.
class Descriptor
{
public:
    /// Owns nothing.
    Descriptor() = default;
    /// @param number  an open descriptor that nobody else closes, or -1 for none
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept;
    /// Closes what it owned before.
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    [[nodiscard]] bool IsOpen() const { return m_number >= 0; }

    /// The number for system calls, -1 for none. It stays owned.
    [[nodiscard]] int Number() const { return m_number; }

    /// Gives the number away: the caller closes it.
    [[nodiscard]] int Release();

    /// Closes it now; nothing happens when it is not open. What was written is not on the disk for
    /// that: where it matters, fsync tells.
    void Close();

    /// A path under which the open file can be opened once more, whatever has become of its name.
    /// It is good as long as this object lives.
    [[nodiscard]] std::string Path() const;

private:
    int m_number = -1;
};

// What these open is closed when another program is started.

/// Opens a regular file for reading. Nothing else is opened, not even for a moment: that of a
/// device can do something, that of a pipe can wait for ever.
/// @param doing  what the file is opened for, in an error's words
/// @throws Error "cannot open: …", with the words of @p doing, or "is not a file"; kProblems when
///         there is no such file
[[nodiscard]] Descriptor OpenFile(const std::string& path, const std::string& doing = "open");

/// Makes a file and opens it for writing. Nothing may have the name, not even a link.
/// @param mode  of the file, less the umask
/// @throws Error "cannot write: …"
[[nodiscard]] Descriptor CreateFile(const std::string& path, mode_t mode);

/// Returns how many bytes an open file has.
/// @param shown  what an error calls the file
/// @throws Error "cannot look at: …"
[[nodiscard]] std::uint64_t SizeOf(const Descriptor& file, const std::string& shown);

} // namespace kx::io
