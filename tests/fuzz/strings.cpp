// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Checks the path and string functions against what must hold for every input.
#include "Require.h"
#include "osa/OSA.h"
#include "osa/OSA_System.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

std::string lastCommand; // NOLINT(cert-err58-cpp): an empty string does not throw

bool EndsInDirMark(const std::string& path)
{
    return !path.empty() && (path.back() == '/' || path.back() == '\\');
}

void CheckPaths(const std::string& path)
{
    const char* const start = path.c_str();
    const std::string name = OSA_GetFilenameExt(start);
    Require(OSA_GetFilenameExt(start) + name.size() == start + path.size());
    Require(name.find_first_of("/\\:") == std::string::npos);

    const std::string extension = OSA_GetExt(start);
    Require(OSA_TrimExt(start) + extension == path);
    Require(extension.empty() || extension.find_last_of('.') == 0);
    Require(extension.find_first_of("/\\:") == std::string::npos);
    Require(OSA_GetFilename(start) == OSA_TrimExt(name.c_str()));

    const std::string marked = OSA_AddDirMark(start);
    Require(path.empty() ? marked.empty() : EndsInDirMark(marked));
    Require(marked == path || marked == path + "/");
    const std::string trimmed = OSA_TrimDirMark(start);
    Require(trimmed.size() + (EndsInDirMark(path) ? 1 : 0) == path.size());
}

void CheckReplacements(const std::string& text, const std::string& from, const std::string& to)
{
    const std::string replaced = ReplaceStringAll(text, from, to);
    if (from.empty()) {
        Require(replaced.size() == text.size() + to.size() * (text.size() + 1));
    } else if (to.find(from) == std::string::npos && from.size() == 1) {
        Require(replaced.find(from) == std::string::npos);
    }
    Require(ReplaceStringAll(text, from, from) == text || from.empty());

    const std::string unix = Replace_CRLF_to_LF(text);
    Require(unix.size() <= text.size());
    Require(text.find("\r\n") != std::string::npos || unix == text);
}

} // namespace

int OSA_SystemRun(const char* command)
{
    lastCommand = command;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string path = text.substr(0, text.find('\0'));
    CheckPaths(path);

    // The input's lines play text, search text and replacement.
    const auto first = text.find('\n');
    const auto second = first == std::string::npos ? first : text.find('\n', first + 1);
    if (second != std::string::npos) {
        CheckReplacements(text.substr(second + 1), text.substr(0, first),
                          text.substr(first + 1, second - first - 1));
    }

    OSA_Shell("%s", path.c_str());
    Require(lastCommand == path);
    Require(OSA_Attr(path.c_str(), path.c_str()) == 0);
    Require(lastCommand == "chmod " + (path.empty() ? "777" : path) + " \"" + path + "\" ");
    return 0;
}
