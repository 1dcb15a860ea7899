// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Prints the description of a fresh panel for names.py, a line for each thing on it.
#include "panel/FreshPanel.h"

#include <cstdio>

int main()
{
    const kx::panel::FreshPanel& panel = kx::panel::TheFreshPanel();
    for (const std::string& folder : panel.folders) {
        std::printf("folder\t%s\n", folder.c_str());
    }
    for (const auto& [path, target] : panel.links) {
        std::printf("link\t%s\t%s\n", path.c_str(), target.c_str());
    }
    for (const std::string& file : panel.files) {
        std::printf("file\t%s\n", file.c_str());
    }
}
