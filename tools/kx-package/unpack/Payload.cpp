// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "unpack/Payload.h"

#include "archive/Links.h"
#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/Text.h"
#include "io/Transfer.h"
#include "io/Utf8.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace kx::tool
{

namespace
{

using archive::PackageEntry;

std::string Joined(const std::string& folder, const std::string& name)
{
    return folder.empty() ? name : folder + "/" + name;
}

bool IsBelow(const std::string& name, const std::string& folder)
{
    return folder.empty() || (name.size() > folder.size() && name[folder.size()] == '/' &&
                              name.compare(0, folder.size(), folder) == 0);
}

bool HasControl(const std::string& name)
{
    return std::any_of(name.begin(), name.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

} // namespace

Payload::Payload(const archive::Package& package)
    : m_package(package), m_isUsed(package.Entries().size(), false)
{
}

void Payload::Refuse(const std::string& name, const std::string& what) const
{
    throw io::Error(io::ExitCode::kProblems, m_package.Path() + ":" + name, what,
                    "no author's file can stand for it");
}

const PackageEntry* Payload::FileAt(const std::string& name) const
{
    const PackageEntry* entry = m_package.Find(name);
    if (entry != nullptr && entry->kind == PackageEntry::Kind::kLink) {
        entry = archive::FollowLink(m_package, *entry).entry;
    }
    return entry != nullptr && entry->kind == PackageEntry::Kind::kFile ? entry : nullptr;
}

void Payload::Take(const std::string& name)
{
    const PackageEntry* const entry = m_package.Find(name);
    if (entry != nullptr) {
        m_isUsed[static_cast<std::size_t>(entry - m_package.Entries().data())] = true;
    }
}

std::size_t Payload::FirstBelow(const std::string& folder) const
{
    const std::vector<PackageEntry>& entries = m_package.Entries();
    const std::string prefix = folder.empty() ? "" : folder + "/";
    const auto place = std::lower_bound(
        entries.begin(), entries.end(), prefix,
        [](const PackageEntry& entry, const std::string& wanted) { return entry.name < wanted; });
    return static_cast<std::size_t>(place - entries.begin());
}

void Payload::Add(PayloadPart part, Parts& parts)
{
    constexpr std::size_t kMostParts = 400000;
    const std::string& name = part.entry != nullptr ? part.entry->name : part.name;
    if (!io::IsUtf8(part.name)) {
        Refuse(name, "its name is not UTF-8");
    }
    if (HasControl(part.name)) {
        Refuse(name, "its name holds control characters");
    }
    if (++m_parts > kMostParts) {
        Refuse(name, "links make more files of the package than can be unpacked");
    }
    parts.push_back(std::move(part));
}

void Payload::AddLink(const PackageEntry& link, const std::string& shown, unsigned depth,
                      Parts& parts)
{
    constexpr unsigned kDeepest = 16;
    const archive::LinkEnd end = archive::FollowLink(m_package, link);
    if (end.entry == nullptr || depth == kDeepest) {
        Refuse(link.name, "is a link to '" + end.target +
                              "', which leads out of the package or "
                              "has no end");
    }
    if (end.entry->kind == PackageEntry::Kind::kFolder) {
        const std::size_t before = parts.size();
        Collect(end.entry->name, shown, depth + 1, parts);
        if (parts.size() == before) {
            Add({shown, nullptr}, parts);
        }
        return;
    }
    if (end.entry->kind != PackageEntry::Kind::kFile) {
        Refuse(link.name, "is a link to something that is neither a file nor a folder");
    }
    Add({shown, end.entry}, parts);
}

void Payload::Collect(const std::string& folder, const std::string& shown, unsigned depth,
                      Parts& parts)
{
    const std::vector<PackageEntry>& entries = m_package.Entries();
    const std::size_t skipped = folder.empty() ? 0 : folder.size() + 1;
    for (std::size_t i = FirstBelow(folder); i < entries.size() && IsBelow(entries[i].name, folder);
         ++i) {
        const PackageEntry& entry = entries[i];
        if (depth == 0) {
            m_isUsed[i] = true;
        }
        const std::string name = Joined(shown, entry.name.substr(skipped));
        switch (entry.kind) {
        case PackageEntry::Kind::kFolder: {
            const std::size_t inside = FirstBelow(entry.name);
            if (inside == entries.size() || !IsBelow(entries[inside].name, entry.name)) {
                Add({name, nullptr}, parts);
            }
            break;
        }
        case PackageEntry::Kind::kFile:
            Add({name, &entry}, parts);
            break;
        case PackageEntry::Kind::kLink:
            AddLink(entry, name, depth, parts);
            break;
        case PackageEntry::Kind::kOther:
            Refuse(entry.name, "is neither a file nor a folder");
        }
    }
}

std::vector<PayloadPart> Payload::TakeBelow(const std::string& folder)
{
    Parts parts;
    Collect(folder, "", 0, parts);
    return parts;
}

std::vector<PayloadPart> Payload::TakeRest(std::vector<std::string>& lost)
{
    const std::vector<PackageEntry>& entries = m_package.Entries();
    Parts parts;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (m_isUsed[i] || entries[i].kind == PackageEntry::Kind::kFolder) {
            continue; // an empty folder that no step uses makes no difference
        }
        m_isUsed[i] = true;
        const PackageEntry* const file = FileAt(entries[i].name);
        if (file == nullptr) {
            lost.push_back(entries[i].name);
        } else {
            Add({entries[i].name, file}, parts);
        }
    }
    return parts;
}

PayloadWriter::PayloadWriter(const archive::Package& package, std::string folder,
                             std::uint64_t mostBytes, std::function<void(std::uint64_t)> tell)
    : m_package(package), m_folder(std::move(folder)), m_mostBytes(mostBytes),
      m_tell(std::move(tell))
{
}

void PayloadWriter::MakeFolder(const std::string& path)
{
    std::error_code error;
    std::filesystem::create_directories(m_folder + "/" + path, error);
    if (error) {
        throw io::AccessError(path, "make the folder", error.value());
    }
}

void PayloadWriter::RefuseMore(std::uint64_t bytes) const
{
    if (bytes > m_mostBytes) {
        throw io::Error(io::ExitCode::kNoAccess, m_package.Path(),
                        "unpacks to more than " + io::SizeText(m_mostBytes),
                        "allow more with --disk MiB");
    }
}

void PayloadWriter::WritePiece(int descriptor, std::string_view piece, const std::string& path)
{
    if (io::Interruption::IsAsked()) {
        throw io::AccessError(path, "write", EINTR);
    }
    m_bytes += piece.size();
    RefuseMore(m_bytes);
    io::WriteAll(descriptor, piece, path);
    if (m_tell) {
        m_tell(m_bytes);
    }
}

namespace
{

/// Makes a file that is not there yet, with the folders above it.
io::Descriptor NewFileAt(PayloadWriter& writer, const std::string& folder, const std::string& path)
{
    constexpr mode_t kMode = 0666; // less the umask: nothing of a package becomes a program
    const std::size_t slash = path.rfind('/');
    if (slash != std::string::npos) {
        writer.MakeFolder(path.substr(0, slash));
    }
    return io::CreateFile(folder + "/" + path, kMode);
}

} // namespace

void PayloadWriter::WriteEntry(const std::string& path, const PackageEntry& entry)
{
    const io::Descriptor file = NewFileAt(*this, m_folder, path);
    m_package.Stream(entry.name, [this, &file, &path](std::string_view piece) {
        WritePiece(file.Number(), piece, path);
        return true;
    });
}

void PayloadWriter::WriteText(const std::string& path, const std::string& text)
{
    const io::Descriptor file = NewFileAt(*this, m_folder, path);
    WritePiece(file.Number(), text, path);
}

bool PayloadWriter::IsSame(const std::string& path, const PackageEntry& entry) const
{
    const io::Descriptor file = io::OpenFile(m_folder + "/" + path, "read");
    std::uint64_t done = 0;
    bool isSame = true;
    m_package.Stream(entry.name, [&](std::string_view piece) {
        const std::string other = io::ReadUpTo(file.Number(), piece.size(), path);
        done += piece.size();
        isSame = other == piece && !io::Interruption::IsAsked();
        return isSame;
    });
    return isSame && done == io::SizeOf(file, path);
}

} // namespace kx::tool
