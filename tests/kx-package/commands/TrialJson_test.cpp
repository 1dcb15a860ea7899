// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/TrialJson.h"
#include "kx-package/commands/Trials.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kx::tool
{

namespace
{

TEST(WriteTrialJson, TellsEverything)
{
    std::ostringstream out;
    std::ostringstream err;
    const Output output{out, err, true};

    WriteTrialJson(output, kSubject, ResultOfAll());

    picojson::value told;
    ASSERT_EQ(picojson::parse(told, out.str()), "");
    EXPECT_EQ(
        told.serialize(),
        R"({"formatVersion":1,"installations":[{"exitCode":101,"failedSteps":[)"
        R"({"command":"run","failures":1,"kind":"script","skipped":true,"step":2,)"
        R"("why":"exit status 3"},{"command":"echo 'a:********' | chpasswd",)"
        R"("failures":3,"kind":null,"skipped":false,"step":4,"why":null}],"files":[)"
        R"({"change":"added","group":"adm","mode":"0644","owner":"root","path":"\/a\n",)"
        R"("size":12,"type":"-"},)"
        R"({"change":"changed","group":"7","mode":"0777","owner":"1000","path":"\/b",)"
        R"("size":1,"target":"\\xff","type":"l"},)"
        R"({"change":"removed","path":"\/usr\/c"}],)"
        R"("installed":false,"log":["a","b\r"],"logOmitted":0,"programs":[)"
        R"({"canRun":false,"missingLoader":null,"path":"\/opt\/a\n","processor":"arm",)"
        R"("step":3},{"canRun":true,"missingLoader":"\/lib\/l","path":"\/opt\/b",)"
        R"("processor":"x86_64","step":null}],"reason":"step 3 starts programs for arm",)"
        R"("rebootAsked":true,)"
        R"("record":null,"records":[{"change":"removed","name":"P"}],)"
        R"("remarks":["one\u001b","made to fail: step 2, echo 'user:********' | chpasswd"],)"
        R"("settings":[{"after":"2","before":"1","name":"N"},)"
        R"({"after":"3","before":null,"name":"M"},{"after":null,"before":"4","name":"L"}],)"
        R"("unpacked":true,"users":[{"change":"added","name":"u\u007f"}],)"
        R"("verdict":"not judged"},)"
        R"({"exitCode":0,"failedSteps":[],"files":[],"installed":true,"log":[],"logOmitted":0,"programs":[],)"
        R"("reason":null,"rebootAsked":false,"record":{"files":["\/f\t"],"folders":["\/d\/"]},)"
        R"("records":[],"remarks":[],"settings":[],"unpacked":true,"users":[],)"
        R"("verdict":"installed"}],)"
        R"("installed":false,"kept":null,"package":"F\u001b",)"
        R"("reason":"step 3 starts programs for arm","recordName":"Foo","restart":null,)"
        R"("shell":{"exitStatus":3,"files":[],"rebootAsked":false,"records":[],)"
        R"("remarks":["late"],"settings":[],"users":[]},"verdict":"not judged"})");
    EXPECT_EQ(err.str(), "");
}

TEST(WriteTrialJson, TellsHowTheStartUpScriptWent)
{
    TrialResult result;
    result.installations.resize(1);
    result.restart = Restart();
    const auto told = [&result](StartupScript script) {
        result.restart->script = script;
        std::ostringstream out;
        std::ostringstream err;
        WriteTrialJson({out, err, true}, {"F", 0, ""}, result);
        picojson::value document;
        EXPECT_EQ(picojson::parse(document, out.str()), "");
        return document.get("restart");
    };

    EXPECT_EQ(told(StartupScript::kNone).get("script").to_str(), "none");
    EXPECT_EQ(told(StartupScript::kNotExecutable).get("script").to_str(), "notExecutable");
    EXPECT_EQ(told(StartupScript::kRunning).get("script").to_str(), "running");
    EXPECT_EQ(told(StartupScript::kStopped).get("script").to_str(), "stopped");
    result.restart->exitStatus = 3;
    result.restart->seconds = 10;
    result.restart->remarks = {"r"};
    result.restart->output.Append("a\n");
    result.restart->changes.users = {{"u", "added"}};
    EXPECT_EQ(told(StartupScript::kEnded).serialize(),
              R"({"exitStatus":3,"files":[],"output":["a"],"outputOmitted":0,"rebootAsked":false,)"
              R"("records":[],"remarks":["r"],"script":"ended","seconds":10,"settings":[],)"
              R"("users":[{"change":"added","name":"u"}]})");
}

} // namespace

} // namespace kx::tool
