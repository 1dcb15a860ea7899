// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "registry/Registry.h"

#include "archive/Package.h"
#include "engine/ILogger.h"
#include "engine/UserPackageInstaller.h"
#include "engine/q_UpdaterEngine.h"
#include "format/Classes.h"
#include "format/Description.h"
#include "io/Error.h"
#include "io/WholeFile.h"
#include "model/DB_KxUserProject.h"
#include "osa/OSA.h"

#include <cstdarg>
#include <utility>

namespace kx::registry
{

namespace
{

using Kind = io::RootedFolder::Kind;

/// Keeps the first line that the updater's code logs: the cause, before what follows from it.
class FirstLine final : public ILogger
{
public:
    [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override
    {
        va_list args;
        va_start(args, format);
        Keep(OSA_Format(format, args));
        va_end(args);
    }

    void OutMsg(const char* text) override { Keep(text); }

    [[nodiscard]] const std::string& Line() const { return m_line; }

private:
    void Keep(const std::string& line)
    {
        if (m_line.empty()) {
            m_line = line;
        }
    }

    std::string m_line;
};

/// Lends a logger to the updater's code for the life of the object.
class LoggerScope
{
public:
    explicit LoggerScope(ILogger& logger) : m_before(q_UpdaterEngine::SysLogger)
    {
        static const bool kIsSetUp = [&logger] {
            q_UpdaterEngine::InitSystem(&logger); // registers the classes: once in a process
            return true;
        }();
        static_cast<void>(kIsSetUp);
        q_UpdaterEngine::SysLogger = &logger;
    }
    LoggerScope(const LoggerScope&) = delete;
    LoggerScope& operator=(const LoggerScope&) = delete;
    ~LoggerScope() { q_UpdaterEngine::SysLogger = m_before; }

private:
    ILogger* m_before;
};

/// Says why the updater's reader must not get a description, or nothing: it ends by a root value
/// that is no object, and may read for hours in a root object that is a list.
std::string WhyNotToRead(const format::Description& description)
{
    if (!description.root.has_value()) {
        const format::TextPosition& position = description.error.position;
        return "is not JSON: line " + std::to_string(position.line) + ", column " +
               std::to_string(position.column) + " after the byte order mark";
    }
    if (!description.root->IsObject()) {
        return std::string("is ") + description.root->KindName() +
               ", not a JSON object: the updater's window ends when it shows its list";
    }
    if (format::ClassOf(*description.root) != &DB_KxUserProject::kInfo) {
        return "is not a package description: its \"$type\" is not '" +
               std::string(DB_KxUserProject::kInfo.type) + "'";
    }
    return {};
}

void AddProblem(Record& record, const char* id, const std::string& what)
{
    record.problems.push_back({id, what});
}

/// Tells as a problem what kept a file from being read; its name stands first.
void AddUnread(Record& record, const char* id, const char* file, const std::string& why)
{
    AddProblem(record, id, std::string(file) + " " + why);
}

/// Reads the root of a description as the updater's own list does.
void ReadIdentity(const io::Descriptor& file, Record& record)
{
    constexpr const char* kId = "description-unreadable";
    const format::Description description =
        format::ParseDescription(io::ReadWholeFile(file.Path(), kLargestRecordedDescription));
    if (const std::string why = WhyNotToRead(description); !why.empty()) {
        AddUnread(record, kId, archive::kDescriptionName, why);
        return;
    }
    FirstLine logger;
    const LoggerScope scope(logger);
    UserPackageInstaller package;
    package.projectFile = file.Path();
    if (package.ReadRootOnlyKxProjectFile() != 0) {
        AddUnread(record, kId, archive::kDescriptionName,
                  "is refused by the updater: " + logger.Line());
        return;
    }
    record.fastFolders = format::FastStepsOf(*description.root);
    const DB_KxUserProject& root = *package.Project();
    record.identity = Identity{root.Title,     root.PackageVersion, root.Comment,
                               root.ModelName, root.OsVersion,      root.Date};
}

void ReadDescriptionOf(const io::RootedFolder& root, Record& record)
{
    const std::string path = RecordPath(record.name) + "/" + archive::kDescriptionName;
    try {
        ReadIdentity(root.Open(path, Kind::kFile), record);
    } catch (const io::Error& error) {
        AddUnread(record, "description-unreadable", archive::kDescriptionName, error.what());
    }
}

void ReadListOf(const io::RootedFolder& root, Record& record,
                const std::function<void(const ListEntry&)>& tell)
{
    const std::string path = RecordPath(record.name) + "/" + kListName;
    try {
        const io::Descriptor file = root.Open(path, Kind::kFile);
        ListSummary list = ReadRecordList(file, root.Shown(path), path, tell);
        record.has = RecordedCounts{list.folders, list.files};
        record.omittedProblems = list.omittedProblems;
        for (RecordProblem& problem : list.problems) {
            record.problems.push_back(std::move(problem));
        }
    } catch (const io::Error& error) {
        AddUnread(record, "list-unreadable", kListName, error.what());
    }
}

/// Says what an entry is that is no record.
std::string WhatElse(Kind kind, const std::string& name)
{
    if (kind != Kind::kFile) {
        return kind == Kind::kFolder    ? "is a folder without a record's files"
               : kind == Kind::kMissing ? "is a link that leads nowhere"
               : kind == Kind::kOther   ? "is a device, a pipe or a socket"
                                        : "cannot be looked at";
    }
    return name == archive::kDescriptionName || name == kListName
               ? "is a file of a package that was unpacked into a folder without a name"
               : "is a file";
}

} // namespace

std::string RecordPath(const std::string& name)
{
    return std::string(kRegistryPath) + "/" + name;
}

std::vector<std::string> RegistryNames(const io::RootedFolder& root)
{
    std::vector<std::string> names;
    if (root.Look(kRegistryPath).kind == Kind::kMissing) {
        return names;
    }
    const io::Descriptor folder = root.Open(kRegistryPath, Kind::kFolder);
    OSA_FindFile listing;
    for (const char* name = listing.FindFirst(folder.Path().c_str()); name != nullptr;
         name = listing.Next()) {
        names.emplace_back(name);
    }
    return names;
}

Record ReadRecord(const io::RootedFolder& root, const std::string& name,
                  const std::function<void(const ListEntry&)>& tell)
{
    Record record;
    record.name = name;
    const std::string path = RecordPath(name);
    const Kind kind = root.Look(path).kind;
    const Kind description = root.Look(path + "/" + archive::kDescriptionName).kind;
    const Kind list = root.Look(path + "/" + kListName).kind;
    if (kind != Kind::kFolder || (description == Kind::kMissing && list == Kind::kMissing)) {
        AddProblem(record, "no-record", WhatElse(kind, name));
        return record;
    }
    record.isRecord = true;
    if (description == Kind::kMissing) {
        AddProblem(record, "description-missing",
                   "there is no UserPackage.kx-project: the updater's list leaves the package out");
    } else {
        ReadDescriptionOf(root, record);
    }
    if (list == Kind::kMissing) {
        AddProblem(record, "list-missing",
                   "there is no installedFile.list: the record was not written completely");
    } else {
        ReadListOf(root, record, tell);
    }
    return record;
}

} // namespace kx::registry
