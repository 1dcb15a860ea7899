// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/Judge.h"

#include "decision/Room.h"
#include "decision/SignatureDecision.h"
#include "reading/PackageSecrets.h"
#include "road/Remains.h"

#include <algorithm>
#include <utility>

namespace kx::guard
{

Decision PanelJudge::BeforeCopy(const OpenPackageFile& package)
{
    Decision decision;
    const std::uint64_t size = package.bytes.Size();
    if (size > m_policy.limits.packageBytes) {
        decision.reasons.push_back(
            {ReasonId::kSize,
             {std::to_string(size), std::to_string(m_policy.limits.packageBytes)}});
        return decision;
    }
    const Panel panel{m_policy, m_keys, m_fileSystems, {}}; // versions are not asked for yet
    if (DecideSigner(panel, m_confinement, package.bytes, package.descriptor, package.name,
                     decision)) {
        Room room(m_fileSystems);
        room.AddFile(m_policy.state + "/" + kCopyName, size);
        decision.reasons = room.Reasons();
    }
    return decision;
}

Decision PanelJudge::OfCopy(const OpenPackageFile& copy, const HighestVersions& highest)
{
    const Panel panel{m_policy, m_keys, m_fileSystems, highest};
    Decision decision =
        Decide(panel, m_confinement, copy.bytes, copy.descriptor, copy.name, Place::kInState);
    m_unpackedBytes = decision.facts.unpackedBytes;
    return decision;
}

std::vector<std::string> PanelJudge::Secrets(const OpenPackageFile& copy)
{
    return SecretsOf(m_confinement, copy.bytes, copy.descriptor, m_policy.limits);
}

void PanelJudge::Unpack(const OpenPackageFile& copy, IContentsTaker& taker)
{
    // The contents of a signed package were not unpacked to judge them: more than they say has
    // neither been found room for, nor is it wanted.
    Limits limits = m_policy.limits;
    limits.unpackedBytes = std::min(limits.unpackedBytes, m_unpackedBytes);
    StreamContents(m_confinement, copy.bytes, copy.descriptor, limits, taker);
}

} // namespace kx::guard
