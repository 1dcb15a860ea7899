// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Reads manifests, and checks that what is accepted makes a description that can be read.
#include "manifest/Manifest.h"

#include "Input.h"
#include "build/DescriptionWriter.h"
#include "build/Model.h"
#include "common/Error.h"
#include "manifest/Glob.h"
#include "package/Description.h"

#include <cstdint>
#include <cstdlib>

namespace
{

void Require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

void CheckPatterns(const Manifest& manifest)
{
    for (const ManifestStep& step : manifest.steps) {
        for (const ManifestFiles& files : step.files) {
            const std::string fixed = FixedFolder(files.source);
            Require(files.source.compare(0, fixed.size(), fixed) == 0);
            Require(!HasWildcard(fixed));
            static_cast<void>(MatchesPath(files.source, files.target));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const MemoryFile file(data, size);
    try {
        const Manifest manifest = ReadManifest(file.Path());
        CheckPatterns(manifest);
        const std::vector<std::vector<CopyItem>> items(manifest.steps.size());
        const Description description =
            ParseDescription(WriteDescription(MakeModel(manifest, items)->root));
        Require(description.HasByteOrderMark() && description.root.has_value());
        Require(description.root->TextOf("Title") == manifest.title);
    } catch (const Error& error) {
        Require(!error.Line().empty());
    }
    return 0;
}
