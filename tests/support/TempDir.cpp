// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <set>
#include <sstream>

#include <sys/stat.h>

namespace fs = std::filesystem;

namespace
{

std::set<std::string>& LivingFolders()
{
    static std::set<std::string> folders;
    return folders;
}

} // namespace

TempDir::TempDir()
{
    std::string pattern = (fs::temp_directory_path() / "kx_test_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no folder for temporary files: " + pattern);
    }
    m_path = pattern;
    LivingFolders().insert(m_path);
}

TempDir::~TempDir()
{
    LivingFolders().erase(m_path);
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::string TempDir::Write(const std::string& name, const std::string& content, unsigned mode) const
{
    const fs::path path = fs::path(m_path) / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
    fs::permissions(path, static_cast<fs::perms>(mode));
    return path.string();
}

std::string TempDir::MakeDir(const std::string& name) const
{
    const fs::path path = fs::path(m_path) / name;
    fs::create_directories(path);
    return path.string();
}

std::vector<std::string> TempDir::Tree() const
{
    std::vector<std::string> lines;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_path)) {
        std::ostringstream line;
        const auto mode = static_cast<unsigned>(entry.symlink_status().permissions());
        line << entry.path().lexically_relative(m_path).string() << ' '
             << (entry.is_directory() ? 'd' : 'f') << ' ' << std::oct << mode;
        if (entry.is_regular_file()) {
            line << ' ' << ReadFile(entry.path().string());
        }
        lines.push_back(line.str());
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

bool TempDir::Holds(const std::string& path)
{
    if (path.find("..") != std::string::npos) {
        return false;
    }
    const std::set<std::string>& folders = LivingFolders();
    return std::any_of(folders.begin(), folders.end(), [&path](const std::string& folder) {
        return path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0;
    });
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
