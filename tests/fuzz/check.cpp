// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Checks the input as the description of a package with some payload, and rehearses its
// installation.
#include "archive/Package.h"
#include "checks/DescriptionChecks.h"
#include "checks/InstallationChecks.h"
#include "checks/StepChecks.h"

#include <string>
#include <utility>

namespace
{

/// A package that holds a file for the first items of the first steps.
class SmallPackage final : public kx::archive::Package
{
public:
    explicit SmallPackage(std::string description) : m_description(std::move(description))
    {
        std::vector<kx::archive::PackageEntry> entries;
        for (const char* const name : {"0/0/hello", "1/0/a", "1/0/b/c", "2/1/x", "9/9/unused",
                                       kx::archive::kDescriptionName}) {
            kx::archive::PackageEntry entry;
            entry.name = name;
            entries.push_back(std::move(entry));
        }
        m_entries = kx::archive::Arranged(std::move(entries));
    }

    [[nodiscard]] const std::string& Path() const override { return m_path; }
    [[nodiscard]] bool IsArchive() const override { return true; }
    [[nodiscard]] const std::vector<kx::archive::PackageEntry>& Entries() const override
    {
        return m_entries;
    }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override
    {
        return name == kx::archive::kDescriptionName ? m_description.substr(0, limit) : "";
    }

private:
    std::string m_path = "/mnt/usb/fuzz.kx-update";
    std::string m_description;
    std::vector<kx::archive::PackageEntry> m_entries;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const SmallPackage package(std::string(reinterpret_cast<const char*>(data), size));
    kx::checks::Findings findings;
    const kx::format::Description description = kx::checks::CheckDescription(
        std::string(reinterpret_cast<const char*>(data), size), findings);
    if (description.root.has_value()) {
        kx::checks::CheckSteps(*description.root, package, "fuzz", {}, findings);
    }
    kx::checks::CheckInstallation(
        package, description.root.has_value() ? &*description.root : nullptr, findings);
    return 0;
}
