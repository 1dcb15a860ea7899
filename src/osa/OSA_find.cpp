// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The folder search and the recursive copy of OSA.h.
#include "engine/q_UpdaterEngine.h"
#include "osa/OSA.h"
#include "osa/OSA_System.h"
#include "osa/PathList.h"

#include <cstdlib>
#include <string_view>
#include <utility>

namespace
{

class OSA_FindFile_Imp final : public OSA_FindFile::IOSA_FindFile_imp
{
public:
    OSA_FindFile_Imp() = default;
    OSA_FindFile_Imp(const OSA_FindFile_Imp&) = delete;
    OSA_FindFile_Imp& operator=(const OSA_FindFile_Imp&) = delete;
    ~OSA_FindFile_Imp() override { Release(); }

    const char* FindFirst(const char* dir) override
    {
        Release();
        count = OSA_SystemList(dir, &entries);
        return Next();
    }

    const char* Next() override
    {
        while (index < count) {
            const char* const name = entries[index++]->d_name;
            if (std::string_view(name) != "." && std::string_view(name) != "..") {
                return name;
            }
        }
        return nullptr;
    }

private:
    void Release()
    {
        while (count > 0) {
            std::free(entries[--count]);
        }
        std::free(entries);
        entries = nullptr;
        index = 0;
    }

    dirent** entries = nullptr; ///< from OSA_SystemList; null when there is no listing
    int count = 0;              ///< number of entries; -1 after a failed listing
    int index = 0;              ///< next entry to look at
};

std::string Join(const std::string& folder, const char* name)
{
    const std::string_view entry(name);
    std::string path;
    path.reserve(folder.size() + 1 + entry.size()); // one piece
    path.append(folder);
    if (folder.empty() || folder.back() != '/') {
        path += '/';
    }
    return path.append(entry);
}

/// Copies one entry of a folder: a folder with all it holds, anything else by `cp`.
int CopyEntry(const std::string& source, std::string target, bool record)
{
    if (OSA_IsDir(source.c_str())) {
        return OSA_CopyDirIn(source.c_str(), target.c_str(), record);
    }
    if (const int status = OSA_Shell(R"(cp -f "%s" "%s" )", source.c_str(), target.c_str());
        status != 0) {
        return status;
    }
    if (record) {
        q_UpdaterEngine::CopyFileList->AppendOnce(std::move(target));
    }
    return 0;
}

} // namespace

OSA_FindFile::OSA_FindFile() : imp(std::make_unique<OSA_FindFile_Imp>()) {}

int OSA_CopyDirIn(const char* src, const char* dst, bool record)
{
    std::string prefix(dst);
    if (prefix == "/") {
        prefix.clear();
    } else if (!OSA_IsDir(dst)) {
        // A failure shows in the copies that follow.
        static_cast<void>(OSA_mkdir(dst));
        if (record) {
            q_UpdaterEngine::CopyFolderList->AppendOnce(dst);
        }
    }

    OSA_FindFile listing;
    for (const char* name = listing.FindFirst(src); name != nullptr; name = listing.Next()) {
        if (const int status = CopyEntry(Join(src, name), Join(prefix, name), record);
            status != 0) {
            return status;
        }
    }
    return 0;
}
