// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "kx-package/trial/FakeDevice.h"
#include "support/TempDir.h"
#include "support/Thrown.h"
#include "trial/Trial.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace kx::tool
{

namespace
{

TEST(NamedPath, EndsInTheNameOfThePackage)
{
    const TempDir folder;
    const std::string root = std::filesystem::canonical(folder.Path()).string();
    std::filesystem::create_directories(root + "/pkg/0");
    std::ofstream(root + "/a.kx-update") << "x";

    EXPECT_EQ(NamedPath(root + "/pkg"), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg//"), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg/."), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/pkg/0/.."), root + "/pkg");
    EXPECT_EQ(NamedPath(root + "/a.kx-update"), root + "/a.kx-update");
}

TEST(NamedPath, RefusesWhatIsNoPackage)
{
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("/nowhere")); }),
              "3: /nowhere: cannot open: No such file or directory");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("")); }),
              "3: cannot open: No such file or directory");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("//")); }),
              "3: //: is not a package; name a package or the folder of an unpacked one");
    EXPECT_EQ(Thrown([] { static_cast<void>(NamedPath("/dev/null")); }),
              "3: /dev/null: is neither a file nor a folder; name a package or the folder of an "
              "unpacked one");
}

/// The end of a device's script that tells what an installation changed; other commands end with 0.
const std::string kTells = "[ -n \"$summary\" ] || exit 0\n"
                           "echo '{\"files\": [], \"settings\": [], \"users\": [], "
                           "\"packages\": [], \"reboot\": false}' >\"$summary\"\n"
                           "echo 'refused\tcp' >\"$trace\"\n";

/// Tries a folder on a device.
TrialResult Try(const FakeDevice& device, bool isTwice = false)
{
    const TempDir dir;
    TrialRequest request;
    request.package = dir.MakeDir("Foo");
    request.device = device.Folder();
    request.updater = "/none";
    request.bounds.disk = 1;
    request.isTwice = isTwice;
    request.road = {true,
                    "/mnt/usb/Foo.kx-update",
                    "/mnt/usb/Foo.temp",
                    "/var/lib/KxUserPackages/Foo",
                    {"sync"},
                    {"rm"}};
    return RunTrial(request);
}

TEST(RunTrial, TakesAnInstallationThatEndsWithZeroForInstalled)
{
    const FakeDevice device(kTells);

    const TrialResult result = Try(device);

    ASSERT_EQ(result.installations.size(), 1U);
    EXPECT_TRUE(result.installations[0].isInstalled);
    EXPECT_EQ(result.installations[0].exitCode, 0);
    EXPECT_TRUE(result.installations[0].isRefused);
    EXPECT_EQ(result.recordName, "Foo");
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, TakesNoInstallationForOneThatAFullDiskEndedWhateverItsExitCode)
{
    const FakeDevice device(kTells + kFillsTheDisk);

    const TrialResult result = Try(device);

    ASSERT_EQ(result.installations.size(), 1U);
    EXPECT_TRUE(result.installations[0].isUnpacked);
    EXPECT_FALSE(result.installations[0].isInstalled);
    EXPECT_EQ(result.installations[0].exitCode, 0);
    EXPECT_THAT(result.installations[0].remarks,
                testing::ElementsAre("ended because the panel's files take more than 1 MiB; see "
                                     "--disk"));
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, TellsThatUnpackingReachedABound)
{
    const FakeDevice device(kFillsTheDisk);

    const TrialResult result = Try(device, true);

    // Without an unpacked package there is nothing to install, and nothing a second time.
    ASSERT_EQ(result.installations.size(), 1U);
    EXPECT_FALSE(result.installations[0].isUnpacked);
    EXPECT_FALSE(result.installations[0].isInstalled);
    EXPECT_EQ(result.installations[0].exitCode, std::nullopt);
    EXPECT_EQ(result.installations[0].remarks.back(),
              "the package could not be unpacked in the given bounds");
    EXPECT_TRUE(device.IsClean());
}

TEST(RunTrial, GivesEachInstallationItsTimeAndTheReadingOfItsRecordAMinute)
{
    const FakeDevice device("echo \"$seconds\" >>\"${0%/*}/seconds\"\n" + kTells);

    const TrialResult result = Try(device, true);

    EXPECT_EQ(result.installations.size(), 2U);
    // Each time it is unpacked, installed and read.
    EXPECT_EQ(ReadFile(device.Folder() + "/seconds"), "600\n600\n60\n600\n600\n60\n");
}

} // namespace

} // namespace kx::tool
