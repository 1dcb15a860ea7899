// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/PathList.h"

#include <utility>

void PathList::push_back(std::string text)
{
    texts.push_back(std::move(text));
    index.insert(texts.back());
}

void PathList::AppendOnce(std::string text)
{
    if (!Contains(text)) {
        push_back(std::move(text));
    }
}

void PathList::clear()
{
    index.clear();
    texts.clear();
}
