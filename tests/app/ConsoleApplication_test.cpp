// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The application object of console mode. A process makes one such object in its life, so each
// test makes it in a child.
#include "app/CommandLine.h"
#include "app/ConsoleApplication.h"
#include "app/ForkedChild.h"
#include "support/TempDir.h"

#include <QApplication>
#include <QLibraryInfo>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include <sys/wait.h>
#include <unistd.h>

using ::testing::HasSubstr;

namespace fs = std::filesystem;

namespace
{

constexpr const char* kPrintPlatform = "--print-platform";

/// The name of the platform that an application object made here gets.
std::string PlatformMade()
{
    CommandLine line({"-unzipedDir", "/tmp/a"});
    int count = line.Count();
    const auto app = MakeConsoleApplication(count, line.Words());
    return QGuiApplication::platformName().toStdString();
}

/// An environment block of the test's own.
class Environment
{
public:
    explicit Environment(std::vector<std::string> entries) : m_entries(std::move(entries))
    {
        for (std::string& entry : m_entries) {
            m_pointers.push_back(entry.data());
        }
        m_pointers.push_back(nullptr);
    }

    void Use() { environ = m_pointers.data(); }

    /// Tells whether the process's environment is this very block, with the same bytes.
    [[nodiscard]] bool IsInUseUnchanged(const std::vector<std::string>& given) const
    {
        if (environ != m_pointers.data() || given.size() + 1 != m_pointers.size()) {
            return false;
        }
        for (std::size_t i = 0; i < given.size(); ++i) {
            if (environ[i] != m_entries[i].data() || given[i] != environ[i]) {
                return false;
            }
        }
        return environ[given.size()] == nullptr;
    }

private:
    std::vector<std::string> m_entries;
    std::vector<char*> m_pointers;
};

/// Everything that an environment may name for a window and its devices, with values that would
/// show if they were used.
std::vector<std::string> WindowVariables(const std::string& runtimeFolder)
{
    return {"QT_QPA_PLATFORM=linuxfb:fb=/dev/kx_none",
            "QT_QPA_PLATFORMTHEME=kx_none",
            "QT_QPA_GENERIC_PLUGINS=evdevtouch:/dev/kx_none",
            "QT_IM_MODULE=kx_none",
            "QT_STYLE_OVERRIDE=kx_none",
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1",
            "QT_FATAL_WARNINGS=1",
            "QT_FATAL_CRITICALS=1",
            "FONTCONFIG_FILE=/kx_none",
            "TMPDIR=" + runtimeFolder,
            "DISPLAY=:77"};
}

/// The open descriptors and their files, a line each. Qt's event loop keeps a descriptor of its own
/// until the process ends; what is no file is left out.
std::string OpenFiles()
{
    std::string names;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code closedByNow;
        const std::string file = fs::read_symlink(entry.path(), closedByNow).string();
        if (file.rfind("anon_inode:", 0) != 0) {
            names += entry.path().filename().string() + " " + file + "\n";
        }
    }
    return names;
}

/// The environment block, a line for each entry. The number of a descriptor is left out, and so are
/// the platforms behind the first one, which depend on Qt's version.
std::string Entries()
{
    std::string lines;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text = *entry;
        for (const std::string& start : {std::string("FONTCONFIG_FILE=/proc/self/fd/"),
                                         std::string("QT_QPA_PLATFORM=offscreen")}) {
            text = text.compare(0, start.size(), start) == 0 ? start : text;
        }
        lines += text + "\n";
    }
    return lines;
}

/// What Qt finds in the environment while it makes its application object, and while that ends.
std::string EntriesSeenByQt()
{
    static std::string seen;
    qAddPreRoutine([] {
        seen += "begins with\n" + Entries();
        qAddPostRoutine([] { seen += "ends with\n" + Entries(); });
    });
    static_cast<void>(PlatformMade());
    return seen;
}

struct PlatformCase {
    std::string name;
    std::optional<std::string> value;
};

} // namespace

class GivenPlatform : public ::testing::TestWithParam<PlatformCase>
{
};

TEST_P(GivenPlatform, IsNotUsed)
{
    const ChildResult child = RunInChild([] {
        if (GetParam().value) {
            setenv("QT_QPA_PLATFORM", GetParam().value->c_str(), 1);
        } else {
            unsetenv("QT_QPA_PLATFORM");
        }
        return PlatformMade();
    });

    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.text, "offscreen");
}

INSTANTIATE_TEST_SUITE_P(
    Values, GivenPlatform,
    ::testing::Values(PlatformCase{"None", std::nullopt}, PlatformCase{"Empty", ""},
                      PlatformCase{"Offscreen", "offscreen"}, PlatformCase{"Minimal", "minimal"},
                      PlatformCase{"FrameBuffer", "linuxfb:fb=/dev/kx_none"},
                      PlatformCase{"Eglfs", "eglfs"}, PlatformCase{"Xcb", "xcb"},
                      PlatformCase{"List", "xcb;minimal"}, PlatformCase{"Unknown", "kx_none"},
                      PlatformCase{"Strange", ";;:%s \xFF"}),
    [](const auto& test) { return test.param.name; });

TEST(ConsoleApplication, LeavesTheEnvironmentAsItWasEntryByEntry)
{
    const std::vector<std::string> given = {"Z=last first",
                                            "QT_QPA_PLATFORM=xcb",
                                            "LANG=ja_JP.UTF-8",
                                            "no equals sign",
                                            "",
                                            "QT_IM_MODULE=kx_none",
                                            "BYTES=\xFF\n",
                                            "QT_QPA_PLATFORM=eglfs",
                                            "TMPDIR=/kx_none",
                                            "XDG_RUNTIME_DIR=/kx_none",
                                            "QT_QPA_PLATFORM",
                                            "Z=again",
                                            "A=" + std::string(100000, 'a')};

    const ChildResult child = RunInChild([&given] {
        Environment environment(given);
        environment.Use();
        const std::string platform = PlatformMade();
        return platform + (environment.IsInUseUnchanged(given) ? " unchanged" : " changed");
    });

    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.text, "offscreen unchanged");
}

class HiddenVariable : public ::testing::TestWithParam<const char*>
{
};

TEST_P(HiddenVariable, IsNotSeenByQtFromBeginningToEnd)
{
    const std::string name = GetParam();

    const ChildResult child = RunInChild([&name] {
        const std::string longer = name + "S=near";
        const std::string shorter = name.substr(0, name.size() - 1) + "=near";
        Environment environment({"A=first", name + "=given", longer, shorter, name + "=again"});
        environment.Use();
        return EntriesSeenByQt();
    });

    // Names that only begin alike are somebody else's.
    const std::string seen = "A=first\n" + name + "S=near\n" + name.substr(0, name.size() - 1) +
                             "=near\nQT_QPA_PLATFORM=offscreen\nTMPDIR=/dev/null\n"
                             "FONTCONFIG_FILE=/proc/self/fd/\n";
    EXPECT_EQ(child.text, "begins with\n" + seen + "ends with\n" + seen);
}

INSTANTIATE_TEST_SUITE_P(Names, HiddenVariable,
                         ::testing::Values("QT_QPA_PLATFORM", "QT_QPA_PLATFORMTHEME",
                                           "QT_QPA_GENERIC_PLUGINS", "QT_IM_MODULE",
                                           "QT_STYLE_OVERRIDE", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON",
                                           "QT_FATAL_WARNINGS", "QT_FATAL_CRITICALS",
                                           "XDG_RUNTIME_DIR", "TMPDIR", "FONTCONFIG_FILE"),
                         [](const auto& test) { return std::string(test.param); });

TEST(ConsoleApplication, NeedsNoEnvironmentAtAll)
{
    const ChildResult child = RunInChild([] {
        environ = nullptr;
        const std::string platform = PlatformMade();
        return platform + (environ == nullptr ? " unchanged" : " changed");
    });

    EXPECT_EQ(child.text, "offscreen unchanged");
}

TEST(ConsoleApplication, NeitherSaysNorCreatesAnythingWhateverTheWindowUses)
{
    const TempDir dir;

    const ChildResult child = RunInChild([&dir] {
        Environment environment(WindowVariables(dir.Path()));
        environment.Use();
        ::testing::internal::CaptureStderr();
        ::testing::internal::CaptureStdout();
        const std::string platform = PlatformMade();
        return platform + "|" + ::testing::internal::GetCapturedStdout() + "|" +
               ::testing::internal::GetCapturedStderr();
    });

    EXPECT_EQ(child.text, "offscreen||");
    // What the test itself catches the streams in is gone by now.
    EXPECT_THAT(dir.Tree(), ::testing::IsEmpty());
}

TEST(ConsoleApplication, LeavesStandardStreamsAndOpenFilesAsTheyWereAtItsEnd)
{
    const ChildResult child = RunInChild([] {
        const std::string before = OpenFiles();
        static_cast<void>(PlatformMade());
        const std::string after = OpenFiles();
        return before == after ? "same" : before + "then\n" + after;
    });

    EXPECT_EQ(child.text, "same");
}

TEST(ConsoleApplication, LetsTheProgramWriteToStandardErrorWhileItLives)
{
    const ChildResult child = RunInChild([] {
        CommandLine line({"-unzipedDir", "/tmp/a"});
        int count = line.Count();
        ::testing::internal::CaptureStderr();
        const auto app = MakeConsoleApplication(count, line.Words());
        std::fputs("heard", stderr);
        return ::testing::internal::GetCapturedStderr();
    });

    EXPECT_EQ(child.text, "heard");
}

TEST(ConsoleApplication, KeepsTheCommandLine)
{
    const ChildResult child = RunInChild([] {
        CommandLine line({"-unzipedDir", "/tmp/\xE3\x81\x82"});
        int count = line.Count();
        const auto app = MakeConsoleApplication(count, line.Words());
        return std::to_string(count) + line.Words()[1] + line.Words()[2];
    });

    EXPECT_EQ(child.text, "3-unzipedDir/tmp/\xE3\x81\x82");
}

TEST(ConsoleApplication, LetsQtSpeakAgainAfterwards)
{
    const ChildResult child = RunInChild([] {
        static std::string heard;
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
            heard += text.toStdString();
        });
        setenv("QT_STYLE_OVERRIDE", "kx_none", 1);
        static_cast<void>(PlatformMade());
        qWarning("later");
        return heard;
    });

    EXPECT_EQ(child.text, "later");
}

namespace
{

/// The environment of a program that shall choose its platform itself.
std::vector<std::string> EnvironmentFor(const std::string& platform)
{
    std::vector<std::string> entries = {"QT_QPA_PLATFORM=" + platform,
                                        "ASAN_OPTIONS=detect_leaks=0"};
    // Where an emulator finds the libraries of a program for another processor.
    if (const char* const libraries = std::getenv("QEMU_LD_PREFIX"); libraries != nullptr) {
        entries.push_back(std::string("QEMU_LD_PREFIX=") + libraries);
    }
    return entries;
}

/// A copy of this program beside a qt.conf that gives it a plugin folder of its own.
class ProgramWithPlugins
{
public:
    ProgramWithPlugins()
    {
        // By its name, because an emulator answers for the link only in part.
        fs::copy_file(fs::canonical("/proc/self/exe"), m_dir / "program");
        m_dir.Write("qt.conf", "[Paths]\nPlugins=" + m_dir / "plugins" + "\n");
        m_dir.MakeDir("plugins/platforms");
    }

    /// Adds a platform of Qt's own, under another name of the same length when @p as is given.
    void AddPlatform(const std::string& name, const std::string& as = {})
    {
        const std::string folder =
            QLibraryInfo::location(QLibraryInfo::PluginsPath).toStdString() + "/platforms/libq";
        std::string plugin = ReadFile(folder + name + ".so");
        for (auto at = plugin.find(name); !as.empty() && at != std::string::npos;
             at = plugin.find(name, at)) {
            plugin.replace(at, name.size(), as);
        }
        m_dir.Write("plugins/platforms/libq" + (as.empty() ? name : as) + ".so", plugin);
    }

    /// Starts the program with this platform in its environment.
    /// @return what it wrote, and its raw wait status
    [[nodiscard]] ChildResult Run(const std::string& platform) const
    {
        const std::string program = m_dir / "program";
        ChildResult result;
        const ChildResult starter = RunInChild([&] {
            std::array<int, 2> ends{};
            static_cast<void>(pipe(ends.data()));
            const pid_t child = fork();
            if (child == 0) {
                dup2(ends[1], STDOUT_FILENO);
                dup2(ends[1], STDERR_FILENO);
                Environment environment(EnvironmentFor(platform));
                environment.Use();
                // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg)
                execl(program.c_str(), program.c_str(), kPrintPlatform, nullptr);
                _exit(127);
            }
            close(ends[1]);
            std::string text;
            char byte = 0;
            while (read(ends[0], &byte, 1) == 1) {
                text += byte;
            }
            int status = -1;
            waitpid(child, &status, 0);
            return std::to_string(status) + " " + text;
        });
        const auto blank = starter.text.find(' ');
        result.status = std::stoi(starter.text.substr(0, blank));
        result.text = starter.text.substr(blank + 1);
        return result;
    }

private:
    TempDir m_dir;
};

} // namespace

TEST(ConsoleApplicationFallback, TakesOffscreenWhenItIsThere)
{
    ProgramWithPlugins program;
    program.AddPlatform("offscreen");
    program.AddPlatform("minimal");

    const ChildResult result = program.Run("minimal");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.text, "offscreen");
}

TEST(ConsoleApplicationFallback, TakesMinimalWithoutOffscreen)
{
    ProgramWithPlugins program;
    program.AddPlatform("offscreen", "kx_screen");
    program.AddPlatform("minimal");

    const ChildResult result = program.Run("kx_screen");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.text, "minimal");
}

TEST(ConsoleApplicationFallback, TakesTheGivenPlatformAtLast)
{
    ProgramWithPlugins program;
    program.AddPlatform("offscreen", "kx_screen");

    const ChildResult result = program.Run("kx_screen");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.text, "kx_screen");
}

TEST(ConsoleApplicationFallback, SaysWhyItEndsWithoutAnyPlatform)
{
    const ProgramWithPlugins program;

    const ChildResult result = program.Run("kx_screen");

    EXPECT_TRUE(WIFSIGNALED(result.status));
    EXPECT_THAT(result.text, HasSubstr("no Qt platform plugin could be initialized"));
}

int main(int argc, char** argv)
{
    if (argc > 1 && std::strcmp(argv[1], kPrintPlatform) == 0) {
        const std::string platform = PlatformMade();
        std::fputs(platform.c_str(), stdout);
        return 0;
    }
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
