// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/DecisionText.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kx::guard
{

namespace
{

Judged GoodJudged()
{
    Decision decision;
    decision.facts = {"demo", "factory", "Demo", "1.2", "TP-0700", "2.1.0", 7, 4096, 312};
    return {"/mnt/usb/d.kx-update", decision};
}

Judged BadJudged()
{
    Decision decision;
    decision.reasons = {{ReasonId::kModel, {"TP-\x1b", "TP-0700"}},
                        {ReasonId::kSignatureMissing, {}}};
    return {"d\n.kx-update",
            decision,
            {io::Error(io::ExitCode::kProblems, "keys/a.pem", "is no key", "remove it")}};
}

std::string DecisionTextOf(const Judged& judged, Language language)
{
    std::ostringstream out;
    WriteDecision({out, out}, judged, language);
    return out.str();
}

std::string DecisionJsonOf(const Judged& judged)
{
    return picojson::value(DecisionAsJson(judged)).serialize();
}

} // namespace

TEST(WriteDecision, NamesThePackageAndWhoSignedIt)
{
    EXPECT_EQ(DecisionTextOf(GoodJudged(), Language::kEnglish),
              "/mnt/usb/d.kx-update: would be installed: Demo 1.2 (demo), signed by factory\n");
    EXPECT_EQ(DecisionTextOf(GoodJudged(), Language::kJapanese),
              "/mnt/usb/d.kx-update: インストールできます: Demo 1.2 (demo)、署名: factory\n");

    Judged judged = GoodJudged();
    judged.decision.facts.signer.clear();
    EXPECT_EQ(DecisionTextOf(judged, Language::kEnglish),
              "/mnt/usb/d.kx-update: would be installed: Demo 1.2 (demo), not signed\n");
}

TEST(WriteDecision, TellsEveryReasonWithItsRemedy)
{
    EXPECT_EQ(DecisionTextOf(BadJudged(), Language::kEnglish),
              "d\\n.kx-update: refused\n"
              "1. The package is for the model 'TP-\\x1b'; this panel is TP-0700.  [model]\n"
              "   Get the package that is made for this panel's model.\n"
              "2. The package is not signed, and this panel installs only signed ones.  "
              "[signature-missing]\n"
              "   Get the signed package from its maker.\n"
              "Remark: keys/a.pem: is no key; remove it\n");
}

TEST(WriteDecision, IsJapaneseThroughout)
{
    EXPECT_EQ(DecisionTextOf(BadJudged(), Language::kJapanese),
              "d\\n.kx-update: インストールできません\n"
              "1. " +
                  WhatText(BadJudged().decision.reasons[0], Language::kJapanese) +
                  "  [model]\n   " +
                  RemedyText(BadJudged().decision.reasons[0], Language::kJapanese) + "\n2. " +
                  WhatText(BadJudged().decision.reasons[1], Language::kJapanese) +
                  "  [signature-missing]\n   " +
                  RemedyText(BadJudged().decision.reasons[1], Language::kJapanese) +
                  "\n備考: keys/a.pem: is no key; remove it\n");
}

TEST(WriteDecision, IsColouredWhereThatIsWanted)
{
    std::ostringstream out;
    Judged judged = BadJudged();
    judged.decision.reasons.pop_back();

    WriteDecision({out, out, false, true}, judged, Language::kEnglish);

    EXPECT_NE(out.str().find(": \x1b[31mrefused\x1b[0m\n"), std::string::npos);
    EXPECT_NE(out.str().find("  \x1b[90m[model]\x1b[0m\n"), std::string::npos);
}

TEST(DecisionAsJson, HasAllFacts)
{
    EXPECT_EQ(DecisionJsonOf(GoodJudged()),
              R"({"accepted":true,"facts":{"entries":7,"model":"TP-0700","name":"demo",)"
              R"("osVersion":"2.1.0","signatureBytes":312,"signer":"factory","title":"Demo",)"
              R"("unpackedBytes":4096,"version":"1.2"},"package":"\/mnt\/usb\/d.kx-update",)"
              R"("problems":[],"reasons":[]})");
}

TEST(DecisionAsJson, HasBothLanguagesAndNullForWhatIsNotKnown)
{
    Judged judged = BadJudged();
    judged.decision.reasons.erase(judged.decision.reasons.begin());
    const Reason& reason = judged.decision.reasons.front();

    EXPECT_EQ(DecisionJsonOf(judged),
              R"({"accepted":false,"facts":{"entries":null,"model":null,"name":null,)"
              R"("osVersion":null,"signatureBytes":0,"signer":null,"title":null,)"
              R"("unpackedBytes":null,"version":null},"package":"d\n.kx-update",)"
              R"("problems":["keys\/a.pem: is no key; remove it"],)"
              R"("reasons":[{"id":"signature-missing","remedy":{"en":")" +
                  RemedyText(reason, Language::kEnglish) + R"(","ja":")" +
                  RemedyText(reason, Language::kJapanese) + R"("},"what":{"en":")" +
                  WhatText(reason, Language::kEnglish) + R"(","ja":")" +
                  WhatText(reason, Language::kJapanese) + R"("}}]})");
}

} // namespace kx::guard
