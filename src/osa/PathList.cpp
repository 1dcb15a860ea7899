// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/PathList.h"

#include <utility>

void PathList::push_back(std::string text)
{
    m_texts.push_back(std::move(text));
    m_index.insert(m_texts.back());
}

void PathList::AppendOnce(std::string text)
{
    if (!Contains(text)) {
        push_back(std::move(text));
    }
}

void PathList::clear()
{
    m_index.clear();
    m_texts.clear();
}
