// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "stick/DriveCopy.h"

#include "io/Error.h"
#include "io/Interruption.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include <fcntl.h>

namespace kx::tool
{

namespace
{

constexpr std::size_t kCopyPiece = std::size_t{1} << 20;

/// So much is written before the drive is waited for. Without that the system takes all of it at
/// once and writes it behind the last byte, when nothing shows how far it is.
constexpr std::uint64_t kUntilSync = std::uint64_t{8} << 20;

/// What to do about a drive that does not take or give bytes.
const char* RemedyOf(int number)
{
    switch (number) {
    case ENOSPC:
    case EDQUOT:
        return "remove what else is on the drive";
    case EROFS:
        return "the drive is write-protected, or was found damaged; look after it";
    case EFBIG:
        return "its file system takes no file of that size";
    case EIO:
    case ENODEV:
    case ENXIO:
    case ENOENT:
    case ESTALE:
        return "is the drive still plugged in? If it is, take another one";
    default:
        return "";
    }
}

io::Error DriveError(const CopyTarget& target, const std::string& doing, int number)
{
    const io::Error plain = io::AccessError(target.shown, doing, number);
    return {plain.Code(), plain.Where(), plain.what(), RemedyOf(number)};
}

void RequireZero(const CopyTarget& target, const std::string& doing, int number)
{
    if (number != 0) {
        throw DriveError(target, doing, number);
    }
}

void RefuseInterrupted(const CopyTarget& target)
{
    if (io::Interruption::IsAsked()) {
        throw io::AccessError(target.shown, "write", EINTR);
    }
}

/// Memory as reading past the system's memory wants it.
class AlignedPiece
{
public:
    AlignedPiece() : m_bytes(static_cast<char*>(::operator new(kCopyPiece, kAlign))) {}
    AlignedPiece(const AlignedPiece&) = delete;
    AlignedPiece& operator=(const AlignedPiece&) = delete;
    ~AlignedPiece() { ::operator delete(m_bytes, kAlign); }

    [[nodiscard]] char* Bytes() { return m_bytes; }

private:
    static constexpr std::align_val_t kAlign{DriveCalls::kAlignment};
    char* m_bytes;
};

/// The new file until it has its name.
class Unfinished
{
public:
    explicit Unfinished(const CopyTarget& target) : m_target(target), m_new(Made(target)) {}
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;
    ~Unfinished()
    {
        if (!m_new.path.empty()) {
            // A pulled drive has it no more. Any other one is not to show it when it is pulled
            // next.
            static_cast<void>(m_target.calls.Remove(m_new.path));
            static_cast<void>(m_target.calls.SyncNames());
        }
    }

    [[nodiscard]] const io::Descriptor& File() const { return m_new.file; }

    /// Gives it the name that it is made for.
    void Finish()
    {
        RequireZero(m_target, "write", m_target.calls.GiveName(m_target.name, m_new));
        RefuseInterrupted(m_target);
        RequireZero(m_target, "write", m_target.calls.Rename(m_new.path, m_target.name));
        m_new.path.clear();
    }

private:
    static io::NewFile Made(const CopyTarget& target)
    {
        io::NewFile made = target.calls.Make(target.name);
        if (!made.file.IsOpen()) {
            throw DriveError(target, "write", made.error);
        }
        return made;
    }

    const CopyTarget& m_target;
    io::NewFile m_new;
};

void Tell(const std::function<void(double)>& tell, std::uint64_t done, std::uint64_t total)
{
    if (tell) {
        tell(static_cast<double>(done) / static_cast<double>(std::max<std::uint64_t>(total, 1)));
    }
}

std::size_t PieceAt(const SourceFile& source, std::uint64_t offset)
{
    return static_cast<std::size_t>(std::min<std::uint64_t>(kCopyPiece, source.Size() - offset));
}

void WriteBytes(const CopyTarget& target, const SourceFile& source, const io::Descriptor& file,
                const CopyProgress& progress)
{
    std::string piece(kCopyPiece, '\0');
    std::uint64_t waiting = 0;
    for (std::uint64_t done = 0; done < source.Size();) {
        RefuseInterrupted(target);
        const std::size_t size = PieceAt(source, done);
        source.Read(piece.data(), size, done);
        RequireZero(target, "write",
                    target.calls.Write(file, std::string_view(piece).substr(0, size)).error);
        done += size;
        waiting += size;
        if (waiting >= kUntilSync) {
            RequireZero(target, "write", target.calls.Sync(file));
            waiting = 0;
        }
        Tell(progress.writing, done, source.Size());
    }
    RequireZero(target, "write", target.calls.Sync(file));
}

/// A file to be read back: from the drive itself, where that can be.
class BackReader
{
public:
    BackReader(const CopyTarget& target, const io::Descriptor& file)
        : m_target(target), m_file(file)
    {
        // What is only remembered need not be: then it comes from the drive either way.
        static_cast<void>(posix_fadvise(file.Number(), 0, 0, POSIX_FADV_DONTNEED));
        if (target.isPastMemory) {
            m_again = target.calls.OpenAgain(file, true);
        }
        if (m_again.IsOpen()) {
            m_how = ReadBack::kFromDrive;
        } else {
            OpenFromMemory();
        }
    }

    [[nodiscard]] ReadBack How() const { return m_how; }

    /// Reads a whole piece, or up to the end.
    /// @return how many bytes
    std::size_t Read(std::uint64_t offset)
    {
        std::size_t done = 0;
        while (done < kCopyPiece) {
            const io::Transferred some = ReadOnce(done, offset + done);
            done += some.count;
            // Past the memory, what is no multiple is the end; the next call would be refused.
            const bool isOdd = done % DriveCalls::kAlignment != 0;
            if (some.count == 0 || (isOdd && m_how == ReadBack::kFromDrive)) {
                break;
            }
        }
        return done;
    }

    [[nodiscard]] const char* Bytes() { return m_piece.Bytes(); }

private:
    void OpenFromMemory()
    {
        m_again = m_target.calls.OpenAgain(m_file, false);
        m_how = ReadBack::kFromMemory;
        if (!m_again.IsOpen()) {
            throw DriveError(m_target, "read back", errno);
        }
    }

    io::Transferred ReadOnce(std::size_t done, std::uint64_t offset)
    {
        const std::size_t size = kCopyPiece - done;
        io::Transferred some = m_target.calls.ReadAt(m_again, m_piece.Bytes() + done, size, offset);
        if (some.error == EINVAL && m_how == ReadBack::kFromDrive && offset == 0) {
            // Some file systems say only now that they cannot.
            OpenFromMemory();
            some = m_target.calls.ReadAt(m_again, m_piece.Bytes() + done, size, offset);
        }
        RequireZero(m_target, "read back", some.error);
        return some;
    }

    const CopyTarget& m_target;
    const io::Descriptor& m_file;
    io::Descriptor m_again;
    ReadBack m_how = ReadBack::kFromMemory;
    AlignedPiece m_piece;
};

/// Where two files begin to differ.
struct Compared {
    ReadBack how = ReadBack::kFromMemory;
    std::optional<std::uint64_t> differs; ///< offset of the first byte that is another
};

Compared CompareBytes(const CopyTarget& target, const SourceFile& source,
                      const io::Descriptor& file, const CopyProgress& progress)
{
    BackReader back(target, file);
    std::vector<char> wanted(kCopyPiece);
    for (std::uint64_t done = 0; done <= source.Size();) {
        RefuseInterrupted(target);
        const std::size_t size = PieceAt(source, done);
        source.Read(wanted.data(), size, done);
        const std::size_t count = back.Read(done);
        const auto same =
            std::mismatch(wanted.begin(), wanted.begin() + static_cast<std::ptrdiff_t>(size),
                          back.Bytes(), back.Bytes() + count);
        if (same.first != wanted.begin() + static_cast<std::ptrdiff_t>(size) || count > size) {
            return {back.How(), done + static_cast<std::uint64_t>(same.first - wanted.begin())};
        }
        done += size;
        Tell(progress.reading, done, source.Size());
        if (size < kCopyPiece) {
            break; // the end of both was seen
        }
    }
    return {back.How(), {}};
}

/// Waits until the file has come to stay on the drive, and makes sure that it is found: by a file
/// system that changes names it is not.
void Settle(const CopyTarget& target)
{
    RequireZero(target, "write", target.calls.SyncNames());
    RequireZero(target, "write", target.calls.SyncAll());
    std::vector<std::string> names;
    RequireZero(target, "list the drive", target.calls.List(names));
    if (std::find(names.begin(), names.end(), target.name) == names.end()) {
        throw io::Error(io::ExitCode::kNoAccess, target.shown,
                        "has another name on the drive: its file system changes names",
                        "remove it, and give the drive FAT32 or exFAT");
    }
}

} // namespace

std::optional<ReadBack> CompareWithDrive(const CopyTarget& target, const SourceFile& source,
                                         const CopyProgress& progress)
{
    const io::Descriptor file = target.calls.Open(target.name);
    if (!file.IsOpen() || io::SizeOf(file, target.shown) != source.Size()) {
        return {};
    }
    RequireZero(target, "write", target.calls.Sync(file));
    const Compared compared = CompareBytes(target, source, file, progress);
    if (compared.differs.has_value()) {
        return {};
    }
    source.RefuseChanged();
    Settle(target);
    return compared.how;
}

ReadBack CopyToDrive(const CopyTarget& target, const SourceFile& source,
                     const CopyProgress& progress)
{
    Unfinished made(target);
    WriteBytes(target, source, made.File(), progress);
    RequireZero(target, "write", target.calls.SyncNames());
    const Compared compared = CompareBytes(target, source, made.File(), progress);
    source.RefuseChanged();
    if (compared.differs.has_value()) {
        throw io::Error(io::ExitCode::kNoAccess, target.shown,
                        "what was read back differs from what was written, from byte " +
                            std::to_string(*compared.differs) + " on",
                        "the drive is not to be trusted; take another one");
    }
    made.Finish();
    Settle(target);
    return compared.how;
}

} // namespace kx::tool
