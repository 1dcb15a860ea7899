// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/StatusText.h"
#include "io/Hex.h"
#include "signature/SignedOf.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kx::guard
{

namespace
{

PanelStatus OpenStatus()
{
    PanelStatus status;
    Policy policy;
    policy.model.models = {"TP-0700", "TP-0900"};
    policy.model.osVersions = {"2.1.0"};
    policy.model.processor = format::FindProcessor("aarch64");
    policy.state = "/var/lib/kx-panel";
    policy.updater = "/usr/bin/kx_Updater";
    status.door.policy = policy;
    status.door.keys = signature::Trusting({&signature::EdKey(), &signature::P256Key()});
    status.door.keys.keys[0].name = "factory";
    status.door.keys.keys[1].name = "service";
    return status;
}

/// The identifier of a key of the door.
std::string IdOf(const PanelStatus& status, std::size_t index)
{
    return io::Hex(status.door.keys.keys[index].key.Id());
}

std::string StatusTextOf(const PanelStatus& status)
{
    std::ostringstream out;
    WriteStatus({out, out}, status, Language::kEnglish);
    return out.str();
}

} // namespace

TEST(WriteStatus, TellsThePanelItsKeysAndWhatItRemembers)
{
    PanelStatus status = OpenStatus();
    status.door.keys.keys[1].models = {"TP-0700"};
    status.door.keys.keys[1].packages = {"demo", "other"};
    status.door.keys.keys[1].isRevoked = true;
    status.versions = {{"demo", "1.2"}, {"other", "3"}};
    status.last = PastInstallation{};
    status.last->id = 4;
    status.last->name = "demo";
    status.last->ending = {Outcome::kInstalled, 0, Speaker::kUpdater, ""};

    EXPECT_EQ(StatusTextOf(status),
              "door:         open\n"
              "panel:        TP-0700, TP-0900, system 2.1.0, aarch64\n"
              "signatures:   required\n"
              "downgrade:    refuse\n"
              "state:        /var/lib/kx-panel\n"
              "updater:      /usr/bin/kx_Updater\n"
              "keys:         2 keys\n"
              "  factory, ed25519 " +
                  IdOf(status, 0) +
                  "\n"
                  "  service, p256 " +
                  IdOf(status, 1) +
                  ", on the models TP-0700, for the packages demo, other, revoked\n"
                  "at work:      nothing\n"
                  "last:         4  1970-01-01 00:00:00 UTC  demo  installed\n"
                  "installed:    2 packages, by the highest version ever\n"
                  "  demo 1.2\n"
                  "  other 3\n");
}

TEST(WriteStatus, TellsWhatIsWrong)
{
    PanelStatus status = OpenStatus();
    status.door.keys.keys.pop_back();
    status.door.keys.keys[0].isDamaged = true;
    status.door.keys.problems = {io::Error(io::ExitCode::kProblems, "keys/a.pem", "is no key")};
    status.interrupted = Begun{"demo", "1.2", 4};
    status.problems = {"state/versions/demo: is damaged"};

    const std::string text = StatusTextOf(status);

    EXPECT_NE(text.find(IdOf(status, 0) +
                        ", not trusted: the file beside it cannot be read\n"
                        "Remark: keys/a.pem: is no key\n"
                        "at work:      nothing\n"
                        "interrupted:  demo 1.2; the next installation clears what it left\n"
                        "last:         none\n"
                        "installed:    0 packages, by the highest version ever\n"
                        "Problem: state/versions/demo: is damaged\n"),
              std::string::npos)
        << text;
}

TEST(WriteStatus, TellsWhyTheDoorIsClosed)
{
    PanelStatus status;
    status.door.reasons = {{ReasonId::kPanelFile, {"panel.toml: is missing"}}};

    EXPECT_EQ(StatusTextOf(status), "door:         closed, no package is installed\n1. " +
                                        WhatText(status.door.reasons[0], Language::kEnglish) +
                                        "  [panel-file]\n   " +
                                        RemedyText(status.door.reasons[0], Language::kEnglish) +
                                        "\nkeys:         0 keys\n");
}

TEST(StatusAsJson, HasEverything)
{
    PanelStatus status = OpenStatus();
    status.door.policy->signatures = SignatureRule::kOptional;
    status.door.policy->downgrade = DowngradeRule::kAllow;
    status.door.keys.keys.pop_back();
    status.door.keys.keys[0].models = {"TP-0700"};
    status.isAtWork = true;
    status.interrupted = Begun{"demo", "1.2", 4};
    status.versions = {{"demo", "1.2"}};
    status.problems = {"damaged"};

    EXPECT_EQ(picojson::value(StatusAsJson(status)).serialize(),
              R"({"atWork":true,"interrupted":{"historyId":4,"name":"demo","version":"1.2"},)"
              R"("keyProblems":[],"keys":[{"damaged":false,"id":")" +
                  IdOf(status, 0) +
                  R"(","models":["TP-0700"],"name":"factory","packages":null,"revoked":false,)"
                  R"("type":"ed25519"}],"last":null,"open":true,"panel":{"downgrade":"allow",)"
                  R"("models":["TP-0700","TP-0900"],"osVersions":["2.1.0"],)"
                  R"("processor":"aarch64","signatures":"optional",)"
                  R"("state":"\/var\/lib\/kx-panel","updater":"\/usr\/bin\/kx_Updater"},)"
                  R"("problems":["damaged"],"reasons":[],"versions":{"demo":"1.2"}})");
}

TEST(StatusAsJson, HasNullForAPanelThatIsNotKnown)
{
    PanelStatus status;
    status.door.reasons = {{ReasonId::kKeyFolder, {"keys: is missing"}}};

    const picojson::value json(StatusAsJson(status));

    EXPECT_EQ(json.get("panel").serialize(), "null");
    EXPECT_EQ(json.get("open").serialize(), "false");
    EXPECT_EQ(json.get("reasons").get(0).get("id").serialize(), "\"key-folder\"");
}

} // namespace kx::guard
