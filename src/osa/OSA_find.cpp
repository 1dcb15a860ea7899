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
#include <vector>

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

    [[nodiscard]] bool MayBeDir() const override
    {
        if (index == 0) {
            return true; // no entry yet
        }
        const unsigned char type = entries[index - 1]->d_type;
        return type == DT_DIR || type == DT_LNK || type == DT_UNKNOWN;
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

/// Appends the files that were copied to the engine's list, and forgets them here.
void Record(std::vector<std::string>& copied)
{
    for (std::string& file : copied) {
        q_UpdaterEngine::CopyFileList->AppendOnce(std::move(file));
    }
    copied.clear();
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

    // Recorded together: what a command has pushed out of the processor's cache is fetched once.
    std::vector<std::string> copied;
    int status = 0;
    OSA_FindFile listing;
    for (const char* name = listing.FindFirst(src); name != nullptr && status == 0;
         name = listing.Next()) {
        const std::string source = Join(src, name);
        std::string target = Join(prefix, name);
        if (listing.MayBeDir() && OSA_IsDir(source.c_str())) {
            Record(copied);
            status = OSA_CopyDirIn(source.c_str(), target.c_str(), record);
            continue;
        }
        status = OSA_Shell(R"(cp -f "%s" "%s" )", source.c_str(), target.c_str());
        if (status == 0 && record) {
            copied.push_back(std::move(target));
        }
    }
    Record(copied);
    return status;
}
