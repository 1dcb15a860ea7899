// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/PathList.h"

#include <utility>

void PathList::AppendOnce(std::string text)
{
    // The index needs the text in its place. Most texts are new, so they are looked up once.
    texts.push_back(std::move(text));
    if (!index.insert(texts.back()).second) {
        texts.pop_back();
    }
}

void PathList::clear()
{
    index.clear();
    texts.clear();
}
