// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA.h"
#include "support/ShellRecorder.h"
#include "support/SleepRecorder.h"
#include "support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <memory>
#include <string>
#include <vector>

using ::testing::ElementsAre;

namespace
{

struct CommandRow {
    const char* name;
    int (*call)();
    const char* command;
};

const CommandRow kCommands[] = {
    {"Shell", [] { return OSA_Shell("tool %s %d %5.1f%%", "a b", -7, 2.5); }, "tool a b -7   2.5%"},
    {"ShellWithoutArguments", [] { return OSA_Shell("sync"); }, "sync"},
    {"ShellWithUserTextThatLooksLikeAFormat", [] { return OSA_Shell("%s", "%s%n%d %"); },
     "%s%n%d %"},
    {"ShellWithBytesThatAreNotUtf8", [] { return OSA_Shell("\xFF %s \x80", "\xFE\xC3"); },
     "\xFF \xFE\xC3 \x80"},
    {"ShellWithTwoLines", [] { return OSA_Shell("%s\n%s", "a", "b"); }, "a\nb"},
    {"ShellWithNothing", [] { return OSA_Shell("%s", ""); }, ""},
    {"Rmdir", [] { return OSA_rmdir("/opt/a b"); }, "rm -r \"/opt/a b\""},
    {"RmdirOfNothing", [] { return OSA_rmdir(""); }, "rm -r \"\""},
    {"Mkdir", [] { return OSA_mkdir("/opt/a b"); }, "mkdir -p \"/opt/a b\""},
    {"Unzip", [] { return OSA_Unzip("/m/p.kx-update", "/m/p.temp"); },
     R"(unzip -o "/m/p.kx-update" -d "/m/p.temp" )"},
    {"Attr", [] { return OSA_Attr("/opt/x", "644"); }, "chmod 644 \"/opt/x\" "},
    {"AttrWithEmptyPermissionsMeans777", [] { return OSA_Attr("/opt/x", ""); },
     "chmod 777 \"/opt/x\" "},
    {"AttrWithNullPermissionsMeans777", [] { return OSA_Attr("/opt/x", nullptr); },
     "chmod 777 \"/opt/x\" "},
    {"AttrWithAWordOfItsOwn", [] { return OSA_Attr("/opt/x", "u+x,g-w"); },
     "chmod u+x,g-w \"/opt/x\" "},
    {"AttrWithABlank", [] { return OSA_Attr("/opt/x", " "); }, "chmod   \"/opt/x\" "},
    {"CopyDir", [] { return OSA_CopyDir("/a/s", "/b/d"); }, R"(cp -f -r "/a/s" "/b/d" )"},
    {"QuotesAreNotEscaped", [] { return OSA_mkdir("a\"b'c`d$e\\f"); }, R"(mkdir -p "a"b'c`d$e\f")"},
    {"PercentInAPath", [] { return OSA_Unzip("/%s%n", "/%d"); }, R"(unzip -o "/%s%n" -d "/%d" )"},
    {"PathThatIsNotUtf8", [] { return OSA_rmdir("\xFF\xFE"); }, "rm -r \"\xFF\xFE\""},
};

class OsaCommand : public ::testing::TestWithParam<CommandRow>
{
};

/// The raw status words that a command can end with: none, an exit code, a signal, no shell.
constexpr int kStatuses[] = {0, 256, 32512, 65280, 9, -1};

} // namespace

TEST_P(OsaCommand, IsHandedToTheShell)
{
    ShellRecorder shell;

    EXPECT_EQ(GetParam().call(), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(GetParam().command));
}

TEST_P(OsaCommand, ReturnsTheRawStatus)
{
    for (const int status : kStatuses) {
        ShellRecorder shell;
        shell.Answer(GetParam().command, status);

        EXPECT_EQ(GetParam().call(), status);
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, OsaCommand, ::testing::ValuesIn(kCommands),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(OsaShell, FormatsACommandOf100000BytesWhole)
{
    const std::string word(100000, 'w');
    ShellRecorder shell;

    EXPECT_EQ(OSA_Shell("echo %s.", word.c_str()), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("echo " + word + "."));
}

/// Lengths around the powers of two at which a buffer of fixed size would end.
class OsaShellLength : public ::testing::TestWithParam<std::size_t>
{
};

TEST_P(OsaShellLength, KeepsEveryByteOfACommand)
{
    const std::string command(GetParam(), 'c');
    ShellRecorder shell;

    EXPECT_EQ(OSA_Shell("%s", command.c_str()), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(command));
}

INSTANTIATE_TEST_SUITE_P(Bytes, OsaShellLength,
                         ::testing::Values(1, 255, 256, 1023, 1024, 2046, 2047, 2048, 2049, 4096,
                                           65536));

TEST(OsaShell, TakesAPathOf5000Bytes)
{
    const std::string path = "/" + std::string(4999, 'p');
    ShellRecorder shell;

    EXPECT_EQ(OSA_mkdir(path.c_str()), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre("mkdir -p \"" + path + "\""));
}

namespace
{

[[gnu::format(printf, 1, 2)]] std::string Format(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::string text = OSA_Format(fmt, args);
    va_end(args);
    return text;
}

/// No byte sequence of the C locale stands for this character.
constexpr wint_t kEuroSign = 0x20AC;

} // namespace

TEST(OsaFormat, FormatsATextOfAnyLength)
{
    const std::string word(100000, 'w');

    EXPECT_EQ(Format("%s %d%%", word.c_str(), 7), word + " 7%");
    EXPECT_EQ(Format("%s", ""), "");
}

TEST(OsaFormat, FormatsEveryLengthAroundThoseOfACommand)
{
    for (std::size_t length = 0; length < 1100; ++length) {
        std::string word(length, 'x');
        if (length > 0) {
            word.back() = 'y';
        }

        EXPECT_EQ(Format("%s", word.c_str()), word);
        EXPECT_EQ(Format("\"%s\" ", word.c_str()), "\"" + word + "\" ");
    }
}

TEST(OsaFormat, IsEmptyForWhatCannotBeFormatted)
{
    EXPECT_EQ(Format("a %lc", kEuroSign), "");
}

TEST(OsaShell, RunsNothingThatCannotBeFormatted)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_Shell("a %lc", kEuroSign), -1);

    EXPECT_THAT(shell.Commands(), ElementsAre());
}

TEST(OsaShell, ReallyRunsTheCommand)
{
    const TempDir dir;
    ShellRecorder shell(ShellRecorder::Mode::PassThrough);

    EXPECT_EQ(OSA_mkdir((dir / "a/b").c_str()), 0);
    EXPECT_EQ(OSA_mkdir((dir / "a/b").c_str()), 0);
    EXPECT_EQ(OSA_Attr((dir / "a/b").c_str(), "750"), 0);
    EXPECT_EQ(OSA_Attr((dir / "a").c_str(), nullptr), 0);
    EXPECT_THAT(dir.Tree(), ElementsAre("a d 777", "a/b d 750"));

    EXPECT_EQ(OSA_rmdir((dir / "a").c_str()), 0);
    EXPECT_THAT(dir.Tree(), ElementsAre());
    EXPECT_EQ(OSA_rmdir((dir / "a").c_str()), 256);
}

TEST(OsaRunScript, MakesTheFileExecutableAndRunsIt)
{
    ShellRecorder shell;

    EXPECT_EQ(OSA_RunScript("/rw/job.sh"), 0);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(chmod +x "/rw/job.sh")", R"("/rw/job.sh")"));
}

TEST(OsaRunScript, DoesNotRunAScriptItCannotMakeExecutable)
{
    ShellRecorder shell;
    shell.Answer(R"(chmod +x "/ro/job.sh")", 256);

    EXPECT_EQ(OSA_RunScript("/ro/job.sh"), 256);

    EXPECT_THAT(shell.Commands(), ElementsAre(R"(chmod +x "/ro/job.sh")"));
}

TEST(OsaRunScript, ReturnsTheRawStatusOfTheScript)
{
    for (const int status : kStatuses) {
        ShellRecorder shell;
        shell.Answer(R"("/rw/job.sh")", status);

        EXPECT_EQ(OSA_RunScript("/rw/job.sh"), status);
    }
}

namespace
{

struct FileCloser {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};

/// Lets a standard stream write to a file while it lives, fully buffered like a pipe's.
class RedirectedStream
{
public:
    RedirectedStream(std::FILE*& stream, const std::string& path)
        : m_stream(stream), m_saved(stream), m_file(std::fopen(path.c_str(), "w"))
    {
        static_cast<void>(std::setvbuf(m_file.get(), nullptr, _IOFBF, 4096));
        m_stream = m_file.get();
    }
    RedirectedStream(const RedirectedStream&) = delete;
    RedirectedStream& operator=(const RedirectedStream&) = delete;
    ~RedirectedStream() { m_stream = m_saved; }

private:
    std::FILE*& m_stream;
    std::FILE* m_saved;
    std::unique_ptr<std::FILE, FileCloser> m_file;
};

} // namespace

TEST(OsaShell, FlushesTheStandardStreamsBehindTheCommand)
{
    const TempDir dir;
    const RedirectedStream out(stdout, dir / "out");
    const RedirectedStream err(stderr, dir / "err");
    ShellRecorder shell;
    std::fputs("line", stdout);
    std::fputs("error", stderr);

    EXPECT_EQ(OSA_Shell("tool"), 0);

    EXPECT_EQ(ReadFile(dir / "out"), "line");
    EXPECT_EQ(ReadFile(dir / "err"), "error");
}

TEST(OsaShell, FlushesTheStandardStreamsWhenTheCommandFailed)
{
    const TempDir dir;
    const RedirectedStream out(stdout, dir / "out");
    ShellRecorder shell;
    shell.Answer("tool", 768);
    std::fputs("line", stdout);

    EXPECT_EQ(OSA_Shell("tool"), 768);

    EXPECT_EQ(ReadFile(dir / "out"), "line");
}

TEST(OsaShell, ReturnsTheCommandsStatusWhenTheFlushFails)
{
    const RedirectedStream err(stderr, "/dev/full");
    ShellRecorder shell;
    std::fputs("error", stderr);

    EXPECT_EQ(OSA_Shell("tool"), 0);
}

TEST(OsaStdfflash, FlushesBothStreams)
{
    const TempDir dir;
    const RedirectedStream out(stdout, dir / "out");
    const RedirectedStream err(stderr, dir / "err");
    std::fputs("line", stdout);
    std::fputs("error", stderr);

    EXPECT_EQ(OSA_stdfflash(), 0);

    EXPECT_EQ(ReadFile(dir / "out"), "line");
    EXPECT_EQ(ReadFile(dir / "err"), "error");
}

TEST(OsaStdfflash, ReturnsTheResultOfStandardErrorOnly)
{
    const TempDir dir;
    const RedirectedStream out(stdout, "/dev/full");
    const RedirectedStream err(stderr, dir / "err");
    std::fputs("line", stdout);
    std::fputs("error", stderr);

    EXPECT_EQ(OSA_stdfflash(), 0);

    EXPECT_EQ(ReadFile(dir / "err"), "error");
}

TEST(OsaStdfflash, ReportsThatStandardErrorCannotBeWritten)
{
    const TempDir dir;
    const RedirectedStream out(stdout, dir / "out");
    const RedirectedStream err(stderr, "/dev/full");
    std::fputs("line", stdout);
    std::fputs("error", stderr);

    EXPECT_EQ(OSA_stdfflash(), EOF);

    EXPECT_EQ(ReadFile(dir / "out"), "line");
}

namespace
{

struct SleepRow {
    const char* name;
    int ms;
    std::vector<std::string> calls;
};

const SleepRow kSleeps[] = {
    {"Smallest", INT_MIN, {"pause 100"}},
    {"Negative", -1000, {"pause 100"}},
    {"Zero", 0, {"pause 100"}},
    {"One", 1, {"pause 100"}},
    {"Two", 2, {"pause 2000"}},
    {"BelowASecond", 999, {"pause 999000"}},
    {"OneSecond", 1000, {"sleep 1"}},
    {"AboveASecond", 1001, {"sleep 1", "pause 1000"}},
    {"SecondsAndRest", 2500, {"sleep 2", "pause 500000"}},
    {"WholeSeconds", 3000, {"sleep 3"}},
    {"Largest", INT_MAX, {"sleep 2147483", "pause 647000"}},
};

class OsaSleep : public ::testing::TestWithParam<SleepRow>
{
};

} // namespace

TEST_P(OsaSleep, SleepsSecondsThenTheRest)
{
    const SleepRecorder clock;

    OSA_Sleep(GetParam().ms);

    EXPECT_EQ(clock.Calls(), GetParam().calls);
}

INSTANTIATE_TEST_SUITE_P(Times, OsaSleep, ::testing::ValuesIn(kSleeps),
                         [](const auto& row) { return std::string(row.param.name); });
