// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Transfer.h"

#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Text.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace kx::io
{

namespace
{

constexpr std::size_t kPiece = std::size_t{1} << 16;

/// Makes one call of read, pread or write, and makes it again when a signal cut it short.
template <class Call>
Transferred Repeat(Call call)
{
    for (;;) {
        const ssize_t count = call();
        if (count >= 0) {
            return {static_cast<std::size_t>(count), 0};
        }
        if (errno != EINTR || Interruption::IsAsked()) {
            return {0, errno};
        }
    }
}

/// Makes calls until all is transferred, nothing more comes, or one fails.
/// @param call  takes how many bytes are done, makes one call for some of the rest
template <class Call>
Transferred Complete(std::size_t size, Call call)
{
    Transferred all;
    while (all.count < size) {
        const Transferred some = call(all.count);
        all.count += some.count;
        all.error = some.error;
        if (some.error != 0 || some.count == 0) {
            break;
        }
    }
    return all;
}

std::size_t CountOf(const Transferred& all, const std::string& shown)
{
    if (all.error != 0) {
        throw AccessError(shown, "read", all.error);
    }
    return all.count;
}

Error TooLarge(const std::string& shown, std::uint64_t limit, const std::string& remedy)
{
    return {ExitCode::kNoAccess, shown, "is larger than " + SizeText(limit), remedy};
}

} // namespace

Transferred ReadSome(int descriptor, char* bytes, std::size_t size)
{
    return Repeat([=] { return read(descriptor, bytes, size); });
}

Transferred WriteSome(int descriptor, std::string_view bytes)
{
    return Repeat([=] { return write(descriptor, bytes.data(), bytes.size()); });
}

Transferred TryWriteAll(int descriptor, std::string_view bytes)
{
    Transferred all = Complete(
        bytes.size(), [=](std::size_t done) { return WriteSome(descriptor, bytes.substr(done)); });
    if (all.error == 0 && all.count < bytes.size()) {
        all.error = EIO; // a device that takes nothing and says nothing
    }
    return all;
}

std::size_t ReadUpTo(int descriptor, char* bytes, std::size_t size, const std::string& shown)
{
    return CountOf(
        Complete(size,
                 [=](std::size_t done) { return ReadSome(descriptor, bytes + done, size - done); }),
        shown);
}

std::string ReadUpTo(int descriptor, std::uint64_t limit, const std::string& shown)
{
    std::string bytes;
    while (bytes.size() < limit) {
        const std::size_t before = bytes.size();
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, limit - before));
        bytes.resize(before + size);
        const std::size_t count = ReadUpTo(descriptor, bytes.data() + before, size, shown);
        bytes.resize(before + count);
        if (count < size) {
            break;
        }
    }
    return bytes;
}

std::string ReadAll(int descriptor, std::uint64_t limit, const std::string& shown)
{
    std::string bytes = ReadUpTo(descriptor, limit, shown);
    char beyond = 0;
    if (bytes.size() == limit && ReadUpTo(descriptor, &beyond, 1, shown) != 0) {
        throw TooLarge(shown, limit, {});
    }
    return bytes;
}

std::size_t ReadAt(int descriptor, char* bytes, std::size_t size, std::uint64_t offset,
                   const std::string& shown)
{
    const auto readSome = [=](std::size_t done) {
        return Repeat([=] {
            return pread(descriptor, bytes + done, size - done, static_cast<off_t>(offset + done));
        });
    };
    return CountOf(Complete(size, readSome), shown);
}

void WriteAll(int descriptor, std::string_view bytes, const std::string& shown)
{
    if (const int error = TryWriteAll(descriptor, bytes).error; error != 0) {
        throw AccessError(shown, "write", error);
    }
}

std::uint64_t CopyAll(int from, const std::string& shownFrom, int to, const std::string& shownTo,
                      std::uint64_t limit, const std::string& remedy)
{
    std::string piece(kPiece, '\0');
    std::uint64_t total = 0;
    for (;;) {
        const std::size_t count = ReadUpTo(from, piece.data(), piece.size(), shownFrom);
        if (Interruption::IsAsked()) {
            throw AccessError(shownFrom, "read", EINTR);
        }
        if (count > limit - total) {
            throw TooLarge(shownFrom, limit, remedy);
        }
        WriteAll(to, std::string_view(piece).substr(0, count), shownTo);
        total += count;
        if (count < piece.size()) {
            return total;
        }
    }
}

} // namespace kx::io
