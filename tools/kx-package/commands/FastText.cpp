// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/FastText.h"

#include "io/Text.h"

#include <ostream>
#include <string>

namespace kx::tool
{

namespace
{

picojson::value PathsOf(const format::FastFolder& folder, const std::vector<std::string>& names)
{
    picojson::array paths;
    for (const std::string& name : names) {
        paths.push_back(JsonText(format::PathInFast(folder, name)));
    }
    return picojson::value(paths);
}

} // namespace

picojson::value FastFoldersAsJson(const std::vector<format::FastSteps>& folders)
{
    picojson::array list;
    for (const format::FastSteps& steps : folders) {
        const format::FastFolder& folder = steps.folder;
        list.push_back(picojson::value(picojson::object{
            {"step", JsonNumber(steps.copy + 1)},
            {"source", JsonText(steps.origin)},
            {"target", JsonText(folder.target)},
            {"archive", JsonText(folder.archive)},
            {"archiveSize", JsonNumber(folder.size)},
            {"fileCount", JsonNumber(folder.fileCount)},
            {"isRecorded", picojson::value(folder.isRecorded)},
            {"folders", PathsOf(folder, folder.isRecorded ? format::FoldersOf(folder)
                                                          : std::vector<std::string>())},
            {"files", PathsOf(folder, folder.files)},
        }));
    }
    return picojson::value(list);
}

void TellFastFolders(const Output& output, const std::vector<format::FastSteps>& folders)
{
    for (const format::FastSteps& steps : folders) {
        const format::FastFolder& folder = steps.folder;
        output.out << "Unpacked to " << io::Printable(folder.target) << " in step "
                   << steps.copy + 2 << ", from " << io::Printable(folder.archive) << ": "
                   << io::CountText(folder.fileCount, "file")
                   << (folder.isRecorded ? ", which the uninstall script removes" : "") << '\n';
        if (folder.isRecorded) {
            for (const std::string& name : format::FoldersOf(folder)) {
                output.out << "  " << io::Printable(format::PathInFast(folder, name))
                           << "  (folder)\n";
            }
        }
        for (const std::string& name : folder.files) {
            output.out << "  " << io::Printable(format::PathInFast(folder, name)) << '\n';
        }
    }
    if (!folders.empty()) {
        output.out << "Files that are there already are replaced: their modes, owners and other "
                      "names are lost,\nand links to files become files.\n";
    }
}

} // namespace kx::tool
