// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/TrustedKeys.h"

#include "format/TomlTable.h"
#include "io/Reach.h"
#include "io/WholeFile.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

namespace kx::signature
{

namespace
{

namespace fs = std::filesystem;

constexpr std::string_view kPem = ".pem";
constexpr std::string_view kPublicPem = ".pub.pem";
constexpr std::string_view kToml = ".toml";

bool EndsIn(const std::string& name, std::string_view end)
{
    return name.size() > end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0;
}

std::string Without(const std::string& name, std::string_view end)
{
    return name.substr(0, name.size() - end.size());
}

/// The names of a folder's files that end in ".pem" or ".toml", in order.
std::vector<std::string> NamesIn(const std::string& folder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator place(folder, error); !error && place != fs::directory_iterator();
         place.increment(error)) {
        const std::string name = place->path().filename().string();
        if (name.front() != '.' && (EndsIn(name, kPem) || EndsIn(name, kToml))) {
            names.push_back(name);
        }
        if (names.size() > 2 * kMostTrustedKeys) {
            throw io::Error(io::ExitCode::kProblems, folder,
                            "holds more than " + std::to_string(kMostTrustedKeys) + " keys",
                            "remove those that are not needed");
        }
    }
    if (error) {
        throw io::ReadError(folder, "list the keys in", error.value());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::vector<std::string>> OptionalTexts(const format::TomlTable& table,
                                                      const char* key)
{
    return table.Has(key) ? std::optional(table.Texts(key)) : std::nullopt;
}

/// Reads one key.
/// @param hasLimits  a file stands beside it
void ReadKey(const std::string& folder, const std::string& file, const std::string& name,
             bool hasLimits, const KeyFileReader& read, TrustedKeys& trusted)
{
    const std::string path = (fs::path(folder) / file).string();
    try {
        TrustedKey key{name, PublicKey::FromPem(read(path, kLargestKeyFile), path)};
        try {
            if (hasLimits) {
                const std::string beside =
                    (fs::path(folder) / (name + std::string(kToml))).string();
                TakeKeyLimits(read(beside, kLargestKeyFile), beside, key);
            }
        } catch (const io::Error& error) {
            key.isDamaged = true;
            trusted.problems.push_back(error);
        }
        trusted.keys.push_back(std::move(key));
    } catch (const io::Error& error) {
        trusted.problems.push_back(error);
    }
}

} // namespace

void TakeKeyLimits(const std::string& text, const std::string& path, TrustedKey& key)
{
    const toml::table root = format::ParseToml(text, path);
    // Such a file is what a power cut leaves of one that was to limit the key.
    if (root.empty()) {
        throw io::Error(io::ExitCode::kProblems, path, "says nothing",
                        "write what limits the key, or remove the file");
    }
    const format::TomlTable table(root, path, "");
    table.RefuseOtherKeysThan({"models", "packages", "revoked", "comment"});
    static_cast<void>(table.OptionalText("comment")); // for people
    key.isRevoked = table.Flag("revoked", false);
    key.models = OptionalTexts(table, "models");
    key.packages = OptionalTexts(table, "packages");
}

TrustedKeys ReadTrustedKeys(const std::string& folder)
{
    return ReadTrustedKeys(folder, io::ReadWholeFile);
}

TrustedKeys ReadTrustedKeys(const std::string& folder, const KeyFileReader& read)
{
    TrustedKeys trusted;
    const std::vector<std::string> names = NamesIn(folder);
    std::set<std::string> limits;
    for (const std::string& name : names) {
        if (EndsIn(name, kToml)) {
            limits.insert(Without(name, kToml));
        }
    }
    std::set<std::string> keys;
    for (const std::string& file : names) {
        if (EndsIn(file, kPem)) {
            const std::string name = Without(file, EndsIn(file, kPublicPem) ? kPublicPem : kPem);
            ReadKey(folder, file, name, limits.count(name) != 0, read, trusted);
            keys.insert(name);
        }
    }
    for (const std::string& name : limits) {
        if (keys.count(name) == 0) {
            const std::string file = name + std::string(kToml);
            trusted.problems.emplace_back(
                io::ExitCode::kProblems, (fs::path(folder) / file).string(), "stands beside no key",
                "call it as the key beside it: NAME.toml for NAME.pem "
                "or NAME.pub.pem");
        }
    }
    return trusted;
}

} // namespace kx::signature
