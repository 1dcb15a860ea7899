// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/PanelFiles.h"

#include "format/PanelSurvey.h"
#include "io/Path.h"

#include <algorithm>
#include <array>

namespace kx::checks
{

namespace
{

/// "/bin/x" and "/usr/bin/x" are one file on a panel whose /bin leads to /usr/bin.
std::string OtherPath(const std::string& path)
{
    const std::string usr = "/usr";
    return path.compare(0, usr.size() + 1, usr + "/") == 0 ? path.substr(usr.size()) : usr + path;
}

/// Folders in which commands are looked for; those in /usr are found by them, too.
constexpr std::array<const char*, 4> kCommandFolders = {"/bin/", "/usr/local/bin/", "/sbin/",
                                                        "/usr/local/sbin/"};

bool IsLoaderName(const std::string& name)
{
    return name.compare(0, 3, "ld-") == 0 || name.compare(0, 3, "ld.") == 0;
}

} // namespace

PanelFiles::PanelFiles(const format::PanelModel& model)
    : m_model(model), m_knowsLibraries(model.libraries.has_value()), m_cLibrary(model.cLibrary)
{
    if (model.libraries.has_value()) {
        m_libraries.insert(model.libraries->begin(), model.libraries->end());
    }
    if (model.interpreters.has_value()) {
        m_knowsLoaders =
            std::any_of(model.interpreters->begin(), model.interpreters->end(),
                        [](const std::string& path) { return IsLoaderName(io::LastPart(path)); });
    }
    if (!model.root.empty()) {
        m_root.emplace(model.root);
        m_libraries.merge(format::LibrariesOf(*m_root));
        m_knowsLibraries = true;
        m_knowsLoaders = true;
        if (m_cLibrary.empty()) {
            m_cLibrary = format::CLibraryOf(*m_root);
        }
    }
}

void PanelFiles::AddBrought(const std::string& target)
{
    m_brought.insert(target);
    m_broughtNames.insert(io::LastPart(target));
}

bool PanelFiles::IsListed(const std::string& path) const
{
    const std::vector<std::string>& list = *m_model.interpreters;
    return std::find(list.begin(), list.end(), path) != list.end();
}

bool PanelFiles::IsFile(const std::string& path) const
{
    return m_brought.count(path) != 0 || m_brought.count(OtherPath(path)) != 0 ||
           (m_root.has_value() && m_root->Look(path).kind == io::RootedFolder::Kind::kFile);
}

bool PanelFiles::HasInterpreter(const std::string& path) const
{
    const std::string plain = io::PlainPath(path);
    if ((!m_model.interpreters.has_value() && !m_root.has_value()) || plain == "/bin/sh" ||
        IsFile(plain)) {
        return true;
    }
    return m_model.interpreters.has_value() && (IsListed(plain) || IsListed(OtherPath(plain)));
}

bool PanelFiles::HasCommand(const std::string& name) const
{
    return std::any_of(std::begin(kCommandFolders), std::end(kCommandFolders),
                       [&](const char* folder) { return HasInterpreter(folder + name); });
}

bool PanelFiles::HasLoader(const std::string& path) const
{
    return !m_knowsLoaders || HasInterpreter(path);
}

bool PanelFiles::HasLibrary(const std::string& name, const std::vector<std::string>& folders) const
{
    const std::string last = io::LastPart(name);
    if (!m_knowsLibraries || IsLoaderName(last) || m_libraries.count(last) != 0 ||
        m_broughtNames.count(last) != 0) {
        return true;
    }
    return std::any_of(folders.begin(), folders.end(), [&](const std::string& folder) {
        return folder[0] == '/' && IsFile(io::PlainPath(folder + "/" + last));
    });
}

} // namespace kx::checks
