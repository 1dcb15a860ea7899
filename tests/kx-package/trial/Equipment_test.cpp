// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/Environment.h"
#include "support/Program.h"
#include "support/TempDir.h"
#include "support/Thrown.h"
#include "trial/Equipment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::tool
{

namespace
{

constexpr unsigned kExecutable = 0755;

class Places : public ::testing::Test
{
protected:
    Places() : m_variable("KX_DEVICE", nullptr) {}

    /// Makes the folder of a device.
    [[nodiscard]] std::string MakeDevice(const std::string& folder) const
    {
        m_dir.Write(folder + "/run", "#!/bin/sh\n", kExecutable);
        return m_dir / folder;
    }

    /// What it says where no device is.
    static std::string NoDevice(const std::string& folder)
    {
        return "3: " + folder +
               "/run: there is no sandboxed device; name the folder that holds its program 'run' "
               "with --device DIR or KX_DEVICE";
    }

    const format::Processor& m_native = *format::NativeProcessor();
    TempDir m_dir;
    Environment m_variable;
    std::string m_tool = m_dir / "bin";
};

TEST_F(Places, TheNamedDeviceGoesBeforeAllOthers)
{
    const std::string installed = MakeDevice("lib/kx_Updater/device");
    const std::string named = MakeDevice("named");
    const std::string variable = MakeDevice("variable");

    EXPECT_EQ(FindDevice("", m_tool), installed);
    const Environment set("KX_DEVICE", variable.c_str());
    EXPECT_EQ(FindDevice("", m_tool), variable);
    EXPECT_EQ(FindDevice(named, m_tool), named);
}

TEST_F(Places, ANamedPlaceWithoutADeviceIsNotReplacedByAnother)
{
    static_cast<void>(MakeDevice("lib/kx_Updater/device"));
    m_dir.Write("plain/run", "#!/bin/sh\n");

    EXPECT_EQ(Thrown([&] { static_cast<void>(FindDevice(m_dir / "no", m_tool)); }),
              NoDevice(m_dir / "no"));
    EXPECT_EQ(Thrown([&] { static_cast<void>(FindDevice(m_dir / "plain", m_tool)); }),
              NoDevice(m_dir / "plain"));
    const Environment set("KX_DEVICE", (m_dir / "no").c_str());
    EXPECT_EQ(Thrown([&] { static_cast<void>(FindDevice("", m_tool)); }), NoDevice(m_dir / "no"));
}

TEST_F(Places, AToolThatWasMovedKnowsNothingOfItsSources)
{
    EXPECT_EQ(Thrown([&] { static_cast<void>(FindDevice("", m_tool)); }),
              NoDevice(m_dir / "lib/kx_Updater/device"));
    EXPECT_EQ(FindDevice("", KX_BUILD_FOLDER), KX_SOURCE_FOLDER "/device");
}

TEST_F(Places, AToolWhereItWasBuiltFindsTheDeviceOfItsSourcesAndTheReleaseBuildsUpdater)
{
    m_dir.Write("build/dev/kx-package.sources", m_dir / "sources" + "\n");
    m_tool = m_dir / "build/dev";
    EXPECT_EQ(Thrown([&] { static_cast<void>(FindDevice("", m_tool)); }),
              NoDevice(m_dir / "sources/device"));

    const std::string device = MakeDevice("sources/device");
    const std::string updater =
        m_dir.Write("build/release/kx_Updater", ProgramFor(m_native), kExecutable);

    EXPECT_EQ(FindDevice("", m_tool), device);
    EXPECT_EQ(FindTrialUpdater("", m_tool), updater);
    const std::string nearer = MakeDevice("build/lib/kx_Updater/device");
    EXPECT_EQ(FindDevice("", m_tool), nearer);
}

TEST_F(Places, AnUpdaterBesideAToolThatWasMovedIsNotTakenForTheReleaseBuilds)
{
    m_dir.Write("release/kx_Updater", ProgramFor(m_native), kExecutable);
    EXPECT_THAT(Thrown([&] { static_cast<void>(FindTrialUpdater("", m_tool)); }),
                testing::HasSubstr(": there is no updater for "));

    m_dir.Write("bin/kx-package.sources", m_dir / "sources" + "\n");
    EXPECT_EQ(FindTrialUpdater("", m_tool), m_dir / "release/kx_Updater");
    m_dir.Write("release/kx_Updater", ProgramFor(m_native), 0644);
    EXPECT_THAT(Thrown([&] { static_cast<void>(FindTrialUpdater("", m_tool)); }),
                testing::HasSubstr(": there is no updater for "));
}

TEST_F(Places, TheUpdaterIsTheNamedOneOrTheMachinesOwn)
{
    const std::string own = m_dir.Write("bin/kx_Updater", ProgramFor(m_native), kExecutable);
    const std::string named = m_dir.Write("named", ProgramFor(m_native), kExecutable);

    EXPECT_EQ(FindTrialUpdater("", m_tool), own);
    EXPECT_EQ(FindTrialUpdater(named, m_tool), named);
}

TEST_F(Places, AnUpdaterThatThisMachineCannotStartIsRefused)
{
    const std::string other = m_native.name == std::string("arm") ? "aarch64" : "arm";
    const std::string foreign =
        m_dir.Write("foreign", ProgramFor(*format::FindProcessor(other)), kExecutable);
    const std::string plain = m_dir.Write("plain", ProgramFor(m_native));
    const std::string text = m_dir.Write("text", "#!/bin/sh\n", kExecutable);
    const std::string remedy =
        "is not a program that can be started; name an updater with --updater "
        "PATH";
    const auto refused = [this](const std::string& path) {
        return Thrown([&] { static_cast<void>(FindTrialUpdater(path, m_tool)); });
    };

    EXPECT_EQ(refused(foreign), "3: " + foreign + ": is a program for " + other +
                                    ", and this machine is " + m_native.name +
                                    "; name an updater for this machine with --updater PATH");
    EXPECT_EQ(refused(plain), "3: " + plain + ": " + remedy);
    EXPECT_EQ(refused(text), "3: " + text + ": " + remedy);
    EXPECT_EQ(refused(m_dir.Path()), "3: " + m_dir.Path() + ": " + remedy);
    EXPECT_EQ(refused(m_dir / "no"),
              "1: " + (m_dir / "no") + ": cannot open the updater: No such file or directory");
    EXPECT_EQ(refused("").substr(0, 3), "3: ");
}

} // namespace

} // namespace kx::tool
