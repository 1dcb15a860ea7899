// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "../GivenPanel.h"
#include "confined/Sanitized.h"
#include "confined/Unread.h"
#include "reading/ConfinementOf.h"
#include "support/ElfOf.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kx::guard
{

namespace
{

using archive::ZipPart;

ZipPart Packed(const std::string& name, const std::string& content)
{
    ZipPart part = archive::DeflatedPart(content);
    part.name = name;
    return part;
}

/// Packages in which there is something of everything that the examination reads.
std::vector<std::string> PackagesOfAllKinds()
{
    ElfOf intel = ArmProgram();
    intel.machine = 62;
    intel.is64Bit = true;
    std::vector<ZipPart> many;
    many.reserve(3000);
    for (int i = 0; i < 3000; ++i) {
        many.push_back({"1/0/d" + std::to_string(i % 50) + "/" + std::to_string(i), "content"});
    }
    return {
        DemoPackage(),
        DemoPackage({Packed("0/0/large", std::string(1 << 20, 'x')), Packed("0/0/b", "b")}),
        DemoPackage({{"0/0/arm", ArmProgram().Bytes()}, {"0/0/intel", intel.Bytes()}}),
        DemoPackage({{"0/0/link", "run", 0120777}}),
        DemoPackage({{"../up", "x"}, {"/root", "x"}}),
        archive::ZipOf({{kDescriptionEntry, "\xef\xbb\xbf{\"a\": 1e5, \"b\": [tru"}}),
        archive::ZipOf({Packed(kDescriptionEntry, ProjectBuilder::File(DemoRoot()))}),
        DemoPackage(many),
        FastPackage("intel", intel.Bytes()),
        "no archive",
    };
}

} // namespace

TEST(ConfinedExamination, SaysWhatItSaysOutside)
{
    const TempDir folder;
    const GivenPanel panel;
    for (const std::string& package : PackagesOfAllKinds()) {
        const archive::FileBytes file(folder.Write("package", package));
        for (const char* const signer : {"key", ""}) {
            ConfinedProcess confinement(ConfinementOf(Limits()));

            const Decision confined =
                panel.Decides(confinement, file, file.File().Number(), signer);

            const Decision outside = panel.Decides(package, signer);
            EXPECT_EQ(TextsOf(confined), TextsOf(outside));
            EXPECT_EQ(confined.facts.title, outside.facts.title);
            EXPECT_EQ(confined.facts.unpackedBytes, outside.facts.unpackedBytes);
        }
    }
}

TEST(ConfinedExamination, EndsWhereMemoryDoes)
{
    if (kIsSanitized) {
        return; // its memory has no limit
    }
    // Half a million values in a description that is not too long.
    Limits limits;
    limits.readerMemory = std::uint64_t{16} << 20;
    std::string values = "\xef\xbb\xbf{\"a\": [0";
    while (values.size() < (std::size_t{1} << 20) - 10) {
        values += ",0";
    }
    const TempDir folder;
    const archive::FileBytes file(
        folder.Write("package", archive::ZipOf({{kDescriptionEntry, values + "]}"}})));
    ConfinedProcess confinement(ConfinementOf(limits));

    EXPECT_THROW(
        static_cast<void>(GivenPanel().Decides(confinement, file, file.File().Number(), "key")),
        Unread);
}

} // namespace kx::guard
