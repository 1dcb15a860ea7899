// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"
#include "journal/History.h"
#include "journal/TestState.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace kx::guard
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

struct Diary {
    TempDir dir;
    State state{PlaceIn(dir)};
    Limits limits;

    std::uint64_t Add(const std::string& file, const std::vector<std::string>& lines = {})
    {
        HistoryEntry entry(state.Folder(), limits, file, 100);
        for (const std::string& line : lines) {
            entry.NoteLine(5, entry.Shown(line));
        }
        entry.Finish({Outcome::kInstalled, 0, Speaker::kUpdater, ""});
        return entry.Id();
    }

    [[nodiscard]] std::vector<std::uint64_t> Ids() const
    {
        std::vector<std::uint64_t> ids;
        for (const PastInstallation& past : ReadHistory(state.Folder()).entries) {
            ids.push_back(past.id);
        }
        return ids;
    }

    [[nodiscard]] std::uint64_t Bytes() const
    {
        std::uint64_t bytes = 0;
        for (const auto& file : std::filesystem::directory_iterator(dir / "state/history")) {
            bytes += file.file_size();
        }
        return bytes;
    }
};

std::vector<std::string> TextsOf(const PastInstallation& past)
{
    std::vector<std::string> texts;
    for (const PastLine& line : past.lines) {
        texts.push_back(line.text);
    }
    return texts;
}

} // namespace

TEST(History, TellsWhatWasNoted)
{
    const Diary diary;
    Decision decision;
    decision.facts.name = "Hello";
    decision.facts.version = "1.2";
    decision.facts.signer = "factory";
    HistoryEntry entry(diary.state.Folder(), diary.limits, "Hello.kx-update", -5);
    entry.NoteDecision(decision);
    entry.NoteLine(12, "one");
    entry.NoteLine(1500, "two");
    entry.Finish({Outcome::kFailed, 101, Speaker::kUpdater, "it failed"});

    const std::optional<PastInstallation> past = ReadHistoryEntry(diary.state.Folder(), entry.Id());

    ASSERT_TRUE(past.has_value());
    EXPECT_EQ(past->id, 1U);
    EXPECT_EQ(past->began, -5);
    EXPECT_EQ(past->file, "Hello.kx-update");
    EXPECT_EQ(past->name, "Hello");
    EXPECT_EQ(past->version, "1.2");
    EXPECT_EQ(past->signer, "factory");
    EXPECT_THAT(past->reasons, IsEmpty());
    ASSERT_EQ(past->lines.size(), 2U);
    EXPECT_EQ(past->lines[1].milliseconds, 1500U);
    EXPECT_EQ(past->lines[1].text, "two");
    ASSERT_TRUE(past->ending.has_value());
    EXPECT_STREQ(OutcomeWord(past->ending->outcome), "failed");
    EXPECT_EQ(past->ending->status, 101);
    EXPECT_STREQ(SpeakerWord(past->ending->from), "updater");
    EXPECT_EQ(past->ending->message, "it failed");
}

TEST(History, HasAnEntrysNameOnTheDiskFromItsBeginningAndAllOfItAtItsEnd)
{
    const Diary diary;
    const std::string state = diary.dir / "state";
    const std::string path = state + "/history/0000000001.jsonl";
    const io::Placing placing;

    HistoryEntry entry(diary.state.Folder(), diary.limits, "x", 0);
    EXPECT_THAT(placing.Calls(), ElementsAre("sync " + state + "/history", "sync " + state));
    entry.NoteLine(5, "one");
    entry.Finish({Outcome::kInstalled, 0, Speaker::kUpdater, ""});

    ASSERT_EQ(placing.Calls().size(), 3U);
    EXPECT_EQ(placing.Calls()[2],
              "sync " + path + ", " + std::to_string(ReadFile(path).size()) + " bytes");
}

TEST(History, TellsThatTheDiskDoesNotTakeAnEntry)
{
    const Diary diary;
    HistoryEntry entry(diary.state.Folder(), diary.limits, "x", 0);
    const io::Faults faults(io::Call::kSync, {{EIO}});

    EXPECT_EQ(Thrown([&] {
                  entry.Finish({Outcome::kInstalled, 0, Speaker::kUpdater, ""});
              }),
              "3: " + (diary.dir / "state/history/0000000001.jsonl") +
                  ": cannot write: Input/output error");
}

TEST(History, KeepsTheReasonsInBothLanguages)
{
    const Diary diary;
    Decision decision;
    decision.reasons = {{ReasonId::kSize, {"9000000000", "1000"}}};
    HistoryEntry entry(diary.state.Folder(), diary.limits, "x", 0);
    entry.NoteDecision(decision);
    entry.Finish({Outcome::kRefused, 1, Speaker::kPanel, ""});

    const History history = ReadHistory(diary.state.Folder());

    ASSERT_EQ(history.entries.size(), 1U);
    ASSERT_EQ(history.entries[0].reasons.size(), 1U);
    const PastReason& reason = history.entries[0].reasons[0];
    EXPECT_EQ(reason.word, ReasonWord(ReasonId::kSize));
    EXPECT_EQ(reason.what, WhatText(decision.reasons[0], Language::kEnglish));
    EXPECT_EQ(reason.remedy, RemedyText(decision.reasons[0], Language::kEnglish));
    EXPECT_EQ(reason.whatJapanese, WhatText(decision.reasons[0], Language::kJapanese));
    EXPECT_EQ(reason.remedyJapanese, RemedyText(decision.reasons[0], Language::kJapanese));
}

TEST(History, EscapesControlCharactersAndMasksPasswords)
{
    const Diary diary;
    HistoryEntry entry(diary.state.Folder(), diary.limits, "a\nb\x1b[2J", 0);
    entry.Mask({"s3cret", "p w"});

    EXPECT_EQ(entry.Shown("red \x1b[31m\xff"), "red \\x1b[31m\\xff");
    EXPECT_EQ(entry.Shown("echo 'root:other' | chpasswd"), "echo 'root:********' | chpasswd");
    EXPECT_EQ(entry.Shown("as s3crets3cret and p w."), "as **************** and ********.");
    entry.Finish({Outcome::kInstalled, 0, Speaker::kUpdater, ""});
    EXPECT_EQ(ReadHistory(diary.state.Folder()).entries[0].file, "a\\nb\\x1b[2J");
}

TEST(History, CountsOnWhateverTheClockSays)
{
    Diary diary;
    diary.limits.historyEntries = 3;

    for (int i = 0; i < 12; ++i) {
        diary.Add("x");
    }

    EXPECT_THAT(diary.Ids(), ElementsAre(12, 11, 10));
}

TEST(History, KeepsToItsSize)
{
    Diary diary;
    diary.limits.historyBytes = 20000;
    const std::vector<std::string> lines(60, std::string(100, 'x'));

    for (int i = 0; i < 20; ++i) {
        diary.Add("x", lines);
        EXPECT_LE(diary.Bytes(), 20000U);
    }

    EXPECT_THAT(diary.Ids(), testing::SizeIs(testing::Gt(1)));
}

TEST(History, KeepsToItsSizeWhateverPackagesAreRefusedFor)
{
    Diary diary;
    diary.limits.historyBytes = std::uint64_t{16} << 10;
    Decision decision;
    for (int i = 0; i < 1000; ++i) {
        decision.reasons.push_back({ReasonId::kStructure, {"rule", std::string(100000, '"')}});
    }

    for (int i = 0; i < 3; ++i) {
        HistoryEntry entry(diary.state.Folder(), diary.limits, std::string(255, '\x01'), 0);
        entry.NoteDecision(decision);
        entry.Finish({Outcome::kRefused, 1, Speaker::kPanel, std::string(100000, 'x')});
        EXPECT_LE(diary.Bytes(), diary.limits.historyBytes);
    }

    const History history = ReadHistory(diary.state.Folder());
    ASSERT_FALSE(history.entries.empty());
    EXPECT_EQ(history.entries[0].id, 3U);
    EXPECT_FALSE(history.entries[0].reasons.empty());
}

TEST(History, KeepsTheBeginningAndTheEndOfALongEntry)
{
    Diary diary;
    diary.limits.historyBytes = 8000; // 4000 for the lines of one
    std::vector<std::string> lines;
    lines.reserve(1000);
    for (int i = 0; i < 1000; ++i) {
        lines.push_back("line " + std::to_string(i));
    }

    const std::uint64_t id = diary.Add("x", lines);

    const std::optional<PastInstallation> past = ReadHistoryEntry(diary.state.Folder(), id);
    ASSERT_TRUE(past.has_value());
    const std::vector<std::string> texts = TextsOf(*past);
    EXPECT_EQ(texts.front(), "line 0");
    EXPECT_EQ(texts.back(), "line 999");
    EXPECT_EQ(texts.size() + past->omittedLines, 1000U);
    ASSERT_LT(past->omittedAt, texts.size());
    EXPECT_EQ(texts[past->omittedAt],
              "line " + std::to_string(past->omittedAt + past->omittedLines));
}

TEST(History, CompletesWhatWasCutShort)
{
    const Diary diary;
    {
        HistoryEntry entry(diary.state.Folder(), diary.limits, "cut", 0);
        entry.NoteLine(1, "one");
    }
    const std::string path = diary.dir / "state/history/0000000001.jsonl";
    diary.dir.Write("state/history/0000000001.jsonl", ReadFile(path) + R"({"line":"tw)");
    Ending interrupted{Outcome::kInterrupted, 1, Speaker::kPanel, "the power was cut"};

    std::vector<std::uint64_t> asked;
    for (int times = 0; times < 2; ++times) {
        CompleteHistory(diary.state.Folder(), [&](std::uint64_t id) {
            asked.push_back(id);
            return interrupted;
        });
    }

    EXPECT_THAT(asked, ElementsAre(1));
    const std::optional<PastInstallation> past = ReadHistoryEntry(diary.state.Folder(), 1);
    ASSERT_TRUE(past.has_value() && past->ending.has_value());
    EXPECT_THAT(TextsOf(*past), ElementsAre("one"));
    EXPECT_EQ(past->ending->outcome, Outcome::kInterrupted);
}

TEST(History, PassesOverDamagedFilesAndSaysSo)
{
    Diary diary;
    diary.Add("one");
    diary.Add("two");
    diary.dir.Write("state/history/0000000001.jsonl", "not JSON\n");
    diary.dir.Write("state/history/0000000003.jsonl", R"({"id":4,"began":0,"file":"x"})"
                                                      "\n");
    diary.dir.Write("state/history/stranger", "");

    const History history = ReadHistory(diary.state.Folder());

    ASSERT_EQ(history.entries.size(), 1U);
    EXPECT_EQ(history.entries[0].id, 2U);
    EXPECT_THAT(
        history.problems,
        ElementsAre(diary.dir.Path() + "/state/history/0000000003.jsonl: is damaged; remove it",
                    diary.dir.Path() + "/state/history/0000000001.jsonl: is damaged; remove it"));
    EXPECT_THAT(Thrown([&] { static_cast<void>(ReadHistoryEntry(diary.state.Folder(), 1)); }),
                testing::EndsWith("0000000001.jsonl: is damaged; remove it"));
    EXPECT_EQ(diary.Add("three"), 4U);
}

TEST(History, HasNoEntryOfAnotherNumber)
{
    const Diary diary;

    EXPECT_FALSE(ReadHistoryEntry(diary.state.Folder(), 1).has_value());
    EXPECT_THAT(diary.Ids(), IsEmpty());
}

} // namespace kx::guard
