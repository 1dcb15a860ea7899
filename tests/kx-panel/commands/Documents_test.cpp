// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/DecisionText.h"
#include "commands/Documents.h"
#include "commands/HistoryText.h"
#include "commands/InstallText.h"
#include "commands/StatusText.h"
#include "signature/SignedOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kx::guard
{

using ::testing::ElementsAre;

namespace
{

using Names = std::set<std::string>;

Names NamesIn(const picojson::value& object)
{
    Names names;
    for (const auto& [name, value] : object.get<picojson::object>()) {
        names.insert(name);
    }
    return names;
}

/// Returns the names of the fields that a schema lists for a shape.
Names ListedIn(const std::string& document, const std::string& shape)
{
    Names names = NamesIn(DocumentSchema(document).get("$defs").get(shape).get("properties"));
    names.erase("formatVersion");
    return names;
}

Decision Refusal()
{
    Decision decision;
    decision.reasons = {{ReasonId::kSignatureMissing, {}}};
    return decision;
}

} // namespace

TEST(DocumentSchema, IsThereForEveryCommandThatWritesJson)
{
    EXPECT_THAT(DocumentNames(), ElementsAre("check", "error", "history", "install", "status"));
}

TEST(DocumentSchema, ListsTheFieldsOfADecision)
{
    const picojson::value told(DecisionAsJson({"p", Refusal()}));

    EXPECT_EQ(NamesIn(told), ListedIn("check", "check"));
    EXPECT_EQ(NamesIn(told.get("facts")), ListedIn("check", "facts"));
    EXPECT_EQ(NamesIn(told.get("reasons").get(0)), ListedIn("check", "reason"));
    EXPECT_EQ(NamesIn(told.get("reasons").get(0).get("what")), ListedIn("check", "inBoth"));
}

TEST(DocumentSchema, ListsTheFieldsOfAnInstallation)
{
    const picojson::value told(InstalledAsJson({"p", {Refusal(), {}, 1}}));

    EXPECT_EQ(NamesIn(told), ListedIn("install", "install"));
}

TEST(DocumentSchema, ListsTheFieldsOfTheStatus)
{
    PanelStatus status;
    status.door.policy = Policy{};
    status.door.keys = signature::Trusting({&signature::EdKey()});
    status.interrupted = Begun{"demo", "1", 1};
    status.last = PastInstallation{};
    const picojson::value told(StatusAsJson(status));

    EXPECT_EQ(NamesIn(told), ListedIn("status", "status"));
    EXPECT_EQ(NamesIn(told.get("panel")), ListedIn("status", "panel"));
    EXPECT_EQ(NamesIn(told.get("keys").get(0)), ListedIn("status", "key"));
    EXPECT_EQ(NamesIn(told.get("interrupted")), ListedIn("status", "begun"));
    EXPECT_EQ(NamesIn(told.get("last")), ListedIn("status", "past"));
}

TEST(DocumentSchema, ListsTheFieldsOfThePast)
{
    PastInstallation past;
    past.lines = {{1, "line"}};
    const picojson::value whole = PastAsJson(past, true);

    EXPECT_EQ(NamesIn(PastAsJson(past, false)), ListedIn("history", "past"));
    EXPECT_EQ(NamesIn(whole), ListedIn("history", "whole"));
    EXPECT_EQ(NamesIn(whole.get("lines").get(0)), ListedIn("history", "line"));
}

TEST(DocumentSchema, HasTheWordsThatAreWritten)
{
    const picojson::value result = DocumentSchema("install")
                                       .get("$defs")
                                       .get("install")
                                       .get("properties")
                                       .get("result")
                                       .get("enum");

    EXPECT_EQ(result.serialize(), R"(["installed","refused","failed","error","stopped",)"
                                  R"("interrupted","running"])");
}

} // namespace kx::guard
