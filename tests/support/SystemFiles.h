// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "osa/OSA_System.h"

/// Answers what the code under test asks of the machine's files while it lives. Without one, and
/// where a class does not override them, the answers are the machine's. One lives at a time.
class SystemFiles
{
public:
    SystemFiles(const SystemFiles&) = delete;
    SystemFiles& operator=(const SystemFiles&) = delete;

    /// Play the functions of osa/OSA_System.h, which call them.
    [[nodiscard]] virtual int Stat(const char* path, struct stat* info);
    [[nodiscard]] virtual std::FILE* Open(const char* path, const char* mode);
    [[nodiscard]] virtual int List(const char* dir, dirent*** entries);

protected:
    SystemFiles();
    ~SystemFiles();
};
