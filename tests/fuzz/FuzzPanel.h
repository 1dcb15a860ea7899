// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "decision/Decision.h"
#include "kx-panel/FakeFileSystems.h"

#include <optional>
#include <string>

/// A small panel with room for everything, which trusts one key.
class FuzzPanel
{
public:
    static constexpr const char* kModel = "TP-0700";
    static constexpr const char* kOsVersion = "2.1.0";
    static constexpr const char* kSigner = "release";

    FuzzPanel()
    {
        m_policy.model.models = {kModel};
        m_policy.model.osVersions = {kOsVersion};
        m_policy.model.processor = kx::format::FindProcessor("armhf");
        m_policy.state = "/var/lib/kx-panel";
        m_policy.limits.packageBytes = 1U << 20U;
        m_policy.limits.unpackedBytes = 1U << 20U;
        m_policy.limits.entries = 100;
        m_policy.limits.descriptionBytes = 1U << 16U;
        m_keys.keys.push_back({kSigner, TheKey()});
        m_open = m_policy;
        m_open.signatures = kx::guard::SignatureRule::kOptional;
    }

    [[nodiscard]] kx::guard::Panel With(kx::guard::SignatureRule rule,
                                        const kx::signature::Verifier& verify) const
    {
        const auto highest = [](const std::string&) { return std::optional<std::string>("1.0.2"); };
        return {rule == kx::guard::SignatureRule::kOptional ? m_open : m_policy, m_keys, m_systems,
                highest, verify};
    }

    [[nodiscard]] const kx::guard::Limits& TheLimits() const { return m_policy.limits; }

    static const std::string& KeyId()
    {
        static const std::string id = TheKey().Id();
        return id;
    }

private:
    static kx::signature::PublicKey TheKey()
    {
        // Of a key that was thrown away.
        return kx::signature::PublicKey::FromPem(
            "-----BEGIN PUBLIC KEY-----\n"
            "MCowBQYDK2VwAyEA0Wpt/vHd26UQFSpQn2YwW0YM9vBNq089C6QvzBymfB0=\n"
            "-----END PUBLIC KEY-----\n",
            "key");
    }

    kx::guard::Policy m_policy;
    kx::guard::Policy m_open;
    kx::signature::TrustedKeys m_keys;
    kx::guard::FakeFileSystems m_systems;
};
