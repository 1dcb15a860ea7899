// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/UnpackedArchive.h"
#include "archive/ZipOf.h"
#include "reading/Examination.h"
#include "reading/Fields.h"
#include "reading/StepTargets.h"
#include "support/ProjectBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kx::guard
{

namespace
{

using archive::ZipPart;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Writes messages down: "file /opt/run 7", "folder /opt".
class Lines final : public IMessages
{
public:
    void Send(std::uint8_t kind, std::string_view bytes) override
    {
        FieldsReader fields(bytes);
        const std::string path(fields.Text(kLongestPath));
        switch (static_cast<ExamKind>(kind)) {
        case ExamKind::kFolder:
            lines.push_back("folder " + path);
            break;
        case ExamKind::kFastFile:
            lines.push_back("fast file " + path);
            break;
        case ExamKind::kFast: {
            const std::uint64_t kib = fields.Number();
            lines.push_back("fast " + path + " " + std::to_string(kib) + " " +
                            std::to_string(fields.Number()));
            break;
        }
        default: {
            const bool isFolder = fields.Number(1) == 1;
            const std::string name(fields.Text(kLongestPath));
            lines.push_back("file " + path + (isFolder ? "/ " : " ") +
                            (name.empty() ? "" : name + " ") + std::to_string(fields.Number()));
        }
        }
        fields.End();
    }

    std::vector<std::string> lines;
};

std::vector<std::string> TargetsOf(const std::vector<ProjectBuilder::Object>& steps,
                                   const std::vector<ZipPart>& payload)
{
    std::vector<ZipPart> parts = payload;
    parts.push_back({"UserPackage.kx-project", ProjectBuilder::File(ProjectBuilder::Root(steps))});
    const std::string zip = archive::ZipOf(parts);
    const archive::MemoryBytes bytes(zip);
    const archive::ZipStructure structure = archive::ReadZipStructure(bytes);
    const archive::UnpackedArchive package("package", bytes, structure, 0);
    Lines lines;
    EXPECT_TRUE(TellTargets(package, format::Summarize(package), lines));
    return lines.lines;
}

} // namespace

TEST(TellTargets, TellsTheFilesOfACopyStep)
{
    const auto item = ProjectBuilder::CopyItem;

    EXPECT_THAT(
        TargetsOf({ProjectBuilder::ScriptStep("exit 1"),
                   ProjectBuilder::CopyFileStep(
                       {item("C:\\a\\run", "/opt/x/../run", ""), item("/home/me/b", "/opt/", ""),
                        item("c", "relative//c", ""), item("link", "/opt/link", "")})},
                  {{"1/0/run", "seven.."},
                   {"1/1/b", "b"},
                   {"1/2/c", ""},
                   {"1/3/link", "../0/run", 0120777}}),
        ElementsAre("file /opt/run run 7", "file /opt/ b 1", "file /relative/c c 0",
                    "file /opt/link link 7"));
}

TEST(TellTargets, TellsNothingOfItemsThatFail)
{
    const auto item = ProjectBuilder::CopyItem;

    EXPECT_THAT(TargetsOf({ProjectBuilder::CopyFileStep(
                              {item("missing", "/opt/a", ""), item("empty", "", ""),
                               item("folder", "/opt/b", ""), item("link", "/opt/c", ""),
                               item("long", "/" + std::string(kLongestPath, 'x'), "")})},
                          {{"0/1/empty", "x"},
                           {"0/2/folder/", ""},
                           {"0/3/link", "/etc/passwd", 0120777},
                           {"0/4/long", "x"}}),
                IsEmpty());
}

TEST(TellTargets, TellsAllThatIsInAFolder)
{
    EXPECT_THAT(TargetsOf({ProjectBuilder::CopyFolderStep(
                              {ProjectBuilder::CopyItem("C:\\one", "/opt/one/"),
                               ProjectBuilder::CopyItem("C:\\two", "/"),
                               ProjectBuilder::CopyItem("C:\\none", "/opt/none")})},
                          {{"0/0/a", "a"},
                           {"0/0/d/b", "bb"},
                           {"0/0/e/", ""},
                           {"0/0/l", "d/b", 0120777},
                           {"0/0/m", "d", 0120777},
                           {"0/0/out", "/etc", 0120777},
                           {"0/1/c", "ccc"}}),
                ElementsAre("folder /opt/one", "file /opt/one/a 1", "folder /opt/one/d",
                            "file /opt/one/d/b 2", "folder /opt/one/e", "file /opt/one/l 2",
                            "folder /opt/one/m", "file /opt/one/m/b 2", "folder /", "file /c 3",
                            "folder /opt/none"));
}

TEST(TellTargets, TellsTheFilesThatAScriptUnpacks)
{
    format::FastFolder folder;
    folder.target = "/opt/fast";
    folder.archive = format::DefaultFastArchive(folder.target);
    folder.size = 1024;
    folder.fileCount = 2;
    folder.kib = 3;
    folder.modes = 0644;
    folder.emptyFolders = {"empty"};
    folder.files = {"a", "d/b"};
    ProjectBuilder::Object script = ProjectBuilder::ScriptStep(format::FastInstallScript(folder));
    ProjectBuilder::Child(script, "UninstallScriptFunctionData")["ScriptData"] =
        ProjectBuilder::Text(format::FastUninstallScript(folder));

    EXPECT_THAT(
        TargetsOf({ProjectBuilder::CopyFileStep(
                       {ProjectBuilder::CopyItem("/home/me/fast/files.tar", folder.archive, "600")},
                       true, false),
                   script},
                  {{"0/0/files.tar", std::string(1024, 'x')}}),
        ElementsAre("file " + folder.archive + " files.tar 1024", "folder /opt/fast/empty",
                    "fast file /opt/fast/a", "fast file /opt/fast/d/b", "fast /opt/fast 3 2"));
}

} // namespace kx::guard
