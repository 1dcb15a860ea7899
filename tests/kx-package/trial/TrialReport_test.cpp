// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/TrialReport.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kx::tool
{

namespace
{

/// A result with something of each kind, and hostile names.
TrialResult ResultOfAll()
{
    Installation first;
    first.exitCode = 101;
    first.isUnpacked = true;
    first.isRefused = true;
    first.remarks = {"one\x1b"};
    first.log.Append("a\nb\r\n");
    first.changes.files = {{"added", "/a\n", "-rw-r--r--", "0644", "root", "adm", 12, ""},
                           {"changed", "/b", "lrwxrwxrwx", "0777", "1000", "7", 1, "\xff"},
                           {"removed", "/usr/c", "", "", "", "", std::nullopt, ""}};
    first.changes.settings = {{"N", "1", "2"}, {"M", std::nullopt, "3"}, {"L", "4", std::nullopt}};
    first.changes.users = {{"u\x7f", "added"}};
    first.changes.packages = {{"P", "removed"}};
    first.changes.isRebootAsked = true;
    Installation second;
    second.exitCode = 0;
    second.isUnpacked = true;
    second.isInstalled = true;
    second.record = TrialRecord{{"/d/"}, {"/f\t"}};
    TrialResult result;
    result.recordName = "Foo";
    result.installations = {first, second};
    result.shell = ShellVisit{3, {"late"}, {}};
    return result;
}

const TrialSubject kSubject = {"F\x1b", 2, "echo 'user:geheim' | chpasswd "};

TEST(WriteTrial, TellsPeopleEverythingOnSafeLines)
{
    std::ostringstream out;
    std::ostringstream err;
    const Output output{out, err};

    WriteTrial(output, kSubject, ResultOfAll());

    EXPECT_EQ(out.str(), R"(F\x1b, the first time: not installed, exit code 101
  one\x1b
  made to fail: step 2, echo 'user:********' | chpasswd

What the first installation changed
  added    -rw-r--r--  root:adm  12  /a\n
  changed  lrwxrwxrwx  1000:7     1  /b -> \xff
  removed                            /usr/c
settings
  N=2  (was 1)
  M=3
  L=  (was 4)
users
  u\x7f: added
records
  P: removed
a reboot was asked for

There is no record of it

What the updater printed
  | a
  | b\x0d

F\x1b, the second time: installed

What the second installation changed
  no file and no folder
settings
  none
users
  none
records
  none

Recorded as Foo
  /d/  (folder)
  /f\x09

What the updater printed

What the shell changed
  no file and no folder
settings
  none
users
  none
records
  none
  late
)");
    EXPECT_EQ(err.str(), "");
}

TEST(WriteTrial, TellsTheSameAsJson)
{
    std::ostringstream out;
    std::ostringstream err;
    const Output output{out, err, true};

    WriteTrial(output, kSubject, ResultOfAll());

    picojson::value told;
    ASSERT_EQ(picojson::parse(told, out.str()), "");
    EXPECT_EQ(told.serialize(),
              R"({"installations":[{"exitCode":101,"files":[)"
              R"({"change":"added","group":"adm","mode":"0644","owner":"root","path":"\/a\n",)"
              R"("size":12,"type":"-"},)"
              R"({"change":"changed","group":"7","mode":"0777","owner":"1000","path":"\/b",)"
              R"("size":1,"target":"\\xff","type":"l"},)"
              R"({"change":"removed","path":"\/usr\/c"}],)"
              R"("installed":false,"log":["a","b\r"],"logOmitted":0,"rebootAsked":true,)"
              R"("record":null,"records":[{"change":"removed","name":"P"}],)"
              R"("remarks":["one\u001b","made to fail: step 2, echo 'user:********' | chpasswd"],)"
              R"("settings":[{"after":"2","before":"1","name":"N"},)"
              R"({"after":"3","before":null,"name":"M"},{"after":null,"before":"4","name":"L"}],)"
              R"("unpacked":true,"users":[{"change":"added","name":"u\u007f"}]},)"
              R"({"exitCode":0,"files":[],"installed":true,"log":[],"logOmitted":0,)"
              R"("rebootAsked":false,"record":{"files":["\/f\t"],"folders":["\/d\/"]},)"
              R"("records":[],"remarks":[],"settings":[],"unpacked":true,"users":[]}],)"
              R"("installed":true,"package":"F\u001b","recordName":"Foo",)"
              R"("shell":{"exitStatus":3,"files":[],"rebootAsked":false,"records":[],)"
              R"("remarks":["late"],"settings":[],"users":[]}})");
    EXPECT_EQ(err.str(), "");
}

TEST(WriteTrial, TellsWhatAFailureDidNotDo)
{
    TrialResult result;
    result.installations.resize(1);
    result.installations[0].isUnpacked = true;
    result.installations[0].isInstalled = true;
    const TrialSubject subject = {"F", 1, "cp a b"};
    const auto lineOf = [&](bool isRefused, std::size_t number) {
        result.installations[0].isRefused = isRefused;
        std::ostringstream out;
        std::ostringstream err;
        WriteTrial({out, err}, subject, result);
        std::istringstream lines(out.str());
        std::string line;
        for (std::size_t i = 0; i <= number; ++i) {
            std::getline(lines, line);
        }
        return line;
    };

    EXPECT_EQ(lineOf(false, 1), "  the command that was to fail was not reached: step 1, cp a b");
    EXPECT_EQ(lineOf(true, 1), "  made to fail: step 1, cp a b");
    EXPECT_EQ(lineOf(true, 2), "  the installation went on: the step may be skipped, or the "
                               "updater does not look at this command's result");
}

} // namespace

} // namespace kx::tool
