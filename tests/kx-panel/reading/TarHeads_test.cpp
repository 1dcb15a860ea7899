// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/TarArchive.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"
#include "reading/TarHeads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace kx::guard
{

namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using Heads = std::vector<std::pair<std::string, std::string>>;

/// Returns an archive as kx-package makes it.
std::string TarOf(const Heads& files)
{
    std::vector<archive::TarItem> items;
    for (const auto& [name, content] : files) {
        items.push_back(
            {name, 0644, content.size(), [text = content](const archive::ContentSink& sink) {
                 static_cast<void>(sink(text));
             }});
    }
    const io::Descriptor made = io::MakeTemporaryFile();
    archive::WriteTar(made, "made", std::move(items));
    EXPECT_EQ(lseek(made.Number(), 0, SEEK_SET), 0);
    return io::ReadAll(made.Number(), std::uint64_t{1} << 30, "made");
}

/// Feeds an archive in pieces of one size.
Heads HeadsOf(const std::string& tar, std::size_t piece, std::size_t headSize = 4)
{
    Heads found;
    TarHeads heads(headSize, [&found](const std::string& name, const std::string& head) {
        found.emplace_back(name, head);
    });
    for (std::size_t at = 0; at < tar.size() && heads.Add(std::string_view(tar).substr(at, piece));
         at += piece) {
    }
    return found;
}

} // namespace

TEST(TarHeads, FindsTheFilesThatKxPackageWrites)
{
    const std::string longName = std::string(150, 'd') + "/" + std::string(150, 'f');
    const std::string tar = TarOf({{"a", "one"},
                                   {"b", ""},
                                   {"c/d", std::string(512, 'x')},
                                   {"c/e", std::string(5000, 'y')},
                                   {longName, "long"},
                                   {"z", "zzzzz"}});

    for (const std::size_t piece :
         {std::size_t{1}, std::size_t{511}, std::size_t{513}, tar.size()}) {
        EXPECT_THAT(HeadsOf(tar, piece),
                    ElementsAre(Pair("./a", "one"), Pair("./b", ""), Pair("./c/d", "xxxx"),
                                Pair("./c/e", "yyyy"), Pair("./" + longName, "long"),
                                Pair("./z", "zzzz")));
    }
}

TEST(TarHeads, TellsOfAFileWhoseRestDoesNotCome)
{
    const std::string tar = TarOf({{"a", std::string(100000, 'x')}});

    EXPECT_THAT(HeadsOf(tar.substr(0, 515), 10), IsEmpty());
    EXPECT_THAT(HeadsOf(tar.substr(0, 516), 10), ElementsAre(Pair("./a", "xxxx")));
}

TEST(TarHeads, EndsAtAnythingElse)
{
    const std::string tar = TarOf({{"a", "one"}, {"b", "two"}});
    const auto changed = [&tar](std::size_t at, const std::string& bytes) {
        std::string other = tar;
        return HeadsOf(other.replace(1024 + at, bytes.size(), bytes), 100);
    };

    EXPECT_THAT(changed(156, "2"), ElementsAre(Pair("./a", "one"))); // a link
    EXPECT_THAT(changed(257, "other"), ElementsAre(Pair("./a", "one")));
    EXPECT_THAT(changed(124, "x"), ElementsAre(Pair("./a", "one")));
    EXPECT_THAT(changed(124, "\x80"), ElementsAre(Pair("./a", "one")));
    EXPECT_THAT(changed(156, "L"), ElementsAre(Pair("./a", "one")));
    EXPECT_THAT(HeadsOf("no archive", 1), IsEmpty());
    EXPECT_THAT(HeadsOf(std::string(2048, '\0'), 100), IsEmpty());
}

} // namespace kx::guard
