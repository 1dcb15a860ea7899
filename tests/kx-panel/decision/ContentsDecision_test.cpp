// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "../GivenPanel.h"
#include "../Lying.h"
#include "archive/ZipOf.h"
#include "confined/Unread.h"
#include "decision/ContentsDecision.h"
#include "reading/Examination.h"
#include "reading/Fields.h"
#include "signature/SignedOf.h"
#include "support/ElfOf.h"
#include "support/ProjectBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kx::guard
{

namespace
{

using archive::ZipPart;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string WithField(const char* key, const std::string& value)
{
    ProjectBuilder::Object root = DemoRoot();
    root[key] = ProjectBuilder::Text(value);
    return PackageOf(root);
}

using Told = std::pair<std::uint8_t, std::string>;

Told Say(ExamKind kind, const FieldsWriter& fields = {})
{
    return {static_cast<std::uint8_t>(kind), fields.Bytes()};
}

Told Facts(std::uint64_t entries = 1, std::uint64_t bytes = 1)
{
    FieldsWriter fields;
    fields.Text("t").Text("1.0").Text("TP-0700").Text("2.1.0").Number(entries).Number(bytes).Number(
        1);
    return Say(ExamKind::kFacts, fields);
}

Told Unpacked()
{
    return Say(ExamKind::kUnpacked, FieldsWriter().Number(1).Number(1));
}

Told File(const std::string& path, std::uint64_t bytes = 1, const std::string& name = "")
{
    return Say(ExamKind::kFile, FieldsWriter().Text(path).Number(0).Text(name).Number(bytes));
}

Told Done()
{
    return Say(ExamKind::kDone, FieldsWriter());
}

/// Tells why a decision about these messages ends.
std::string WhyUnread(std::vector<Told> messages)
{
    Lying liar(std::move(messages));
    try {
        static_cast<void>(GivenPanel().Decides(liar, archive::MemoryBytes(""), -1, "key"));
        return {};
    } catch (const Unread& unread) {
        return unread.what();
    }
}

} // namespace

TEST(DecideContents, TakesAPackageForThisPanelAndTellsWhatItIs)
{
    const std::string package = DemoPackage();
    for (const char* const signer : {"key", ""}) {
        const Decision decision = GivenPanel().Decides(package, signer);

        EXPECT_EQ(TextsOf(decision), "");
        EXPECT_EQ(decision.facts.title, "Line 4 recipes");
        EXPECT_EQ(decision.facts.version, "1.0.3");
        EXPECT_EQ(decision.facts.model, "TP-0700");
        EXPECT_EQ(decision.facts.osVersion, "2.1.0");
        EXPECT_EQ(decision.facts.entries, 3U);
        EXPECT_EQ(decision.facts.unpackedBytes, 4 + 7 + ProjectBuilder::File(DemoRoot()).size());
    }
}

TEST(DecideContents, TakesASignedPackageWithItsBlock)
{
    const std::string package = signature::SignedBytes(DemoPackage(), {&signature::EdKey()});

    EXPECT_EQ(TextsOf(GivenPanel().Decides(package, "key")), "");
    EXPECT_EQ(TextsOf(GivenPanel().Decides(package, "")), "");
}

TEST(DecideContents, RefusesWhatIsNoArchive)
{
    const Decision decision = GivenPanel().Decides("no archive");

    EXPECT_THAT(WordsOf(decision), Contains("structure"));
    EXPECT_THAT(TextsOf(decision), HasSubstr("(archive-end): has no end record."));
}

TEST(DecideContents, RefusesFaultsOfTheStructureAndLooksNoFurther)
{
    struct Case {
        const char* rule;
        std::string package;
    };
    std::string wrongCrc = DemoPackage();
    archive::Patch(wrongCrc, archive::kLocal, 14, archive::Bytes(1, 4), 2);
    archive::Patch(wrongCrc, archive::kCentral, 16, archive::Bytes(1, 4), 2);
    std::string wrongSize = DemoPackage();
    archive::Patch(wrongSize, archive::kCentral, 24, archive::Bytes(9, 4), 2);
    const std::vector<Case> cases = {
        {"path-up", DemoPackage({{"../a", "x"}})},
        {"path-absolute", DemoPackage({{"/a", "x"}})},
        {"path-twice", DemoPackage({{"0/0/run", "x"}})},
        {"path-conflict", DemoPackage({{"0/0/run/x", "x"}})},
        {"path-long", DemoPackage({{std::string(256, 'x'), "x"}})},
        {"entry-method", DemoPackage({{"a", "x", 0100644, 99}})},
        {"entry-crc", wrongCrc},
        {"entry-header", wrongSize},
        {"signature-hidden", DemoPackage() + "x"},
    };
    for (const Case& given : cases) {
        const Decision decision = GivenPanel().Decides(given.package, "");

        EXPECT_THAT(TextsOf(decision), HasSubstr(std::string("(") + given.rule + ")"));
        EXPECT_EQ(WordsOf(decision),
                  std::vector<std::string>(decision.reasons.size(), "structure"));
        EXPECT_EQ(decision.facts.title, "");
    }
}

TEST(DecideContents, DoesNotUnpackWhatASignatureCovers)
{
    std::string package = DemoPackage({{"0/0/large", std::string(1 << 20, 'x')}});
    archive::Patch(package, archive::kLocal, 14, archive::Bytes(1, 4), 3);
    archive::Patch(package, archive::kCentral, 16, archive::Bytes(1, 4), 3);

    EXPECT_EQ(TextsOf(GivenPanel().Decides(package, "key")), "");
    EXPECT_THAT(TextsOf(GivenPanel().Decides(package, "")), HasSubstr("(entry-crc)"));
}

TEST(DecideContents, RefusesASignedPackageInWhichSomethingThatItReadsIsDamaged)
{
    // The description, and a program. Of other files only the first bytes are read.
    for (const std::size_t entry : {std::size_t{0}, std::size_t{3}}) {
        std::string package = DemoPackage({{"0/0/program", ArmProgram().Bytes()}});
        archive::Patch(package, archive::kLocal, 14, archive::Bytes(1, 4), entry);
        archive::Patch(package, archive::kCentral, 16, archive::Bytes(1, 4), entry);

        const Decision decision = GivenPanel().Decides(package, "key");

        EXPECT_THAT(TextsOf(decision), HasSubstr("(entry-damaged)"));
        EXPECT_THAT(WordsOf(decision), ElementsAre("structure"));
    }
}

TEST(DecideContents, TellsABoundedNumberOfFaults)
{
    std::vector<ZipPart> bad;
    bad.reserve(500);
    for (int i = 0; i < 500; ++i) {
        bad.push_back({"/x" + std::to_string(i), "x"});
    }

    const Decision decision = GivenPanel().Decides(DemoPackage(bad));

    ASSERT_EQ(decision.reasons.size(), kMostFaults + 1);
    EXPECT_THAT(decision.reasons.back().values, ElementsAre("more", "there are 480 more faults"));
}

TEST(DecideContents, KeepsItsLimits)
{
    const std::string package = DemoPackage();
    const auto texts = [&package](const std::function<void(Limits & limits)>& change) {
        GivenPanel panel;
        change(panel.Says().limits);
        return TextsOf(panel.Decides(package, "")) + TextsOf(panel.Decides(package, "key"));
    };
    const std::uint64_t description = ProjectBuilder::File(DemoRoot()).size();

    EXPECT_EQ(texts([&](Limits& limits) {
                  limits.entries = 3;
                  limits.unpackedBytes = description + 4 + 7;
                  limits.descriptionBytes = description;
              }),
              "");
    EXPECT_THAT(texts([](Limits& limits) { limits.entries = 2; }), HasSubstr("(archive-too-many)"));
    EXPECT_THAT(texts([&](Limits& limits) { limits.unpackedBytes = description + 4 + 6; }),
                HasSubstr("(archive-bomb)"));
    EXPECT_THAT(texts([&](Limits& limits) { limits.descriptionBytes = description - 1; }),
                HasSubstr("(description-size)"));
}

TEST(DecideContents, RefusesNamesThatTakeTooMuchMemory)
{
    GivenPanel panel;
    panel.Says().limits.readerMemory = 40000;
    std::string deep;
    while (deep.size() < 3000) {
        deep += "d/";
    }

    EXPECT_THAT(TextsOf(panel.Decides(DemoPackage({{deep, ""}}), "key")),
                HasSubstr("(archive-too-many)"));
}

TEST(DecideContents, RefusesFaultsOfTheDescriptionAndLooksNoFurther)
{
    ProjectBuilder::Object wrong = DemoRoot();
    wrong.erase("DB_StepSets");
    std::string lists = R"({"$type":"Zt.Plugins.DB_StepSets, Plexa","$values":[)";
    for (int i = 0; i < 25; ++i) {
        lists += lists.substr(0, lists.find('[') + 1);
    }
    struct Case {
        const char* rule;
        std::string package;
    };
    const std::vector<Case> cases = {
        {"description-missing", archive::ZipOf({{"a", "x"}})},
        {"description-link", archive::ZipOf({{kDescriptionEntry, "/etc/passwd", 0120777}})},
        {"description-json", archive::ZipOf({{kDescriptionEntry, "\xef\xbb\xbf{"}})},
        {"description-root", archive::ZipOf({{kDescriptionEntry, "\xef\xbb\xbf[]"}})},
        {"description-size", archive::ZipOf({{kDescriptionEntry, ""}})},
        {"field-missing", PackageOf(wrong)},
        {"lists-nested", archive::ZipOf({{kDescriptionEntry, "\xef\xbb\xbf" + lists}})},
        {"description-size", WithField("ModelName", std::string(kLongestFact + 1, 'x'))},
    };
    for (const Case& given : cases) {
        const Decision decision = GivenPanel().Decides(given.package);

        EXPECT_THAT(TextsOf(decision), HasSubstr(std::string("(") + given.rule + ")"));
        EXPECT_EQ(WordsOf(decision),
                  std::vector<std::string>(decision.reasons.size(), "description"));
        EXPECT_EQ(decision.facts.title, "");
    }
}

TEST(DecideContents, RefusesOtherModelsAndSystems)
{
    EXPECT_EQ(TextsOf(GivenPanel().Decides(WithField("ModelName", "TP-1000"))), "");
    EXPECT_EQ(TextsOf(GivenPanel().Decides(WithField("ModelName", "TP-9\x1b"))),
              "The package is for the model 'TP-9\\x1b'; this panel is 'TP-0700' or 'TP-1000'.\n");
    EXPECT_EQ(TextsOf(GivenPanel().Decides(WithField("OsVersion", "2.1"))),
              "The package is for version '2.1' of the system; this panel has '2.1.0'.\n");
}

TEST(DecideContents, RefusesProgramsForOtherProcessors)
{
    ElfOf arm = ArmProgram();
    ElfOf intel = ArmProgram();
    intel.machine = 62;
    intel.is64Bit = true;
    intel.flags = 0;
    ElfOf soft = ArmProgram();
    soft.flags = 0x5000200;
    ElfOf firmware = intel;
    firmware.type = 2;
    firmware.loader.clear();
    firmware.needed.clear();
    firmware.hasStack = false;

    EXPECT_EQ(TextsOf(GivenPanel().Decides(
                  DemoPackage({{"0/0/arm", arm.Bytes()}, {"0/0/data", firmware.Bytes()}}))),
              "");
    EXPECT_EQ(TextsOf(GivenPanel().Decides(DemoPackage({{"0/0/intel", intel.Bytes()}}))),
              "'0/0/intel' in the package is a program for x86_64; this panel is arm.\n");
    EXPECT_EQ(TextsOf(GivenPanel().Decides(DemoPackage({{"0/0/soft", soft.Bytes()}}))),
              "'0/0/soft' in the package is a program for arm (soft-float); "
              "this panel is arm (hard-float).\n");
}

TEST(DecideContents, TakesProgramsForTheSmallerBrother)
{
    GivenPanel panel;
    panel.Says().model.processor = format::FindProcessor("aarch64");
    panel.Says().model.floatAbi = format::FloatAbi::kUnknown;

    EXPECT_EQ(TextsOf(panel.Decides(DemoPackage({{"0/0/arm", ArmProgram().Bytes()}}))), "");
}

TEST(DecideContents, DoesNotJudgeTheUpdaterOfThePackage)
{
    ElfOf intel = ArmProgram();
    intel.machine = 62;
    intel.is64Bit = true;
    const std::string package =
        archive::ZipOf({{kDescriptionEntry, ProjectBuilder::File(DemoRoot())},
                        {"kx_Updater", intel.Bytes(), 0100755},
                        {"0/0/run", "x"}});

    EXPECT_EQ(TextsOf(GivenPanel().Decides(package)), "");
}

TEST(DecideContents, LooksIntoTheArchivesOfFastFolders)
{
    ElfOf intel = ArmProgram();
    intel.machine = 62;
    const std::string package = FastPackage("run", intel.Bytes());

    for (const char* const signer : {"key", ""}) {
        EXPECT_EQ(TextsOf(GivenPanel().Decides(package, signer)),
                  "'0/0/files.tar:./run' in the package is a program for another processor; "
                  "this panel is arm.\n");
    }
    EXPECT_EQ(TextsOf(GivenPanel().Decides(FastPackage("run", ArmProgram().Bytes()))), "");
}

TEST(DecideContents, LooksAtTheBeginningOfASignedFastFolderOnly)
{
    ElfOf intel = ArmProgram();
    intel.machine = 62;
    // NOLINTNEXTLINE(bugprone-string-constructor): as large as meant
    const std::string large = std::string(2 << 20, 'x');
    const std::string package = FastPackage("run", intel.Bytes(), large);

    EXPECT_EQ(TextsOf(GivenPanel().Decides(package, "key")), "");
    EXPECT_EQ(WordsOf(GivenPanel().Decides(package, "")), std::vector<std::string>{"processor"});
}

TEST(DecideContents, NamesABoundedNumberOfPrograms)
{
    ElfOf intel = ArmProgram();
    intel.machine = 62;
    std::vector<ZipPart> programs;
    programs.reserve(100);
    for (int i = 0; i < 100; ++i) {
        programs.push_back({"0/0/p" + std::to_string(i), intel.Bytes()});
    }

    EXPECT_EQ(WordsOf(GivenPanel().Decides(DemoPackage(programs))),
              std::vector<std::string>(kMostFaults, "processor"));
}

TEST(DecideContents, RefusesOlderVersions)
{
    GivenPanel panel;
    panel.Had("1.0.3");
    EXPECT_EQ(TextsOf(panel.Decides(WithField("PackageVersion", "1.0.3"))), "");
    EXPECT_EQ(TextsOf(panel.Decides(WithField("PackageVersion", "1.0.10"))), "");
    EXPECT_EQ(TextsOf(panel.Decides(WithField("PackageVersion", "1.0.3~rc1"))),
              "The package has version 1.0.3~rc1; this panel had version 1.0.3 already.\n");

    panel.Says().downgrade = DowngradeRule::kAllow;
    EXPECT_EQ(TextsOf(panel.Decides(WithField("PackageVersion", "0.1"))), "");
}

TEST(DecideContents, RefusesVersionsThatCannotBeCompared)
{
    GivenPanel panel;
    EXPECT_EQ(TextsOf(panel.Decides(WithField("PackageVersion", "one"))),
              "'one' is no version that can be compared.\n");
    panel.Had("two");
    EXPECT_EQ(TextsOf(panel.Decides(WithField("PackageVersion", "1"))),
              "'two' is no version that can be compared.\n");

    panel.Says().downgrade = DowngradeRule::kAllow;
    EXPECT_EQ(TextsOf(panel.Decides(WithField("PackageVersion", "one"))), "");
}

TEST(DecideContents, TellsAllThatIsWrongAtOnce)
{
    GivenPanel panel;
    panel.Had("9");
    panel.Systems().At("/").freeBlocks = 0;
    panel.Systems().At("/").freeInodes = 0;
    ProjectBuilder::Object root = DemoRoot();
    root["ModelName"] = ProjectBuilder::Text("X");
    root["OsVersion"] = ProjectBuilder::Text("X");
    ElfOf intel = ArmProgram();
    intel.machine = 62;

    EXPECT_THAT(WordsOf(panel.Decides(PackageOf(root, {{"0/0/p", intel.Bytes()}}))),
                ElementsAre("model", "os-version", "processor", "version-older", "room", "inodes"));
}

TEST(DecideContents, AddsUpRoomForEachFileSystem)
{
    GivenPanel panel;
    FakeFileSystems& systems = panel.Systems();
    systems.MakeFolder("/var/lib");
    FileSystem& state = systems.Mount(kStateFolder);
    FileSystem& root = systems.At("/");
    panel.Says().limits.historyBytes = 8192;
    const std::string package = DemoPackage({{"1/0/d/big", std::string(3 * 4096 + 1, 'x')}});
    const std::uint64_t copy = package.size() / 4096 + 1;
    // The tree: a folder for it, 0, 0/0, run; 1, 1/0, d, big; the updater, the description.
    const std::uint64_t tree = 1 + 3 + 3 + 4 + 2;
    // The target and its folders; the record's files, its folder and that of all records.
    const std::uint64_t targets = 1 + 2 + 2 + 2;
    const auto words = [&] { return WordsOf(panel.Decides(package)); };

    state.freeBlocks = copy + tree + 2;
    root.freeBlocks = targets;
    EXPECT_THAT(words(), IsEmpty());
    --state.freeBlocks;
    EXPECT_THAT(words(), ElementsAre("room"));
    EXPECT_THAT(WordsOf(panel.Decides(package, "key", Place::kInState)), IsEmpty());
    ++state.freeBlocks;
    --root.freeBlocks;
    EXPECT_THAT(words(), ElementsAre("room"));
}

TEST(DecideContents, GivesUpOnLinksThatMultiplyFiles)
{
    ProjectBuilder::Object root = ProjectBuilder::Root(
        {ProjectBuilder::CopyFolderStep({ProjectBuilder::CopyItem("C:\\demo", "/opt/demo")})});
    const std::string round = PackageOf(root, {{"0/0/round", ".", 0120777}});
    std::vector<ZipPart> parts;
    for (int i = 0; i < 30; ++i) {
        const std::string next = "../" + std::to_string(i + 1);
        const std::string folder = "0/0/" + std::to_string(i) + "/";
        parts.push_back({folder + "a", next, 0120777});
        parts.push_back({folder + "b", next, 0120777});
    }
    parts.push_back({"0/0/30/file", "x"});

    for (const std::string& package : {round, PackageOf(root, parts)}) {
        EXPECT_THAT(TextsOf(GivenPanel().Decides(package)),
                    HasSubstr("(entry-link): its steps make too many files"));
    }
}

TEST(DecideContents, TrustsNoMessage)
{
    const Told fault = Say(ExamKind::kStructure, FieldsWriter().Number(12).Text("x"));
    const std::string noSense = "what reads the package sent a message that makes no sense";

    EXPECT_EQ(WhyUnread({Facts(), Unpacked(), File("/a"), Done()}), "");
    EXPECT_EQ(WhyUnread({}), "what reads the package ended before it had told all");
    EXPECT_EQ(WhyUnread({Facts(), Unpacked()}),
              "what reads the package ended before it had told all");
    EXPECT_EQ(WhyUnread({Done()}), "what reads the package did not tell what the package is");
    EXPECT_EQ(WhyUnread({Facts(), Done()}),
              "what reads the package did not tell what the package is");
    EXPECT_EQ(WhyUnread({Done(), Done()}), "what reads the package went on behind its end");
    EXPECT_EQ(WhyUnread({Facts(), Facts()}),
              "what reads the package told twice what the package is");
    EXPECT_EQ(WhyUnread({Unpacked(), Unpacked()}),
              "what reads the package told twice what the package unpacks to");
    EXPECT_EQ(WhyUnread({Say(static_cast<ExamKind>(0))}),
              "what reads the package sent a message of no known kind");
    EXPECT_EQ(WhyUnread({Say(static_cast<ExamKind>(255))}),
              "what reads the package sent a message of no known kind");
    EXPECT_EQ(WhyUnread(std::vector<Told>(kMostFaults + 1, fault)),
              "what reads the package told too many faults");
    EXPECT_EQ(WhyUnread({Say(ExamKind::kMore, FieldsWriter().Number(1))}),
              "what reads the package told more faults of none");
    EXPECT_EQ(WhyUnread(std::vector<Told>(kMostTargets + 1, File("/a"))),
              "what reads the package told too many files");
    for (const char* const path : {"", "a", "/a/", "//a", "/a/..", "/./a"}) {
        EXPECT_EQ(WhyUnread({File(path)}), "what reads the package told a path that is not plain");
    }
    for (const char* const name : {"a/b", "..", "."}) {
        EXPECT_EQ(WhyUnread({File("/a", 1, name)}),
                  "what reads the package told a name that is none");
    }
    const std::vector<Told> senseless = {
        Say(ExamKind::kStructure, FieldsWriter().Number(10000).Text("x")),
        Say(ExamKind::kStructure,
            FieldsWriter().Number(1).Text(std::string(kLongestFault + 1, 'x'))),
        Say(ExamKind::kDescription, FieldsWriter()),
        Say(ExamKind::kFile, FieldsWriter().Text("/" + std::string(kLongestPath, 'x'))),
        Say(ExamKind::kFile, FieldsWriter().Text("/a").Number(2).Text("").Number(1)),
        Say(ExamKind::kFolder, FieldsWriter().Text("/a").Number(1)),
        Say(ExamKind::kProgram, FieldsWriter().Text("p").Number(65536).Number(0).Number(0)),
        Say(ExamKind::kProgram, FieldsWriter().Text("p").Number(1).Number(4).Number(0)),
        Say(ExamKind::kProgram, FieldsWriter().Text("p").Number(1).Number(0).Number(3)),
        Say(ExamKind::kUnpacked, FieldsWriter().Number(1)),
        Say(ExamKind::kDone, FieldsWriter().Number(1)),
        Say(ExamKind::kFolder, FieldsWriter().Number(UINT64_MAX)),
        Facts(20001),
        Facts(1, (std::uint64_t{2} << 30) + 1),
    };
    for (const Told& message : senseless) {
        EXPECT_EQ(WhyUnread({message}), noSense);
    }
}

TEST(DecideContents, DoesNotLetToldAmountsComeAround)
{
    Lying liar(
        {Facts(), Say(ExamKind::kUnpacked, FieldsWriter().Number(UINT64_MAX).Number(UINT64_MAX)),
         File("/a", UINT64_MAX), File("/b", UINT64_MAX),
         Say(ExamKind::kFast, FieldsWriter().Text("/c").Number(UINT64_MAX).Number(UINT64_MAX)),
         Done()});

    EXPECT_THAT(WordsOf(GivenPanel().Decides(liar, archive::MemoryBytes(""), -1, "key")),
                ElementsAre("room", "inodes"));
}

} // namespace kx::guard
