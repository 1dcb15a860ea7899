// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Runs a fuzz target on every file of a corpus folder:
//
//   fuzz_NAME [--report FILE] FOLDER...     FILE: a JUnit report of one case, when all went well
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{

bool WriteReport(const char* path)
{
    std::ofstream report(path);
    report << "<testsuite tests=\"1\"><testcase name=\"every input replayed\"/></testsuite>\n";
    return static_cast<bool>(report.flush());
}

} // namespace

int main(int argc, char** argv)
{
    const bool reports = argc > 2 && std::string_view(argv[1]) == "--report";
    std::vector<std::filesystem::path> files;
    for (int i = reports ? 3 : 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path());
            }
        }
    }
    std::sort(files.begin(), files.end());
    for (const auto& path : files) {
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        std::printf("%s\n", path.c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    if (files.empty()) {
        std::fputs("An empty corpus proves nothing.\n", stderr);
        return 1;
    }
    std::printf("%zu inputs replayed\n", files.size());
    return !reports || WriteReport(argv[2]) ? 0 : 1;
}
