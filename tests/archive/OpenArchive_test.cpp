// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Links.h"
#include "archive/UnpackedArchive.h"
#include "archive/ZipOf.h"
#include "io/Error.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

#include <sys/stat.h>

namespace kx::archive
{

namespace
{

using testing::ElementsAre;

constexpr std::uint64_t kAll = 1000;

class OpenArchiveTest : public testing::Test
{
protected:
    std::unique_ptr<Package> Open(const std::string& zip)
    {
        return OpenArchive(m_folder.Write("x.kx-update", zip));
    }

    [[nodiscard]] std::string Path() const { return m_folder / "x.kx-update"; }

private:
    TempDir m_folder;
};

std::vector<std::string> NamesOf(const Package& package)
{
    std::vector<std::string> names;
    for (const PackageEntry& entry : package.Entries()) {
        const char* const mark = entry.kind == PackageEntry::Kind::kFolder ? "/"
                                 : entry.kind == PackageEntry::Kind::kLink ? "@"
                                                                           : "";
        names.push_back(entry.name + mark);
    }
    return names;
}

/// Returns what Stream hands out, up to @p most bytes.
std::string Streamed(const Package& package, const std::string& name, std::size_t most)
{
    std::string bytes;
    package.Stream(name, [&bytes, most](std::string_view piece) {
        bytes += piece;
        return bytes.size() < most;
    });
    return bytes;
}

TEST_F(OpenArchiveTest, HandsContentsOutInPieces)
{
    const std::string large(std::size_t{1} << 20, 'x');
    const auto package = Open(ZipOf({{"a", large}, {"b", ""}}));

    EXPECT_EQ(Streamed(*package, "a", SIZE_MAX), large);
    EXPECT_LT(Streamed(*package, "a", 1).size(), large.size());
    EXPECT_EQ(Streamed(*package, "b", SIZE_MAX), "");
}

TEST_F(OpenArchiveTest, TellsOfDamageAtTheEndOfAContent)
{
    std::string zip = ZipOf({{"a", "content"}});
    zip.replace(zip.find("content"), 1, "k");

    EXPECT_EQ(Thrown([&] { Streamed(*Open(zip), "a", SIZE_MAX); }),
              "1: " + Path() + ":a: cannot read: CRC error");
}

TEST(OpenFolder, HandsContentsOutInPieces)
{
    const TempDir folder;
    const std::string large(std::size_t{1} << 20, 'x');
    folder.Write("a", large);
    const auto package = OpenFolder(folder.Path());

    EXPECT_EQ(Streamed(*package, "a", SIZE_MAX), large);
    EXPECT_LT(Streamed(*package, "a", 1).size(), large.size());
    EXPECT_EQ(package->Find("a")->moment, std::nullopt);
}

TEST_F(OpenArchiveTest, ShowsWhatUnpackingLeaves)
{
    ZipPart dos{"d\\e", "two"};
    dos.madeOn = 0;
    const auto package =
        Open(ZipOf({{"/b/c", "three", 0100755}, dos, {"l", "b/c", 0120777}, {"b/c", "last"}}));

    EXPECT_TRUE(package->IsArchive());
    EXPECT_EQ(package->Path(), Path());
    EXPECT_THAT(NamesOf(*package), ElementsAre("b/", "b/c", "d/", "d/e", "l@"));
    EXPECT_EQ(package->Read("b/c", kAll), "last");
    EXPECT_EQ(package->Read("b/c", 2), "la");
    EXPECT_EQ(package->LinkTarget("l"), "b/c");
    EXPECT_EQ(FollowLink(*package, *package->Find("l")).entry, package->Find("b/c"));
    EXPECT_EQ(package->UnpackStatus(), 1);
}

TEST_F(OpenArchiveTest, ShowsTheLastOfSeveralEntriesWithOneName)
{
    const auto package = Open(ZipOf({{"b", "first", 0100755}, {"b", "last"}}));

    ASSERT_EQ(package->Entries().size(), 1U);
    EXPECT_EQ(package->Entries()[0].size, 4U);
    EXPECT_EQ(package->Entries()[0].mode, 0644U);
}

TEST_F(OpenArchiveTest, ShowsTheModesThatUnpackingGives)
{
    ZipPart dos{"dos", "one"};
    dos.madeOn = 0;
    ZipPart other{"other", "one", 0100700};
    other.madeOn = 16;
    std::string zip = ZipOf({dos, other, {"setuid", "one", 0104755}});
    Patch(zip, kCentral, 38, "\1"); // not to be written

    const auto package = Open(zip);

    EXPECT_EQ(package->Find("dos")->mode, 0444U);
    EXPECT_EQ(package->Find("other")->mode, 0700U);
    EXPECT_EQ(package->Find("setuid")->mode, 0755U);
}

TEST_F(OpenArchiveTest, FollowsLinksInsideThePackageOnly)
{
    const std::string target = std::string(120, 'n') + "/file";
    const auto package = Open(ZipOf({{target, "x"},
                                     {"one", "two", 0120777},
                                     {"two", "three", 0120777},
                                     {"three", target, 0120777},
                                     {"out", "/" + target, 0120777},
                                     {"round", "round", 0120777}}));
    const auto end = [&package](const char* name) {
        return FollowLink(*package, *package->Find(name)).entry;
    };

    EXPECT_EQ(package->LinkTarget("three"), target);
    EXPECT_EQ(end("one"), package->Find(target));
    EXPECT_EQ(end("out"), nullptr);
    EXPECT_EQ(end("round"), nullptr);
}

TEST(OpenPackage, ShowsAFolderWithItsModesAndRefusesWhatIsNeither)
{
    const TempDir dir;
    const std::string path = dir.Write("package/d/file", "four");
    ASSERT_EQ(chmod(path.c_str(), 04750), 0);
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);

    const auto package = OpenPackage(dir / "package");

    EXPECT_FALSE(package->IsArchive());
    EXPECT_THAT(NamesOf(*package), ElementsAre("d/", "d/file"));
    EXPECT_EQ(package->Entries()[0].size, 0U);
    EXPECT_EQ(package->Entries()[1].size, 4U);
    EXPECT_EQ(package->Entries()[1].mode, 04750U);
    EXPECT_EQ(Thrown([&] { static_cast<void>(OpenPackage(dir / "pipe")); }),
              "1: " + (dir / "pipe") +
                  ": is neither a file nor a folder; name a package or the folder of an unpacked "
                  "one");
}

TEST_F(OpenArchiveTest, ReadsBehindOtherBytes)
{
    const auto package = Open("#!/bin/sh\n" + ZipOf({{"a", "one"}}));

    EXPECT_EQ(package->Read("a", kAll), "one");
    EXPECT_EQ(package->UnpackStatus(), 1);
}

TEST_F(OpenArchiveTest, DoesNotReadWhatIsDamaged)
{
    ZipPart encrypted{"encrypted", "one"};
    encrypted.flags = kZipEncrypted;
    ZipPart other{"other", "one"};
    other.method = 14;
    ZipPart damaged{"damaged", "\7one"};
    damaged.method = 8;
    std::string zip = ZipOf({{"sum", "one"}, encrypted, other, damaged, {"good", "two"}});
    Patch(zip, kLocal, 14, "none");

    const auto package = Open(zip);

    const auto read = [&package](const char* name) {
        return Thrown([&] { static_cast<void>(package->Read(name, kAll)); });
    };
    EXPECT_EQ(read("sum"), "1: " + Path() + ":sum: cannot read: CRC error");
    EXPECT_EQ(read("encrypted"), "1: " + Path() + ":encrypted: cannot read: it is encrypted");
    EXPECT_EQ(read("other"),
              "1: " + Path() +
                  ":other: cannot read: it is packed by a method that is not known here");
    EXPECT_EQ(read("damaged"),
              "1: " + Path() + ":damaged: cannot read: its packed bytes are damaged");
    EXPECT_EQ(package->Read("good", kAll), "two");
    EXPECT_EQ(package->LinkTarget("sum"), "");
    EXPECT_EQ(package->UnpackStatus(), 81);
}

TEST_F(OpenArchiveTest, RefusesWhatIsNoArchive)
{
    EXPECT_EQ(Thrown([&] { static_cast<void>(Open("text")); }),
              "1: " + Path() + ": cannot open the archive: Not a zip archive");
    EXPECT_THROW(static_cast<void>(OpenArchive(Path() + "/none")), io::Error);
}

} // namespace

} // namespace kx::archive
