// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/TarArchive.h"

#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Transfer.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::archive
{

namespace
{

/// So that no name looks like an option.
constexpr std::string_view kHere = "./";

using Library = struct ::archive;

struct FreeWriter {
    void operator()(Library* writer) const { archive_write_free(writer); }
};
struct FreeReader {
    void operator()(Library* reader) const { archive_read_free(reader); }
};
struct FreeEntry {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

[[noreturn]] void ThrowOf(Library* library, const std::string& shown, const char* verb)
{
    throw io::AccessError(shown, verb, archive_errno(library));
}

void Rewind(const io::Descriptor& file, const std::string& shown, const char* verb)
{
    if (lseek(file.Number(), 0, SEEK_SET) != 0) {
        throw io::AccessError(shown, verb, errno);
    }
}

/// An archive that is being written.
class TarWriter
{
public:
    TarWriter(const io::Descriptor& file, const std::string& shown)
        : m_file(file), m_shown(shown), m_entry(archive_entry_new()), m_archive(archive_write_new())
    {
        // What GNU's tar made of the format: BusyBox takes long names and large files of no other.
        const bool isOpen =
            archive_write_set_format_gnutar(m_archive.get()) == ARCHIVE_OK &&
            archive_write_add_filter_none(m_archive.get()) == ARCHIVE_OK &&
            archive_write_set_bytes_in_last_block(m_archive.get(), 1) == ARCHIVE_OK &&
            archive_write_open(m_archive.get(), this, nullptr, WriteBytes, nullptr) == ARCHIVE_OK;
        if (!isOpen) {
            ThrowOf(m_archive.get(), m_shown, "write");
        }
    }

    TarWriter(const TarWriter&) = delete;
    TarWriter& operator=(const TarWriter&) = delete;
    ~TarWriter() { m_isLeft = true; }

    void Add(const TarItem& item)
    {
        // The time is zero from here on. It cannot be told: on 32-bit processors the library's
        // times have another width than those here.
        archive_entry_clear(m_entry.get());
        archive_entry_set_pathname(m_entry.get(), (std::string(kHere) + item.name).c_str());
        archive_entry_set_size(m_entry.get(), static_cast<la_int64_t>(item.size));
        archive_entry_set_filetype(m_entry.get(), AE_IFREG);
        archive_entry_set_perm(m_entry.get(), item.mode);
        // Without a date the archive has the first of 1970. Setting one would hand over a number
        // that has half the size in the libraries of some 32-bit systems.
        if (archive_write_header(m_archive.get(), m_entry.get()) != ARCHIVE_OK) {
            ThrowOf(m_archive.get(), m_shown, "write");
        }
        AddContent(item);
    }

    void Close()
    {
        if (archive_write_close(m_archive.get()) != ARCHIVE_OK) {
            ThrowOf(m_archive.get(), m_shown, "write");
        }
    }

private:
    /// What the library writes by. When it is freed, it would fill up what is missing of a file
    /// that was left in the middle.
    static la_ssize_t WriteBytes(Library* library, void* object, const void* bytes,
                                 std::size_t size)
    {
        const auto* const self = static_cast<TarWriter*>(object);
        if (self->m_isLeft) {
            archive_set_error(library, ECANCELED, "left in the middle");
            return -1;
        }
        const io::Transferred some = io::TryWriteAll(
            self->m_file.Number(), std::string_view(static_cast<const char*>(bytes), size));
        if (some.error != 0) {
            archive_set_error(library, some.error, "cannot be written");
            return -1;
        }
        return static_cast<la_ssize_t>(size);
    }

    void AddContent(const TarItem& item)
    {
        std::uint64_t written = 0;
        item.stream([&](std::string_view piece) {
            if (io::Interruption::IsAsked()) {
                throw io::AccessError(m_shown, "write", EINTR);
            }
            written += piece.size();
            if (written <= item.size &&
                archive_write_data(m_archive.get(), piece.data(), piece.size()) < 0) {
                ThrowOf(m_archive.get(), m_shown, "write");
            }
            return written <= item.size;
        });
        if (written != item.size) {
            throw io::Error(io::ExitCode::kNoAccess, m_shown,
                            "'" + item.name + "' changed while it was read", "try again");
        }
    }

    const io::Descriptor& m_file;
    const std::string& m_shown;
    bool m_isLeft = false;
    std::unique_ptr<archive_entry, FreeEntry> m_entry;
    std::unique_ptr<Library, FreeWriter> m_archive; // the first to go: it still writes
};

/// Reads what the library says of one file.
/// @return false when it is nothing that WriteTar writes
bool ReadEntry(Library* reader, archive_entry* entry, TarEntry& told)
{
    const char* const name = archive_entry_pathname(entry);
    const std::string_view path = name == nullptr ? "" : name;
    if (path.substr(0, kHere.size()) != kHere || archive_entry_filetype(entry) != AE_IFREG ||
        archive_entry_hardlink(entry) != nullptr || archive_entry_size(entry) < 0) {
        return false;
    }
    told.name = path.substr(kHere.size());
    told.size = static_cast<std::uint64_t>(archive_entry_size(entry));
    told.mode = archive_entry_perm(entry);
    told.offset = static_cast<std::uint64_t>(archive_filter_bytes(reader, 0));
    return true;
}

/// Hands the content of the file that the library has come to out.
/// @return false when it is damaged
bool HandOut(Library* reader, const ContentSink& sink)
{
    constexpr std::size_t kPiece = std::size_t{64} << 10U;
    std::string buffer(kPiece, '\0');
    for (;;) {
        const la_ssize_t size = archive_read_data(reader, buffer.data(), buffer.size());
        if (size <= 0) {
            return size == 0;
        }
        if (!sink(std::string_view(buffer).substr(0, static_cast<std::size_t>(size)))) {
            return true;
        }
    }
}

} // namespace

TarItem TarItemOf(const std::string& name, const std::string& source, unsigned mode)
{
    struct stat info {
    };
    if (stat(source.c_str(), &info) != 0) {
        throw io::AccessError(source, "read", errno);
    }
    return {name, mode, static_cast<std::uint64_t>(info.st_size),
            [source](const ContentSink& sink) { StreamFile(source, sink); }};
}

std::uint64_t WriteTar(const io::Descriptor& file, const std::string& shown,
                       std::vector<TarItem> items)
{
    std::sort(items.begin(), items.end(),
              [](const TarItem& one, const TarItem& other) { return one.name < other.name; });
    Rewind(file, shown, "write");
    TarWriter writer(file, shown);
    for (const TarItem& item : items) {
        writer.Add(item);
    }
    writer.Close();
    return io::SizeOf(file, shown);
}

bool ReadTar(const io::Descriptor& file, const std::string& shown,
             const std::function<ContentSink(const TarEntry& entry)>& take)
{
    Rewind(file, shown, "read");
    const std::unique_ptr<Library, FreeReader> reader(archive_read_new());
    constexpr std::size_t kBlock = 10240;
    if (archive_read_support_format_tar(reader.get()) != ARCHIVE_OK ||
        archive_read_open_fd(reader.get(), file.Number(), kBlock) != ARCHIVE_OK) {
        return false;
    }
    archive_entry* entry = nullptr; // the library's own
    for (;;) {
        const int result = archive_read_next_header(reader.get(), &entry);
        if (result != ARCHIVE_OK) {
            return result == ARCHIVE_EOF;
        }
        TarEntry told;
        if (!ReadEntry(reader.get(), entry, told)) {
            return false;
        }
        const ContentSink sink = take(told);
        if (sink && !HandOut(reader.get(), sink)) {
            return false;
        }
    }
}

} // namespace kx::archive
