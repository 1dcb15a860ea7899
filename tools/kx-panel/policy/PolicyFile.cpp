// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "policy/PolicyFile.h"

#include <algorithm>
#include <utility>

namespace kx::guard
{

namespace
{

/// Tells whether a signature by the key can count, on this panel or another.
bool MayCount(const signature::TrustedKey& key)
{
    return !key.isRevoked && !key.isDamaged;
}

} // namespace

Policy ParsePolicy(const std::string& text, const std::string& path)
{
    Policy policy;
    policy.model = format::ParseOwnPanelFile(text, path);
    const format::PanelRules& rules = policy.model.rules;
    policy.signatures = rules.signatures;
    policy.downgrade = rules.downgrade;
    policy.state = rules.state;
    policy.updater = rules.updater;
    policy.limits = rules.limits;
    return policy;
}

Policy ReadPolicy(const std::string& path, const GuardedFiles& files)
{
    Policy policy = ParsePolicy(files.Read(path, format::kLargestPanelFile), path);
    files.RefuseUnguarded(policy.updater, GuardedKind::kProgram);
    return policy;
}

signature::TrustedKeys ReadPanelKeys(const std::string& folder, SignatureRule rule,
                                     const GuardedFiles& files)
{
    files.RefuseUnguarded(folder, GuardedKind::kFolder);
    signature::TrustedKeys trusted = signature::ReadTrustedKeys(
        files.Root() + folder, [&files](const std::string& path, std::uint64_t limit) {
            return files.Read(path.substr(files.Root().size()), limit);
        });
    if (rule == SignatureRule::kRequired &&
        std::none_of(trusted.keys.begin(), trusted.keys.end(), MayCount)) {
        trusted.problems.emplace_back(
            io::ExitCode::kProblems, folder, "holds no key that is trusted",
            "put the public key of who signs packages there, as NAME.pem; until then no package "
            "is installed");
    }
    return trusted;
}

} // namespace kx::guard
