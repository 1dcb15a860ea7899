// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

/// A command line as `main` gets it: the program's name, the words, a null pointer.
class CommandLine
{
public:
    explicit CommandLine(std::vector<std::string> words) : m_words(std::move(words))
    {
        m_words.insert(m_words.begin(), "kx_Updater");
        for (std::string& word : m_words) {
            m_pointers.push_back(word.data());
        }
        m_pointers.push_back(nullptr);
    }
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    [[nodiscard]] int Count() const { return static_cast<int>(m_words.size()); }
    [[nodiscard]] char** Words() { return m_pointers.data(); }

private:
    std::vector<std::string> m_words;
    std::vector<char*> m_pointers;
};
