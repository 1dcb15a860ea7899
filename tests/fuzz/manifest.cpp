// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Reads manifests, and checks that what is accepted makes a description that can be read.
#include "manifest/Manifest.h"

#include "Input.h"
#include "Require.h"
#include "compose/DescriptionWriter.h"
#include "compose/Model.h"
#include "format/Description.h"
#include "io/Error.h"
#include "manifest/Glob.h"

#include <cstdint>

namespace
{

void CheckPatterns(const kx::tool::Manifest& manifest)
{
    for (const kx::tool::ManifestStep& step : manifest.steps) {
        for (const kx::tool::ManifestFiles& files : step.files) {
            const std::string fixed = kx::tool::FixedFolder(files.source);
            Require(files.source.compare(0, fixed.size(), fixed) == 0);
            Require(!kx::tool::HasWildcard(fixed));
            static_cast<void>(kx::tool::MatchesPath(files.source, files.target));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const MemoryFile file(data, size);
    try {
        const kx::tool::Manifest manifest = kx::tool::ReadManifest(file.Path());
        CheckPatterns(manifest);
        const std::vector<std::vector<kx::tool::CopyItem>> items(manifest.steps.size());
        const kx::format::Description description = kx::format::ParseDescription(
            kx::tool::WriteDescription(kx::tool::MakeModel(manifest, manifest.steps, items)->root));
        Require(description.HasByteOrderMark() && description.root.has_value());
        Require(description.root->TextOf("Title") == manifest.title);
    } catch (const kx::io::Error& error) {
        Require(!error.Line().empty());
    }
    return 0;
}
