// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Reads a panel's description, the file beside a key, and a key, three texts with \x1e between
// them, and checks what is accepted: nothing is missing, nothing is said twice, paths are safe, and
// a revocation counts.
#include "Require.h"
#include "io/Error.h"
#include "policy/PolicyFile.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using kx::guard::Policy;
using kx::signature::PublicKey;
using kx::signature::TrustedKey;

constexpr const char* kFile = "/etc/kx_Updater/panel.toml";
constexpr const char* kBeside = "/etc/kx_Updater/keys/k.toml";

/// A refusal names the file.
void RequireTold(const kx::io::Error& error, std::string_view file)
{
    Require(error.Where().compare(0, file.size(), file) == 0);
    Require(*error.what() != '\0');
}

/// Cuts what stands before the next mark off the input.
std::string TakeText(std::string_view& input)
{
    const std::size_t end = std::min(input.find('\x1e'), input.size());
    std::string text(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
    return text;
}

void RequireNames(const std::vector<std::string>& names)
{
    Require(!names.empty());
    Require(std::set<std::string>(names.begin(), names.end()).size() == names.size());
    for (const std::string& name : names) {
        Require(!name.empty());
    }
}

bool BeginsWith(const std::string& text, const char* beginning)
{
    return text.rfind(beginning, 0) == 0;
}

void RequirePath(const std::string& path)
{
    Require(path.size() > 1 && path.size() <= 200 && path.front() == '/' && path.back() != '/');
    for (const char c : path) {
        Require((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                c == '.' || c == '_' || c == '-' || c == '/');
    }
    for (const char* const part : {"//", "/./", "/../"}) {
        Require((path + "/").find(part) == std::string::npos);
    }
    for (const char* const folder : {"/tmp/", "/proc/", "/dev/", "/run/", "/mnt/usb/"}) {
        Require(!BeginsWith(path + "/", folder));
    }
}

void RequireLimits(const kx::guard::Limits& limits)
{
    constexpr std::uint64_t kMost = std::uint64_t{1} << 40U;
    for (const std::uint64_t limit :
         {limits.packageBytes, limits.unpackedBytes, limits.entries, limits.descriptionBytes,
          limits.readerMemory, limits.readerSeconds, limits.historyEntries, limits.historyBytes}) {
        Require(limit >= 1 && limit <= kMost);
    }
    Require(limits.entries <= 1000000 && limits.readerSeconds <= 86400);
    Require(limits.readerMemory <= std::uint64_t{4} << 30U);
}

/// Tells whether a text is accepted as a panel's description.
bool IsPolicy(const std::string& text)
{
    try {
        static_cast<void>(kx::guard::ParsePolicy(text, kFile));
        return true;
    } catch (const kx::io::Error& error) {
        RequireTold(error, kFile);
        return false;
    }
}

void CheckPolicy(const std::string& text)
{
    if (!IsPolicy(text)) {
        return;
    }
    const Policy policy = kx::guard::ParsePolicy(text, kFile);
    RequireNames(policy.model.models.value());
    RequireNames(policy.model.osVersions.value());
    Require(policy.model.processor != nullptr);
    Require(policy.model.root.empty());
    RequirePath(policy.state);
    RequirePath(policy.updater);
    Require(!BeginsWith(policy.state + "/", (policy.updater + "/").c_str()));
    Require(!BeginsWith(policy.updater + "/", (policy.state + "/").c_str()));
    Require(!BeginsWith(policy.state + "/", "/etc/kx_Updater/"));
    RequireLimits(policy.limits);
    // Said twice, or where it is not known.
    Require(!IsPolicy(text + "\nmodels = [\"TP-0700\"]\n"));
}

/// Any good key.
PublicKey AnyKey()
{
    return PublicKey::FromPem("-----BEGIN PUBLIC KEY-----\n"
                              "MCowBQYDK2VwAyEA0Wpt/vHd26UQFSpQn2YwW0YM9vBNq089C6QvzBymfB0=\n"
                              "-----END PUBLIC KEY-----\n",
                              "k.pem");
}

/// Tells whether a text is accepted beside a key, and takes what it says.
bool TakesLimits(const std::string& text, TrustedKey& key)
{
    try {
        kx::signature::TakeKeyLimits(text, kBeside, key);
        return true;
    } catch (const kx::io::Error& error) {
        RequireTold(error, kBeside);
        return false;
    }
}

void CheckLimits(const std::string& text)
{
    static TrustedKey key{"k", AnyKey()};
    key.isRevoked = false;
    if (!TakesLimits(text, key)) {
        return;
    }
    Require(text.find('=') != std::string::npos);
    key.isRevoked = false;
    // Refused when it is said twice; never passed over.
    Require(!TakesLimits(text + "\nrevoked = true\n", key) || key.isRevoked);
}

void CheckKey(const std::string& text)
{
    try {
        const PublicKey key = PublicKey::FromPem(text, "k.pem");
        Require(key.Id().size() == 32);
        Require(PublicKey::FromPem(key.Pem(), "k.pem").Id() == key.Id());
    } catch (const kx::io::Error& error) {
        RequireTold(error, "k.pem");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view input(reinterpret_cast<const char*>(data), size);
    CheckPolicy(TakeText(input));
    CheckLimits(TakeText(input));
    CheckKey(TakeText(input));
    return 0;
}
