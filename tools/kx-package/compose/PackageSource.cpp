// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/PackageSource.h"

#include "common/Epoch.h"
#include "compose/DescriptionWriter.h"
#include "compose/LayoutPackage.h"
#include "compose/UpdaterSearch.h"
#include "io/Error.h"
#include "io/StandardInput.h"
#include "io/WholeFile.h"

#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

/// Tells whether something has the name, also a link that leads to nothing.
bool HasName(const fs::path& path)
{
    std::error_code error;
    return fs::exists(fs::symlink_status(path, error));
}

/// Tells whether a file begins as archives do, and no text.
bool BeginsAsArchive(const std::string& path)
{
    constexpr std::size_t kMarkSize = 2;
    try {
        return io::ReadFileHead(path, kMarkSize, "open") == "PK";
    } catch (const io::Error&) {
        return false; // told when it is read as a manifest
    }
}

} // namespace

bool IsSource(const std::string& path)
{
    const fs::path place(path);
    std::error_code error;
    if (fs::is_directory(place, error)) {
        return HasName(place / kManifestName) && !HasName(place / archive::kDescriptionName);
    }
    return place.extension() == ".toml" && fs::is_regular_file(place, error) &&
           !BeginsAsArchive(path);
}

std::string PackageFileName(const Manifest& manifest)
{
    return manifest.name + archive::kPackageExtension;
}

PackageSource ReadSource(const std::string& path)
{
    Mistakes mistakes;
    PackageSource source;
    source.manifest = ReadManifest(path, mistakes);
    source.layout = MakeLayout(source.manifest, PackageFileName(source.manifest), mistakes);
    mistakes.ThrowAny();
    source.updater = UpdaterIfAny(source.manifest);
    return source;
}

std::unique_ptr<archive::Package> PackageOf(const PackageSource& source)
{
    return std::make_unique<LayoutPackage>(PackageFileName(source.manifest), true, source.layout,
                                           source.updater);
}

archive::WrittenArchive WritePackage(const std::string& path, const Manifest& manifest,
                                     const Layout& layout, const std::string& updater,
                                     std::function<void(double fraction)> progress)
{
    std::vector<archive::ArchiveItem> items = layout.payload;
    items.push_back(
        {archive::kDescriptionName, "", WriteDescription(layout.model->root), false, false});
    if (!updater.empty()) {
        items.push_back({archive::kUpdaterName, updater, std::nullopt, false, true});
    }
    archive::ArchiveOptions options;
    options.moment = manifest.timestamp.value_or(SourceDateEpoch().value_or(0));
    options.onProgress = std::move(progress);
    return archive::WriteArchive(path, std::move(items), options);
}

bool IsUpdaterElsewhere(const OpenedPackage& opened)
{
    return opened.source != nullptr && opened.source->updater.empty();
}

OpenedPackage OpenAsPackage(const std::string& path)
{
    OpenedPackage opened;
    if (path == io::kStandardInput || !IsSource(path)) {
        opened.package = archive::OpenPackage(path);
        return opened;
    }
    opened.source = std::make_unique<PackageSource>(ReadSource(path));
    opened.package = PackageOf(*opened.source);
    return opened;
}

} // namespace kx::tool
