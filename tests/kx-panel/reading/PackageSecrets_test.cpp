// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "InProcess.h"
#include "archive/ZipOf.h"
#include "confined/Unread.h"
#include "reading/PackageSecrets.h"
#include "support/ProjectBuilder.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::guard
{

namespace
{

std::vector<std::string> SecretsIn(const std::string& description)
{
    const std::string zip = archive::ZipOf({{"UserPackage.kx-project", description}});
    InProcess confinement;
    return SecretsOf(confinement, archive::MemoryBytes(zip), -1, Limits());
}

} // namespace

TEST(PackageSecrets, AreThePasswordsOfAllSettings)
{
    using namespace ProjectBuilder;
    const std::string description = File(
        Root({HardwareStep(
                  {HardwareConfig("User", {{"User", "root"}, {"Password", "one"}}),
                   HardwareConfig("VNC", {{"Port", "5900"}, {"password", "two words"}}, false)}),
              HardwareStep({HardwareConfig("FTP", {{"PASSWORD", "three"}, {"Password", ""}})})}));

    EXPECT_THAT(SecretsIn(description), testing::ElementsAre("one", "two words", "three"));
}

TEST(PackageSecrets, AreNoneOfADescriptionThatCannotBeRead)
{
    EXPECT_THAT(SecretsIn("no JSON"), testing::IsEmpty());
    const std::string zip = archive::ZipOf({{"other", ""}});
    InProcess confinement;
    EXPECT_THAT(SecretsOf(confinement, archive::MemoryBytes(zip), -1, Limits()),
                testing::IsEmpty());
}

} // namespace kx::guard
