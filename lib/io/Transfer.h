// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kx::io
{

// Whole reads and writes. What the system does by halves is gone on with: short counts, and calls
// that a signal cut short. Only a signal that asks the program to end (see Interruption) ends a
// call, with EINTR: otherwise a program that waits for a pipe could not be ended.
//
// They take the number of a descriptor, as the standard streams belong to nobody here. @p shown is
// what an error calls the file.

/// What one transfer came to, for callers with words of their own for its failure.
struct Transferred {
    std::size_t count = 0; ///< bytes
    int error = 0;         ///< errno, 0 when nothing failed
};

/// Reads what is there now, up to @p size bytes; waits when nothing is there yet.
/// @return a count of 0 without an error at the end; EAGAIN when there is nothing and the
///         descriptor does not wait
[[nodiscard]] Transferred ReadSome(int descriptor, char* bytes, std::size_t size);

/// Writes what there is room for now.
/// @return fewer bytes than there are, where the receiver takes no more; EAGAIN when it takes
///         nothing and the descriptor does not wait
[[nodiscard]] Transferred WriteSome(int descriptor, std::string_view bytes);

/// Writes all bytes, like WriteAll. Needs no memory: a child process can call it before exec.
/// @return the bytes that were written before the failure, and its errno
[[nodiscard]] Transferred TryWriteAll(int descriptor, std::string_view bytes);

/// Reads @p size bytes, or fewer at the end.
/// @return how many
/// @throws Error "cannot read: …"
[[nodiscard]] std::size_t ReadUpTo(int descriptor, char* bytes, std::size_t size,
                                   const std::string& shown);

/// Reads the first @p limit bytes, or fewer at the end. What follows is not read.
/// @throws Error "cannot read: …"
[[nodiscard]] std::string ReadUpTo(int descriptor, std::uint64_t limit, const std::string& shown);

/// Reads all bytes to the end.
/// @throws Error "cannot read: …", or "is larger than …" for more than @p limit bytes
[[nodiscard]] std::string ReadAll(int descriptor, std::uint64_t limit, const std::string& shown);

/// Reads @p size bytes from a place of a file, or fewer at its end. Where the next read goes on
/// does not change.
/// @param offset  of the first byte, from the beginning of the file
/// @return how many
/// @throws Error "cannot read: …"
[[nodiscard]] std::size_t ReadAt(int descriptor, char* bytes, std::size_t size,
                                 std::uint64_t offset, const std::string& shown);

/// Writes all bytes.
/// @throws Error "cannot write: …"; some of them may have been written
void WriteAll(int descriptor, std::string_view bytes, const std::string& shown);

/// Writes all that can be read from one descriptor to another. Ends between two pieces, too, when
/// the program is asked to end.
/// @param limit   for what there is to read, in bytes
/// @param remedy  what to do about more; may be empty
/// @return how many bytes there were
/// @throws Error as ReadAll and WriteAll; some bytes may have been written
std::uint64_t CopyAll(int from, const std::string& shownFrom, int to, const std::string& shownTo,
                      std::uint64_t limit, const std::string& remedy = {});

} // namespace kx::io
