// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/Decision.h"

#include "confined/Unread.h"
#include "decision/ContentsDecision.h"
#include "decision/SignatureDecision.h"

namespace kx::guard
{

Decision Decide(const Panel& panel, IConfinement& confinement, const archive::ByteSource& source,
                int descriptor, const std::string& fileName, Place place)
{
    Decision decision;
    if (source.Size() > panel.policy.limits.packageBytes) {
        decision.reasons.push_back(
            {ReasonId::kSize,
             {std::to_string(source.Size()), std::to_string(panel.policy.limits.packageBytes)}});
        return decision;
    }
    try {
        if (DecideSignature(panel, confinement, source, descriptor, fileName, decision)) {
            DecideContents(panel, confinement, source, descriptor, place, decision);
        }
    } catch (const Unread& unread) {
        decision.reasons.push_back({ReasonId::kUnread, {unread.what()}});
    }
    return decision;
}

} // namespace kx::guard
