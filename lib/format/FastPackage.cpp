// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/FastPackage.h"

#include "archive/TarArchive.h"
#include "format/Description.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"

#include <algorithm>
#include <utility>

namespace kx::format
{

namespace
{

using archive::PackageEntry;

constexpr const char* kShown = "the copy of an archive";
constexpr std::size_t kPiece = std::size_t{256} << 10U;

/// Tells whether the beginnings of two files are the same.
bool AreSameBytes(const io::Descriptor& one, const io::Descriptor& other, std::uint64_t size)
{
    std::string first(kPiece, '\0');
    std::string second(kPiece, '\0');
    for (std::uint64_t at = 0; at < size; at += kPiece) {
        const std::size_t count = io::ReadAt(one.Number(), first.data(), kPiece, at, kShown);
        if (io::ReadAt(other.Number(), second.data(), kPiece, at, kShown) != count ||
            first.compare(0, count, second, 0, count) != 0) {
            return false;
        }
    }
    return true;
}

/// Returns the fast folders of a package's description, if it has one that can be read.
std::vector<FastSteps> FoldersOfPackage(const archive::Package& package)
{
    if (package.Find(archive::kDescriptionName) == nullptr) {
        return {};
    }
    const Description description = ReadDescription(package);
    return description.root.has_value() ? FastStepsOf(*description.root) : std::vector<FastSteps>();
}

/// Makes a folder's entry.
PackageEntry FolderAt(const std::string& name)
{
    constexpr unsigned kFolderMode = 0755;
    PackageEntry entry;
    entry.name = name;
    entry.kind = PackageEntry::Kind::kFolder;
    entry.mode = kFolderMode;
    entry.hasMode = true;
    return entry;
}

} // namespace

FastPackage::FastPackage(const archive::Package& package)
    : FastPackage(package, FoldersOfPackage(package))
{
}

FastPackage::FastPackage(const archive::Package& package, const std::vector<FastSteps>& folders)
    : m_package(package)
{
    std::vector<PackageEntry> entries = package.Entries();
    for (const FastSteps& steps : folders) {
        try {
            Add(steps, entries);
        } catch (const archive::ContentError&) {
            m_archives.pop_back(); // a damaged archive stays one
        }
    }
    m_entries = m_folders.empty() ? std::move(entries) : archive::Arranged(std::move(entries));
}

const FastSteps* FastPackage::CopiedBy(std::size_t step) const
{
    const auto found = std::find_if(m_folders.begin(), m_folders.end(),
                                    [step](const FastSteps& steps) { return steps.copy == step; });
    return found == m_folders.end() ? nullptr : &*found;
}

/// Tells whether the archive is all that the package has for the step.
bool FastPackage::HasArchiveAlone(const FastSteps& steps) const
{
    const std::string above = std::to_string(steps.copy) + "/";
    const std::string name = steps.Place() + "/" + kFastArchiveName;
    return std::all_of(m_package.Entries().begin(), m_package.Entries().end(),
                       [&](const PackageEntry& entry) {
                           return entry.name.compare(0, above.size(), above) != 0 ||
                                  entry.name == steps.Place() || entry.name == name;
                       });
}

/// Shows the files of an archive, if it is one that kx-package makes.
void FastPackage::Add(const FastSteps& steps, std::vector<PackageEntry>& entries)
{
    const std::string name = steps.Place() + "/" + kFastArchiveName;
    const PackageEntry* const archive = m_package.Find(name);
    if (archive == nullptr || archive->kind != PackageEntry::Kind::kFile ||
        archive->size != steps.folder.size || !HasArchiveAlone(steps)) {
        return;
    }
    const std::size_t index = m_archives.size();
    m_archives.push_back(io::MakeTemporaryFile());
    m_package.Stream(name, [this](std::string_view piece) {
        io::WriteAll(m_archives.back().Number(), piece, kShown);
        return true;
    });
    std::map<std::string, PackageEntry> files;
    std::map<std::string, Place> places;
    const bool isRead = archive::ReadTar(
        m_archives.back(), kShown, [&](const archive::TarEntry& file) -> archive::ContentSink {
            PackageEntry entry;
            entry.name = file.name;
            entry.size = file.size;
            entry.mode = file.mode;
            entry.hasMode = true;
            entry.moment = archive->moment;
            places[steps.Place() + "/" + file.name] = {index, file.offset, file.size};
            files[file.name] = std::move(entry);
            return {};
        });
    for (const auto& [path, place] : places) {
        m_places.insert_or_assign(path, place);
    }
    if (!isRead || !IsSameArchive(files, steps, index)) {
        return;
    }
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&name](const PackageEntry& entry) { return entry.name == name; }),
                  entries.end());
    for (auto& file : files) {
        file.second.name = steps.Place() + "/" + file.first;
        entries.push_back(std::move(file.second));
    }
    for (const std::string& folder : steps.folder.emptyFolders) {
        entries.push_back(FolderAt(steps.Place() + "/" + folder));
    }
    m_folders.push_back(steps);
}

/// Tells whether the scripts, and the archive made anew, say the same of the files.
bool FastPackage::IsSameArchive(const std::map<std::string, PackageEntry>& files,
                                const FastSteps& steps, std::size_t archive) const
{
    const FastFolder& folder = steps.folder;
    unsigned modes = 0;
    std::uint64_t kib = 0;
    std::vector<std::string> names;
    std::vector<archive::TarItem> items;
    for (const auto& [name, entry] : files) {
        modes |= entry.mode;
        kib += KibOf(entry.size);
        names.push_back(name);
        const Place place = m_places.at(steps.Place() + "/" + name);
        items.push_back(
            {name, entry.mode, entry.size,
             [this, place](const archive::ContentSink& sink) { StreamPlace(place, sink); }});
    }
    if (modes != folder.modes || kib != folder.kib || files.size() != folder.fileCount ||
        (folder.isRecorded && names != folder.files)) {
        return false;
    }
    const io::Descriptor again = io::MakeTemporaryFile();
    return archive::WriteTar(again, kShown, std::move(items)) == folder.size &&
           AreSameBytes(m_archives[archive], again, folder.size);
}

void FastPackage::StreamPlace(const Place& place, const archive::ContentSink& sink) const
{
    std::string piece(kPiece, '\0');
    for (std::uint64_t done = 0; done < place.size;) {
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, place.size - done));
        const std::size_t count = io::ReadAt(m_archives[place.archive].Number(), piece.data(),
                                             wanted, place.offset + done, kShown);
        if (count == 0 || !sink(std::string_view(piece).substr(0, count))) {
            return;
        }
        done += count;
    }
}

std::string FastPackage::Read(const std::string& name, std::uint64_t limit) const
{
    const auto place = m_places.find(name);
    if (place == m_places.end()) {
        return m_package.Read(name, limit);
    }
    Place head = place->second;
    head.size = std::min(head.size, limit);
    std::string text;
    StreamPlace(head, [&text](std::string_view piece) {
        text += piece;
        return true;
    });
    return text;
}

void FastPackage::Stream(const std::string& name, const archive::ContentSink& sink) const
{
    const auto place = m_places.find(name);
    if (place == m_places.end()) {
        m_package.Stream(name, sink);
        return;
    }
    StreamPlace(place->second, sink);
}

} // namespace kx::format
