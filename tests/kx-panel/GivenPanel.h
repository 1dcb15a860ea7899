// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "FakeFileSystems.h"
#include "InProcess.h"
#include "archive/ZipOf.h"
#include "decision/ContentsDecision.h"
#include "format/FastFolder.h"
#include "support/ProjectBuilder.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace kx::guard
{

constexpr const char* kDescriptionEntry = "UserPackage.kx-project";
constexpr const char* kStateFolder = "/var/lib/kx-panel";

/// The panel of these tests: armhf, and room for everything.
class GivenPanel
{
public:
    GivenPanel()
    {
        m_policy.model.models = {"TP-0700", "TP-1000"};
        m_policy.model.osVersions = {"2.1.0"};
        m_policy.model.processor = format::FindProcessor("armhf");
        m_policy.model.floatAbi = format::FloatAbi::kHard;
        m_policy.state = kStateFolder;
    }

    Policy& Says() { return m_policy; }
    FakeFileSystems& Systems() { return m_systems; }
    void Had(const std::string& version) { m_highest = version; }

    /// Decides about the contents of a package.
    /// @param signer  whose signature was found good; empty: none is needed
    [[nodiscard]] Decision Decides(IConfinement& confinement, const archive::ByteSource& source,
                                   int descriptor, const std::string& signer,
                                   Place place = Place::kElsewhere) const
    {
        const signature::TrustedKeys keys;
        const Panel panel{m_policy, keys, m_systems, [this](const std::string& name) {
                              EXPECT_EQ(name, "demo");
                              return m_highest;
                          }};
        Decision decision;
        decision.facts.name = "demo";
        decision.facts.signer = signer;
        DecideContents(panel, confinement, source, descriptor, place, decision);
        return decision;
    }

    [[nodiscard]] Decision Decides(const std::string& file, const std::string& signer = "key",
                                   Place place = Place::kElsewhere) const
    {
        InProcess confinement;
        return Decides(confinement, archive::MemoryBytes(file), -1, signer, place);
    }

private:
    Policy m_policy;
    FakeFileSystems m_systems;
    std::optional<std::string> m_highest;
};

/// A package with one step that copies a file, and what is added to it.
inline std::string PackageOf(const ProjectBuilder::Object& root,
                             const std::vector<archive::ZipPart>& more = {})
{
    std::vector<archive::ZipPart> parts = {{kDescriptionEntry, ProjectBuilder::File(root)},
                                           {"kx_Updater", "none", 0100755},
                                           {"0/0/run", "content"}};
    parts.insert(parts.end(), more.begin(), more.end());
    return archive::ZipOf(parts);
}

inline ProjectBuilder::Object DemoRoot()
{
    return ProjectBuilder::Root({ProjectBuilder::CopyFileStep(
        {ProjectBuilder::CopyItem("C:\\demo\\run", "/opt/demo/run", "755")})});
}

inline std::string DemoPackage(const std::vector<archive::ZipPart>& more = {})
{
    return PackageOf(DemoRoot(), more);
}

inline std::vector<std::string> WordsOf(const Decision& decision)
{
    std::vector<std::string> words;
    for (const Reason& reason : decision.reasons) {
        words.emplace_back(ReasonWord(reason.id));
    }
    return words;
}

/// The texts of all reasons, one a line.
inline std::string TextsOf(const Decision& decision)
{
    std::string texts;
    for (const Reason& reason : decision.reasons) {
        texts += WhatText(reason, Language::kEnglish) + "\n";
    }
    return texts;
}

/// Returns a file as it stands in an archive for `tar`.
inline std::string TarFileOf(const std::string& name, const std::string& content)
{
    std::string size = "00000000000";
    std::size_t rest = content.size();
    for (std::size_t i = size.size(); i > 0; rest /= 8) {
        size[--i] = static_cast<char>('0' + rest % 8);
    }
    std::string header(512, '\0');
    header.replace(0, name.size(), name);
    header.replace(124, size.size(), size);
    header[156] = '0';
    header.replace(257, 5, "ustar");
    return header + content + std::string((512 - content.size() % 512) % 512, '\0');
}

/// A package with a fast folder in which there is a program.
/// @param first  content of a file that comes before it
inline std::string FastPackage(const std::string& name, const std::string& program,
                               const std::string& first = "")
{
    const std::string tar =
        TarFileOf("./0", first) + TarFileOf("./" + name, program) + std::string(1024, '\0');
    format::FastFolder folder;
    folder.target = "/opt/fast";
    folder.archive = "/opt/fast.tar";
    folder.size = tar.size();
    folder.fileCount = 2;
    folder.kib = format::KibOf(first.size()) + format::KibOf(program.size());
    folder.modes = 0755;
    folder.files = {"0", name};
    ProjectBuilder::Object script = ProjectBuilder::ScriptStep(format::FastInstallScript(folder));
    ProjectBuilder::Child(script, "UninstallScriptFunctionData")["ScriptData"] =
        ProjectBuilder::Text(format::FastUninstallScript(folder));
    const auto item = ProjectBuilder::CopyItem("/home/me/fast/files.tar", folder.archive, "600");
    return archive::ZipOf(
        {{kDescriptionEntry, ProjectBuilder::File(ProjectBuilder::Root(
                                 {ProjectBuilder::CopyFileStep({item}, true, false), script}))},
         {"0/0/files.tar", tar}});
}

} // namespace kx::guard
