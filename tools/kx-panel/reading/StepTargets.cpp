// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "reading/StepTargets.h"

#include "archive/Links.h"
#include "format/Kinds.h"
#include "io/Path.h"
#include "osa/OSA.h"
#include "reading/Examination.h"
#include "reading/Fields.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kx::guard
{

namespace
{

using archive::PackageEntry;

/// Returns a text of the description as the updater reads it: up to a zero byte.
std::string AsRead(const std::string& text)
{
    return text.substr(0, text.find('\0'));
}

/// Returns a path of the description as a full and plain one: the updater is started in the root
/// folder.
std::string FullPath(const std::string& path)
{
    return io::PlainPath("/" + AsRead(path));
}

std::string Below(const std::string& folder, std::string_view name)
{
    return std::string(folder == "/" ? "" : folder).append("/").append(name);
}

class TargetTeller
{
public:
    TargetTeller(const archive::Package& package, IMessages& messages)
        : m_package(package), m_messages(messages)
    {
    }

    bool Tell(const format::Summary& summary)
    {
        for (std::size_t i = 0; i < summary.steps.size(); ++i) {
            TellStep(summary.steps[i], std::to_string(i) + "/");
        }
        for (const format::FastSteps& fast : summary.fastFolders) {
            TellFast(fast.folder);
        }
        return m_count <= kMostTargets;
    }

private:
    void TellStep(const format::SummaryStep& step, const std::string& folder)
    {
        const bool isFiles = step.kind == format::kCopyFilesKind.name;
        const bool isFolders = step.kind == format::kCopyFolderKind.name;
        for (std::size_t j = 0; (isFiles || isFolders) && j < step.items.size(); ++j) {
            const format::SummaryItem& item = step.items[j];
            if (isFiles) {
                TellFileItem(item, folder + std::to_string(j) + "/");
            } else {
                TellFolder(folder + std::to_string(j), FullPath(item.target));
            }
        }
    }

    void TellFileItem(const format::SummaryItem& item, const std::string& folder)
    {
        const std::string name = OSA_GetFilenameExt(item.source.c_str());
        const PackageEntry* const file = EndOf(m_package.Find(folder + name));
        const std::string target = AsRead(item.target);
        if (file == nullptr || file->kind != PackageEntry::Kind::kFile || target.empty()) {
            return; // the step fails
        }
        const bool isFolder = target.back() == '/';
        TellFile(FullPath(target), isFolder, name, file->size);
    }

    /// Tells of a folder and of all that is copied with it.
    /// @param name  of the folder in the package
    void TellFolder(const std::string& name, const std::string& target)
    {
        Send(ExamKind::kFolder, target, FieldsWriter().Text(target));
        const PackageEntry* const folder = EndOf(m_package.Find(name));
        if (folder == nullptr || folder->kind != PackageEntry::Kind::kFolder) {
            return; // there is nothing to copy
        }
        const std::string prefix = folder->name + "/";
        const std::vector<PackageEntry>& entries = m_package.Entries();
        auto entry = std::lower_bound(
            entries.begin(), entries.end(), prefix,
            [](const PackageEntry& one, const std::string& wanted) { return one.name < wanted; });
        for (; entry != entries.end() && entry->name.compare(0, prefix.size(), prefix) == 0 &&
               m_count <= kMostTargets;
             ++entry) {
            TellEntry(*entry, Below(target, std::string_view(entry->name).substr(prefix.size())));
        }
    }

    void TellEntry(const PackageEntry& entry, const std::string& target)
    {
        if (entry.kind == PackageEntry::Kind::kFolder) {
            Send(ExamKind::kFolder, target, FieldsWriter().Text(target));
            return;
        }
        const PackageEntry* const end = EndOf(&entry);
        if (end == nullptr) {
            return; // the step fails
        }
        if (end->kind == PackageEntry::Kind::kFolder) {
            TellLinkedFolder(entry, end->name, target);
        } else {
            TellFile(target, false, "", end->size);
        }
    }

    /// Tells of what a link to a folder adds. Links in links multiply what they lead to.
    void TellLinkedFolder(const PackageEntry& link, const std::string& name,
                          const std::string& target)
    {
        constexpr std::size_t kDeepest = 40; // as many as the system follows
        if (io::IsIn(link.name, name) || m_depth == kDeepest) {
            m_count = kMostTargets + 1; // it has no end
            return;
        }
        ++m_depth;
        TellFolder(name, target);
        --m_depth;
    }

    void TellFast(const format::FastFolder& folder)
    {
        const std::string target = FullPath(folder.target);
        for (const std::string& name : folder.emptyFolders) {
            const std::string path = io::PlainPath(Below(target, name));
            Send(ExamKind::kFolder, path, FieldsWriter().Text(path));
        }
        for (const std::string& name : folder.files) {
            const std::string path = io::PlainPath(Below(target, name));
            Send(ExamKind::kFastFile, path, FieldsWriter().Text(path));
        }
        Send(ExamKind::kFast, target,
             FieldsWriter().Text(target).Number(folder.kib).Number(folder.fileCount));
    }

    /// Returns an entry, or what it leads to when it is a link; null when that is not there.
    [[nodiscard]] const PackageEntry* EndOf(const PackageEntry* entry) const
    {
        const bool isLink = entry != nullptr && entry->kind == PackageEntry::Kind::kLink;
        return isLink ? archive::FollowLink(m_package, *entry).entry : entry;
    }

    void TellFile(const std::string& path, bool isFolder, const std::string& name,
                  std::uint64_t bytes)
    {
        Send(ExamKind::kFile, path,
             FieldsWriter().Text(path).Number(isFolder ? 1 : 0).Text(name).Number(bytes));
    }

    void Send(ExamKind kind, const std::string& path, const FieldsWriter& fields)
    {
        // Of a path that is too long nothing is made.
        if (path.size() <= kLongestPath && ++m_count <= kMostTargets) {
            m_messages.Send(static_cast<std::uint8_t>(kind), fields.Bytes());
        }
    }

    const archive::Package& m_package;
    IMessages& m_messages;
    std::uint64_t m_count = 0;
    std::size_t m_depth = 0; ///< how many links lead to where the present folder is looked at
};

} // namespace

bool TellTargets(const archive::Package& package, const format::Summary& summary,
                 IMessages& messages)
{
    return TargetTeller(package, messages).Tell(summary);
}

} // namespace kx::guard
