// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/LocalShells.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace kx::tool
{

namespace
{

/// "shell: line: what", or "read".
std::string AnswerTo(const std::string& shell, const std::string& script)
{
    LocalShells shells;
    const std::optional<checks::SyntaxMistake> mistake = shells.Read(shell, script);
    return mistake.has_value()
               ? mistake->shell + ": " + std::to_string(mistake->line) + ": " + mistake->what
               : "read";
}

} // namespace

TEST(LocalShells, TellWhereAScriptCannotBeRead)
{
    EXPECT_EQ(AnswerTo("bash", "#!/bin/bash\nif true\nthen\n  echo x\n"),
              "bash: 5: syntax error: unexpected end of file");
    EXPECT_EQ(AnswerTo("bash", "#!/bin/bash\na=(1 2)\nfunction f { :; }\n"), "read");
    EXPECT_EQ(AnswerTo("sh", "#!/bin/sh\necho 'no end\n").substr(0, 2),
              std::filesystem::canonical("/bin/sh").filename().string().substr(0, 2));
}

TEST(LocalShells, RunNothing)
{
    const TempDir dir;
    const std::string made = dir / "made";
    std::string script = "#!/bin/sh\ntouch ";
    script.append(made).append("\n$(touch ").append(made).append(")\n: >").append(made);
    script += "\ncat\nwhile :; do :; done\n";
    for (const char* const shell : {"sh", "bash"}) {
        EXPECT_EQ(AnswerTo(shell, script), "read");
        EXPECT_FALSE(std::filesystem::exists(made)) << shell;
    }
}

TEST(LocalShells, GiveUpWhereNothingCanBeSaid)
{
    LocalShells shells;
    EXPECT_TRUE(shells.Has("sh"));
    EXPECT_FALSE(shells.Has("no-such-shell"));
    // What brackets stand in each other costs memory, which is bounded.
    EXPECT_EQ(AnswerTo("sh", "#!/bin/sh\n" + std::string(1000000, '(')).find("touch"),
              std::string::npos);
}

TEST(MistakeIn, KnowsTheWordsOfEveryShell)
{
    const auto answer = [](const std::string& line) {
        const std::optional<checks::SyntaxMistake> mistake = MistakeIn(line, "/x", "s");
        return mistake.has_value() ? std::to_string(mistake->line) + "|" + mistake->what : "none";
    };
    EXPECT_EQ(answer("/x: 12: Syntax error: \"fi\" unexpected"),
              "12|Syntax error: \"fi\" unexpected");
    EXPECT_EQ(answer("/x: line 3: syntax error: unexpected end of file (expecting \"fi\")"),
              "3|syntax error: unexpected end of file (expecting \"fi\")");
    EXPECT_EQ(answer("/x: 1: \x1b[2J"), "1|\\x1b[2J");
    EXPECT_EQ(answer("sh: 0: cannot open /x: No such file"), "none");
    EXPECT_EQ(answer("/x: Permission denied"), "none");
    EXPECT_EQ(answer("/y: 1: Syntax error"), "none");
    EXPECT_EQ(answer("/x: 1"), "none");
}

} // namespace kx::tool
