// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Package.h"
#include "io/Error.h"
#include "io/StandardInput.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include <sys/stat.h>
#include <zip.h>

namespace kx::archive
{

namespace
{

struct CloseArchive {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct CloseFile {
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};

/// The text that libzip has for an error number of its own.
std::string Reason(int number)
{
    zip_error_t error;
    zip_error_init_with_code(&error, number);
    std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    return text;
}

class ArchivePackage final : public Package
{
public:
    /// @param input  holds the archive, when it does not lie at the path
    explicit ArchivePackage(const std::string& path,
                            std::unique_ptr<io::StandardInput> input = nullptr)
        : m_path(path), m_input(std::move(input))
    {
        int number = 0;
        m_archive.reset(
            zip_open(m_input ? m_input->Path().c_str() : path.c_str(), ZIP_RDONLY, &number));
        if (m_archive == nullptr) {
            throw io::Error(io::ExitCode::kNoAccess, path,
                            "cannot open the archive: " + Reason(number));
        }
        const zip_int64_t count = zip_get_num_entries(m_archive.get(), 0);
        std::vector<PackageEntry> entries;
        entries.reserve(static_cast<std::size_t>(std::max<zip_int64_t>(count, 0)));
        for (zip_int64_t index = 0; index < count; ++index) {
            const auto place = static_cast<zip_uint64_t>(index);
            entries.push_back(EntryAt(place));
            if (entries.back().kind != PackageEntry::Kind::kFolder) {
                m_places[entries.back().name] = place;
            }
        }
        m_entries = Arranged(std::move(entries));
    }

    [[nodiscard]] const std::string& Path() const override { return m_path; }
    [[nodiscard]] bool IsArchive() const override { return true; }
    [[nodiscard]] const std::vector<PackageEntry>& Entries() const override { return m_entries; }

    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override
    {
        const std::unique_ptr<zip_file_t, CloseFile> file(
            zip_fopen_index(m_archive.get(), IndexOf(name), 0));
        if (file == nullptr) {
            throw io::Error(io::ExitCode::kNoAccess, m_path + ":" + name,
                            std::string("cannot read: ") + zip_strerror(m_archive.get()));
        }
        std::string bytes;
        std::string piece(1 << 16, '\0');
        while (bytes.size() < limit) {
            const zip_int64_t count = zip_fread(file.get(), piece.data(), piece.size());
            if (count < 0) {
                throw io::Error(io::ExitCode::kNoAccess, m_path + ":" + name,
                                std::string("cannot read: ") + zip_file_strerror(file.get()));
            }
            if (count == 0) {
                break;
            }
            bytes.append(piece, 0, static_cast<std::size_t>(count));
        }
        bytes.resize(std::min<std::uint64_t>(bytes.size(), limit));
        return bytes;
    }

private:
    /// Returns the place of the last entry of that name: unpacking leaves that one.
    [[nodiscard]] zip_uint64_t IndexOf(const std::string& name) const
    {
        const auto place = m_places.find(name);
        if (place == m_places.end()) {
            throw io::Error(io::ExitCode::kNoAccess, m_path,
                            "there is no '" + name + "' in the archive");
        }
        return place->second;
    }

    [[nodiscard]] PackageEntry EntryAt(zip_uint64_t index) const
    {
        zip_stat_t info;
        if (zip_stat_index(m_archive.get(), index, ZIP_FL_ENC_RAW, &info) != 0) {
            throw io::Error(io::ExitCode::kNoAccess, m_path,
                            std::string("cannot look at an entry: ") +
                                zip_strerror(m_archive.get()));
        }
        PackageEntry entry;
        entry.name = info.name;
        entry.size = info.size;
        if (!entry.name.empty() && entry.name.back() == '/') {
            entry.name.pop_back();
            entry.kind = PackageEntry::Kind::kFolder;
        }
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        zip_file_get_external_attributes(m_archive.get(), index, 0, &system, &attributes);
        constexpr unsigned kModeShift = 16;
        const unsigned mode = attributes >> kModeShift;
        if (system == ZIP_OPSYS_UNIX && mode != 0) {
            entry.mode = mode & 07777U;
            entry.hasMode = true;
            entry.kind = S_ISLNK(mode) ? PackageEntry::Kind::kLink : entry.kind;
        }
        return entry;
    }

    std::string m_path;
    std::unique_ptr<io::StandardInput> m_input;
    std::unique_ptr<zip_t, CloseArchive> m_archive;
    std::vector<PackageEntry> m_entries;
    std::unordered_map<std::string, zip_uint64_t> m_places;
};

} // namespace

std::unique_ptr<Package> OpenArchive(const std::string& path)
{
    if (path == io::kStandardInput) {
        return std::make_unique<ArchivePackage>(io::kStandardInputName,
                                                std::make_unique<io::StandardInput>());
    }
    return std::make_unique<ArchivePackage>(path);
}

} // namespace kx::archive
