// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "io/Error.h"
#include "io/Text.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kx::rehearsal
{

/// A package that exists in memory only.
class MadePackage final : public archive::Package
{
public:
    std::string path = "Foo.kx-update";

    /// Adds something; the content of a link is where it leads.
    void Add(archive::PackageEntry::Kind kind, const std::string& name,
             const std::string& content = {}, unsigned mode = 0644)
    {
        archive::PackageEntry entry;
        entry.name = name;
        entry.kind = kind;
        entry.size = content.size();
        entry.mode = mode;
        m_entries.push_back(entry);
        m_entries = archive::Arranged(std::move(m_entries));
        m_contents[name] = content;
    }

    [[nodiscard]] const std::string& Path() const override { return path; }
    [[nodiscard]] bool IsArchive() const override { return true; }
    [[nodiscard]] const std::vector<archive::PackageEntry>& Entries() const override
    {
        return m_entries;
    }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override
    {
        if (m_contents.at(name) == "damaged") {
            throw io::Error(io::ExitCode::kNoAccess, name, "is damaged");
        }
        return std::string(io::FirstBytes(m_contents.at(name), limit));
    }
    [[nodiscard]] std::string LinkTarget(const std::string& name) const override
    {
        return m_contents.at(name);
    }
    [[nodiscard]] int UnpackStatus() const override { return unpackStatus; }

    int unpackStatus = 0; ///< of the panel's unzip

private:
    std::vector<archive::PackageEntry> m_entries;
    std::map<std::string, std::string> m_contents;
};

} // namespace kx::rehearsal
