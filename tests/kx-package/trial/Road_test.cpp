// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/Road.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

using rehearsal::PlannedCommand;
using testing::ElementsAre;
using testing::IsEmpty;

PlannedCommand Command(PlannedCommand::Process process, const char* text)
{
    PlannedCommand command;
    command.process = process;
    command.command = text;
    return command;
}

PlannedCommand OfWindow(const char* text)
{
    return Command(PlannedCommand::Process::kWindow, text);
}

PlannedCommand OfInstaller(const char* text)
{
    return Command(PlannedCommand::Process::kInstaller, text);
}

rehearsal::Plan PlanOfFoo()
{
    rehearsal::Plan plan;
    plan.packageFile = "/mnt/usb/Foo.kx-update";
    plan.record = "/var/lib/KxUserPackages/Foo";
    plan.outcome = rehearsal::Outcome::kInstalled;
    return plan;
}

TEST(RoadOf, SplitsTheWindowsCommandsAtTheInstallation)
{
    rehearsal::Plan plan = PlanOfFoo();
    plan.commands = {
        OfWindow("sync"),
        OfWindow(R"(mkdir -p "/mnt/usb/Foo.temp")"),
        OfWindow(R"(unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp")"),
        OfInstaller("sync"),
        OfInstaller("/usr/bin/kxsystem/wprotect_off"),
        OfWindow(R"(rm -r "/mnt/usb/Foo.temp")"),
        OfWindow("/usr/bin/kxsystem/usb_umount"),
        OfWindow("/sbin/reboot"),
    };

    const Road road = RoadOf(plan);

    EXPECT_TRUE(road.isFound);
    EXPECT_EQ(road.archive, "/mnt/usb/Foo.kx-update");
    EXPECT_EQ(road.folder, "/mnt/usb/Foo.temp");
    EXPECT_EQ(road.record, "/var/lib/KxUserPackages/Foo");
    EXPECT_THAT(road.opening,
                ElementsAre("sync", R"(mkdir -p "/mnt/usb/Foo.temp")",
                            R"(unzip -o "/mnt/usb/Foo.kx-update" -d "/mnt/usb/Foo.temp")"));
    EXPECT_THAT(road.leaving,
                ElementsAre(R"(rm -r "/mnt/usb/Foo.temp")", "/usr/bin/kxsystem/usb_umount"));
}

TEST(RoadOf, DoesNotNeedAnInstaller)
{
    rehearsal::Plan plan = PlanOfFoo();
    plan.commands = {OfWindow("sync"), OfWindow("unzip"), OfWindow("rm"),
                     OfWindow("/usr/bin/kxsystem/usb_umount"), OfWindow("/sbin/reboot")};

    const Road road = RoadOf(plan);

    EXPECT_THAT(road.opening, ElementsAre("sync", "unzip"));
    EXPECT_THAT(road.leaving, ElementsAre("rm", "/usr/bin/kxsystem/usb_umount"));
}

TEST(RoadOf, OfAFileThatIsNoPackageOnlyLeavesTheDrive)
{
    rehearsal::Plan plan = PlanOfFoo();
    plan.outcome = rehearsal::Outcome::kNotFound;
    plan.commands = {OfWindow("sync"), OfWindow("/usr/bin/kxsystem/usb_umount"),
                     OfWindow("/sbin/reboot")};

    const Road road = RoadOf(plan);

    EXPECT_FALSE(road.isFound);
    EXPECT_THAT(road.opening, ElementsAre("sync"));
    EXPECT_THAT(road.leaving, ElementsAre("/usr/bin/kxsystem/usb_umount"));
}

TEST(RoadOf, OfTwoPackagesOnOneDriveFindsNone)
{
    rehearsal::Plan plan = PlanOfFoo();
    plan.outcome = rehearsal::Outcome::kNotAlone;

    EXPECT_FALSE(RoadOf(plan).isFound);
}

TEST(RoadOf, OfAPlanWithoutCommandsIsEmpty)
{
    const Road road = RoadOf(PlanOfFoo());

    EXPECT_THAT(road.opening, IsEmpty());
    EXPECT_THAT(road.leaving, IsEmpty());
}

} // namespace

} // namespace kx::tool
