// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/ArchiveWriter.h"

#include "archive/ZipStructure.h"
#include "io/AtomicFile.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Reach.h"
#include "io/Transfer.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

namespace kx::archive
{

namespace
{

constexpr zip_uint32_t kLevel = 6;

struct DiscardArchive {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
using Archive = std::unique_ptr<zip_t, DiscardArchive>;

/// The file that libzip writes to, in the form in which it wants one. It only writes.
class Target
{
public:
    explicit Target(int descriptor) : m_descriptor(descriptor) { zip_error_init(&m_error); }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;
    ~Target() { zip_error_fini(&m_error); }

    static zip_int64_t Call(void* target, void* data, zip_uint64_t size, zip_source_cmd_t command)
    {
        return static_cast<Target*>(target)->Do(data, size, command);
    }

    /// The errno of the write that failed, 0 when none did.
    [[nodiscard]] int Failure() const { return m_failure; }

private:
    zip_int64_t Do(void* data, zip_uint64_t size, zip_source_cmd_t command)
    {
        switch (command) {
        case ZIP_SOURCE_SUPPORTS:
            return ZIP_SOURCE_SUPPORTS_WRITABLE;
        case ZIP_SOURCE_STAT:
            return Stat(data, size);
        case ZIP_SOURCE_ERROR:
            return zip_error_to_data(&m_error, data, size);
        case ZIP_SOURCE_WRITE:
            return Write(static_cast<const char*>(data), size);
        case ZIP_SOURCE_SEEK_WRITE:
            return Seek(data, size);
        case ZIP_SOURCE_TELL_WRITE:
            return lseek(m_descriptor, 0, SEEK_CUR);
        case ZIP_SOURCE_OPEN: // opened before an archive is begun, and read by nobody
        case ZIP_SOURCE_CLOSE:
        case ZIP_SOURCE_BEGIN_WRITE:
        case ZIP_SOURCE_COMMIT_WRITE:
        case ZIP_SOURCE_ROLLBACK_WRITE:
        case ZIP_SOURCE_FREE:
            return 0;
        default:
            zip_error_set(&m_error, ZIP_ER_OPNOTSUPP, 0);
            return -1;
        }
    }

    zip_int64_t Fail(int code, int number)
    {
        m_failure = number;
        zip_error_set(&m_error, code, number);
        return -1;
    }

    zip_int64_t Stat(void* data, zip_uint64_t size)
    {
        // The library's own may be shorter than the one here: on 32-bit systems the date in it can
        // have half the size. What is filled in lies before the date.
        if (size < offsetof(zip_stat_t, mtime)) {
            return Fail(ZIP_ER_INVAL, EINVAL);
        }
        auto* const stat = static_cast<zip_stat_t*>(data);
        zip_stat_init(stat);
        stat->size = 0;
        stat->valid = ZIP_STAT_SIZE;
        return static_cast<zip_int64_t>(size);
    }

    zip_int64_t Write(const char* data, zip_uint64_t size)
    {
        const int error =
            io::TryWriteAll(m_descriptor, {data, static_cast<std::size_t>(size)}).error;
        if (error != 0) {
            return Fail(ZIP_ER_WRITE, error);
        }
        return static_cast<zip_int64_t>(size);
    }

    zip_int64_t Seek(void* data, zip_uint64_t size)
    {
        const zip_source_args_seek_t* const to =
            ZIP_SOURCE_GET_ARGS(zip_source_args_seek_t, data, size, &m_error);
        if (to == nullptr) {
            return -1;
        }
        return lseek(m_descriptor, to->offset, to->whence) < 0 ? Fail(ZIP_ER_SEEK, errno) : 0;
    }

    int m_descriptor;
    int m_failure = 0;
    zip_error_t m_error{};
};

/// The date as zip archives have it: two words, in no time zone.
struct DosTime {
    zip_uint16_t time = 0;
    zip_uint16_t date = 0;

    explicit DosTime(std::time_t moment)
    {
        constexpr std::time_t kFirstOf1980 = 315532800;
        const std::time_t told = std::max(moment, kFirstOf1980);
        std::tm parts{};
        static_cast<void>(gmtime_r(&told, &parts));
        time =
            static_cast<zip_uint16_t>(parts.tm_hour << 11 | parts.tm_min << 5 | parts.tm_sec / 2);
        date = static_cast<zip_uint16_t>((parts.tm_year - 80) << 9 | (parts.tm_mon + 1) << 5 |
                                         parts.tm_mday);
    }
};

[[noreturn]] void Throw(const std::string& path, zip_t* archive)
{
    throw io::Error(io::ExitCode::kNoAccess, path,
                    std::string("cannot write the archive: ") + zip_strerror(archive));
}

/// Finds out what cannot be read while its name is still known, and how much there is.
std::uint64_t SizeOf(const ArchiveItem& item)
{
    if (item.isFolder) {
        return 0;
    }
    if (item.content.has_value()) {
        return item.content->size();
    }
    struct stat info {
    };
    if (stat(item.source.c_str(), &info) != 0 || access(item.source.c_str(), R_OK) != 0) {
        throw io::ReadError(item.source, "read", errno);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

zip_int64_t AddContent(zip_t* archive, const ArchiveItem& item)
{
    if (item.isFolder) {
        return zip_dir_add(archive, item.name.c_str(), ZIP_FL_ENC_UTF_8);
    }
    zip_source_t* const source =
        item.content.has_value()
            ? zip_source_buffer(archive, item.content->data(), item.content->size(), 0)
            : zip_source_file(archive, item.source.c_str(), 0, -1);
    if (source == nullptr) {
        return -1;
    }
    const zip_int64_t index = zip_file_add(archive, item.name.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(source);
    }
    return index;
}

void Add(zip_t* archive, const ArchiveItem& item, bool isEmpty, const DosTime& when,
         const std::string& path)
{
    const zip_int64_t added = AddContent(archive, item);
    if (added < 0) {
        Throw(path, archive);
    }
    const auto index = static_cast<zip_uint64_t>(added);
    const unsigned mode = item.isFolder
                              ? S_IFDIR | 0755
                              : S_IFREG | item.mode.value_or(item.isExecutable ? 0755 : 0644);
    // For systems that know no modes.
    constexpr unsigned kFolderMark = 0x10;
    constexpr unsigned kArchiveMark = 0x20;
    // The library takes 666 alone for "not told", and writes the mode of the source instead.
    const unsigned mark = item.isFolder ? kFolderMark : mode == (S_IFREG | 0666) ? kArchiveMark : 0;
    const zip_uint32_t attributes = mode << kZipModeShift | mark;
    const zip_int32_t method = item.isFolder || isEmpty ? ZIP_CM_STORE : ZIP_CM_DEFLATE;
    if (zip_file_set_dostime(archive, index, when.time, when.date, 0) != 0 ||
        zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX, attributes) != 0 ||
        zip_set_file_compression(archive, index, method, kLevel) != 0) {
        Throw(path, archive);
    }
}

void RegisterCallbacks(zip_t* archive, const ArchiveOptions& options)
{
    constexpr double kStep = 0.002;
    const auto tell = [](zip_t* /*archive*/, double fraction, void* state) {
        static_cast<const ArchiveOptions*>(state)->onProgress(fraction);
    };
    const auto isAsked = [](zip_t* /*archive*/, void* /*state*/) {
        return io::Interruption::IsAsked() ? 1 : 0;
    };
    if (options.onProgress) {
        // The library hands the pointer back and leaves what it points to alone.
        zip_register_progress_callback_with_state(archive, kStep, tell, nullptr,
                                                  const_cast<ArchiveOptions*>(&options));
    }
    zip_register_cancel_callback_with_state(archive, isAsked, nullptr, nullptr);
}

Archive Open(Target& target, const std::string& path)
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* const source = zip_source_function_create(Target::Call, &target, &error);
    zip_t* const archive = source == nullptr
                               ? nullptr
                               : zip_open_from_source(source, ZIP_CREATE | ZIP_TRUNCATE, &error);
    const std::string why = zip_error_strerror(&error);
    zip_error_fini(&error);
    if (archive == nullptr) {
        zip_source_free(source);
        throw io::Error(io::ExitCode::kNoAccess, path, "cannot write the archive: " + why);
    }
    return Archive(archive);
}

} // namespace

WrittenArchive WriteArchive(const std::string& path, std::vector<ArchiveItem> items,
                            const ArchiveOptions& options)
{
    std::sort(items.begin(), items.end(), [](const ArchiveItem& one, const ArchiveItem& other) {
        return one.name < other.name;
    });
    const io::Interruption interruption;
    io::AtomicFile file(path);
    Target target(file.File().Number());
    Archive archive = Open(target, path);
    const DosTime when(options.moment);
    WrittenArchive written;
    for (const ArchiveItem& item : items) {
        const std::uint64_t size = SizeOf(item);
        Add(archive.get(), item, size == 0, when, path);
        written.unpacked += size;
    }
    RegisterCallbacks(archive.get(), options);
    if (zip_close(archive.get()) != 0) {
        if (target.Failure() != 0) {
            throw io::AccessError(path, "write", target.Failure());
        }
        Throw(path, archive.get());
    }
    static_cast<void>(archive.release()); // closing has freed it
    written.size = io::SizeOf(file.File(), path);
    file.Commit();
    return written;
}

} // namespace kx::archive
