// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/PanelFile.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kx::format
{

namespace
{

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// What reading a file of that text says, with DIR for its folder.
std::string AnswerTo(const std::string& text)
{
    const TempDir dir;
    const std::string path = dir.Write("panel.toml", text);
    std::string answer = Thrown([&] { static_cast<void>(ReadPanelFile(path)); });
    if (const std::size_t at = answer.find(dir.Path()); at != std::string::npos) {
        answer.replace(at, dir.Path().size(), "DIR");
    }
    return answer;
}

/// What reading a panel's own file of that text says.
std::string OwnAnswerTo(const std::string& text)
{
    std::string lines;
    try {
        static_cast<void>(ParseOwnPanelFile(text, "panel.toml"));
    } catch (const io::Errors& errors) {
        for (const io::Error& error : errors.All()) {
            lines += error.Line() + "\n";
        }
    }
    return lines;
}

std::vector<std::uint64_t> LimitsOf(const PanelModel& model)
{
    std::vector<std::uint64_t> limits;
    for (const PanelLimit& limit : PanelLimitKeys()) {
        limits.push_back(model.rules.limits.*limit.value);
    }
    return limits;
}

constexpr const char* kIdentity =
    "models = [\"TP-0700\"]\nos-versions = [\"2.1.0\"]\nprocessor = \"arm\"\n";

} // namespace

TEST(PanelFile, SaysNothingWhereNothingStands)
{
    const TempDir dir;
    const std::string path = dir.Write("panel.toml", "");

    const PanelModel model = ReadPanelFile(path);

    EXPECT_EQ(model.file, path);
    EXPECT_FALSE(model.models.has_value() || model.osVersions.has_value() ||
                 model.libraries.has_value() || model.interpreters.has_value() ||
                 model.users.has_value() || model.settings.has_value());
    EXPECT_EQ(model.processor, nullptr);
    EXPECT_EQ(model.floatAbi, FloatAbi::kUnknown);
    EXPECT_EQ(model.cLibrary + model.root + model.shell, "");
    EXPECT_THAT(model.protectedPlaces, IsEmpty());
    EXPECT_THAT(model.places, IsEmpty());
    EXPECT_EQ(model.rules.signatures, SignatureRule::kRequired);
    EXPECT_EQ(model.rules.downgrade, DowngradeRule::kRefuse);
    EXPECT_EQ(model.rules.state, "/var/lib/kx-panel");
    EXPECT_EQ(model.rules.updater, "/usr/bin/kx_Updater");
    EXPECT_THAT(LimitsOf(model), ElementsAre(1073741824U, 2147483648U, 20000U, 1048576U, 67108864U,
                                             300U, 50U, 4194304U));
}

TEST(PanelFile, TellsAllThatStandsInIt)
{
    const TempDir dir;
    const std::string root = dir.MakeDir("copy");
    const PanelModel model = ReadPanelFile(dir.Write("panel.toml", R"(
format = 1
models = ["TP-0700", "TP-1000"]
os-versions = []
processor = "armv7l"
float-abi = "soft"
c-library = "2.31"
root = "copy"
libraries = ["libc.so.6"]
interpreters = ["/bin/sh", "//usr/./bin/python3"]
shell = "dash"
users = ["root"]
protected = ["/boot/"]
[[places]]
path = "/mnt/user/"
size-mib = 64
[settings]
Level = { range = [-1, 15] }
Cursor = { values = ["on", "off", "blink"] }
Address = {}
)"));

    EXPECT_THAT(model.models.value(), ElementsAre("TP-0700", "TP-1000"));
    EXPECT_THAT(model.osVersions.value(), IsEmpty());
    EXPECT_EQ(model.processor, FindProcessor("arm"));
    EXPECT_EQ(model.floatAbi, FloatAbi::kSoft);
    EXPECT_EQ(model.cLibrary, "2.31");
    EXPECT_EQ(model.root, root);
    EXPECT_THAT(model.libraries.value(), ElementsAre("libc.so.6"));
    EXPECT_THAT(model.interpreters.value(), ElementsAre("/bin/sh", "/usr/bin/python3"));
    EXPECT_EQ(model.shell, "dash");
    EXPECT_THAT(model.users.value(), ElementsAre("root"));
    EXPECT_THAT(model.protectedPlaces, ElementsAre("/boot"));
    ASSERT_EQ(model.places.size(), 1U);
    EXPECT_EQ(model.places[0].path, "/mnt/user");
    EXPECT_EQ(model.places[0].bytes, std::uint64_t{64} << 20U);
    ASSERT_EQ(model.settings->size(), 3U);
    EXPECT_EQ((*model.settings)[0].name, "Level");
    EXPECT_EQ((*model.settings)[0].Taken(), "a number from -1 to 15");
    EXPECT_EQ((*model.settings)[1].Taken(), "'on', 'off' or 'blink'");
    EXPECT_EQ((*model.settings)[2].Taken(), "");
}

TEST(PanelFile, TellsWhatAPanelLetsIn)
{
    const PanelModel model = ParseOwnPanelFile(std::string(kIdentity) + R"(
root = "a copy that only its author has"
signatures = "optional"
downgrade = "allow"
state = "/mnt/user/kx-panel_2.state"
updater = "/opt/kx/kx_Updater"
[limits]
package-bytes = 1
unpacked-bytes = 1099511627776
entries = 3
description-bytes = 4096
reader-memory-bytes = 33554432
reader-seconds = 60
history-entries = 10000
history-bytes = 65536
)",
                                               "panel.toml");

    EXPECT_THAT(model.models.value(), ElementsAre("TP-0700"));
    EXPECT_EQ(model.root, "");
    EXPECT_EQ(model.rules.signatures, SignatureRule::kOptional);
    EXPECT_EQ(model.rules.downgrade, DowngradeRule::kAllow);
    EXPECT_EQ(model.rules.state, "/mnt/user/kx-panel_2.state");
    EXPECT_EQ(model.rules.updater, "/opt/kx/kx_Updater");
    EXPECT_THAT(LimitsOf(model),
                ElementsAre(1U, 1099511627776U, 3U, 4096U, 33554432U, 60U, 10000U, 65536U));
}

TEST(PanelFile, OfAPanelSaysWhatThePanelIs)
{
    EXPECT_EQ(OwnAnswerTo(kIdentity), "");
    EXPECT_EQ(OwnAnswerTo("format = 1\nmodels = []\nos-versions = 1\n"),
              "panel.toml:3:15: 'os-versions' must be an array of texts, not a number; write an "
              "array of texts\n"
              "panel.toml:2:10: 'models' is empty; write this panel's model, like models = "
              "[\"TP-0700\"]\n"
              "panel.toml: 'processor' is missing; write this panel's processor, like processor = "
              "\"arm\"\n");
    EXPECT_EQ(OwnAnswerTo(""),
              "panel.toml: 'models' is missing; write this panel's model, like models = "
              "[\"TP-0700\"]\n"
              "panel.toml: 'os-versions' is missing; write the version of its system, like "
              "os-versions = [\"2.1.0\"]\n"
              "panel.toml: 'processor' is missing; write this panel's processor, like processor = "
              "\"arm\"\n");
}

TEST(PanelFile, TellsAllThatIsWrongInIt)
{
    EXPECT_EQ(OwnAnswerTo(std::string(kIdentity) +
                          "shell = \"zsh\"\nroot = 1\nsignature = \"no\"\n"
                          "state = \"/\"\n[limits]\nentries = 0\nentrys = 1"),
              "panel.toml:6:1: 'signature' is not known here; did you mean 'signatures'?\n"
              "panel.toml:4:9: 'shell' is 'zsh', which is not known; did you mean 'bash'?\n"
              "panel.toml:7:9: 'state' is '/', which is not a plain full path; write it like "
              "\"/var/lib/kx-panel\"\n"
              "panel.toml:9:11: 'limits.entries' is 0; write a number from 1 to 1000000\n"
              "panel.toml:10:1: 'limits.entrys' is not known here; did you mean 'entries'?\n"
              "panel.toml:5:8: 'root' must be a text, not a number; put it in quotes\n");
}

TEST(PanelFile, TakesThePanelsPathsOnlyWhereTheyAreSafe)
{
    const std::string longest = "/" + std::string(kLongestPanelPath - 1, 'x');
    for (const std::string path : {"/var/lib/kx-panel", "/a", "/-", "/a/...", "/tmpfs/x",
                                   "/mnt/usb2", "/var/run2", "/etc/kx", longest.c_str()}) {
        EXPECT_EQ(OwnAnswerTo(kIdentity + ("state = \"" + path + "\"")), "") << path;
        EXPECT_EQ(OwnAnswerTo(kIdentity + ("updater = \"" + path + "/u\"")),
                  path == longest
                      ? "panel.toml:4:11: 'updater' has 202 characters; use no more than "
                        "200\n"
                  : path == "/var/lib/kx-panel"
                      ? "panel.toml:4:11: 'updater' puts /var/lib/kx-panel/u and "
                        "/var/lib/kx-panel into each other; give the state a "
                        "folder of its own\n"
                      : "")
            << path;
    }
    for (const std::string path :
         {"",         "/",          "var",     "/a/",      "//a",  "/a//b",      "/a/.",
          "/./a",     "/a/../b",    "/..",     "/a b",     "/a$b", "/a`b",       "/a'b",
          "/a\\\"b",  "/a\\nb",     "/a;b",    "/ä",       "/a*",  "/a~",        "/tmp",
          "/tmp/a",   "/proc/1",    "/sys",    "/dev/shm", "/run", "/var/run/a", "/var/tmp",
          "/mnt/usb", "/mnt/usb/a", "/media/a"}) {
        EXPECT_NE(OwnAnswerTo(kIdentity + ("state = \"" + path + "\"")), "") << path;
        EXPECT_NE(OwnAnswerTo(kIdentity + ("updater = \"" + path + "\"")), "") << path;
    }
}

TEST(PanelFile, IsRefusedWhenItSaysAThingTwice)
{
    for (const std::string text :
         {"state = \"/a\"\nstate = \"/a\"", "[limits]\nentries = 5\nentries = 5",
          "[limits]\nentries = 5\n[limits]\nhistory-entries = 5",
          "limits.entries = 5\nlimits = { entries = 5 }", "[settings]\n[settings]",
          "[settings]\nA = {}\nA = {}", "[settings]\nA = {}\n[settings.A]",
          R"(models = ["a", "b", "a"])", R"(os-versions = ["1", "1"])",
          R"(users = ["root", "root"])", R"(libraries = ["l", "l"])",
          R"(interpreters = ["/a", "/a"])", R"(protected = ["/a", "/a"])",
          "[settings]\nA = { values = [\"on\", \"on\"] }",
          "[[places]]\npath = \"/a\"\nsize-mib = 1\n[[places]]\npath = \"/a/\"\nsize-mib = 2"}) {
        EXPECT_THAT(AnswerTo(text), AnyOf(HasSubstr("' twice; remove one of them"),
                                          HasSubstr("another place"), HasSubstr("redefin")))
            << text;
    }
}

TEST(PanelFile, TakesTheFloatAbiFromTheWordForTheProcessor)
{
    const TempDir dir;
    for (const auto& [word, abi] :
         {std::pair("armhf", FloatAbi::kHard), std::pair("armel", FloatAbi::kSoft),
          std::pair("arm", FloatAbi::kUnknown)}) {
        const PanelModel model =
            ReadPanelFile(dir.Write("panel.toml", std::string("processor = \"") + word + "\"\n"));
        EXPECT_EQ(model.floatAbi, abi) << word;
        EXPECT_EQ(model.processor, FindProcessor("arm")) << word;
    }
}

TEST(PanelSetting, TakesItsValuesOrItsRangeOrAll)
{
    const PanelSetting words = {"Cursor", {"on", "off"}, {}};
    EXPECT_TRUE(words.Takes("off"));
    EXPECT_FALSE(words.Takes("Off") || words.Takes("") || words.Takes("on "));

    const PanelSetting numbers = {"Level", {}, PanelSetting::Range{0, 15}};
    EXPECT_TRUE(numbers.Takes("0") && numbers.Takes("15") && numbers.Takes("007"));
    EXPECT_FALSE(numbers.Takes("16") || numbers.Takes("-1") || numbers.Takes("7x") ||
                 numbers.Takes("") || numbers.Takes(" 7") || numbers.Takes("+7") ||
                 numbers.Takes("99999999999999999999"));

    EXPECT_TRUE(PanelSetting({"Address", {}, {}}).Takes("anything"));
}

struct PanelMistake {
    const char* name;
    const char* text;
    const char* answer; ///< behind the file's path
};

class RefusedPanel : public testing::TestWithParam<PanelMistake>
{
};

TEST_P(RefusedPanel, IsToldWithPlaceAndRemedy)
{
    EXPECT_EQ(AnswerTo(GetParam().text), std::string("1: DIR/panel.toml:") + GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(
    PanelFile, RefusedPanel,
    testing::Values(
        PanelMistake{"ModelTwice", "models = [\"a\", \"b\", \"a\"]",
                     "1:10: 'models' contains 'a' twice; remove one of them"},
        PanelMistake{"NoModel", "models = [\"\"]",
                     "1:10: 'models' contains an empty text; remove it"},
        PanelMistake{"VersionTwice", "os-versions = [\"1\", \"1\"]",
                     "1:15: 'os-versions' contains '1' twice; remove one of them"},
        PanelMistake{"PlaceTwice",
                     "[[places]]\npath = \"/a\"\nsize-mib = 1\n[[places]]\npath = \"/a/\"\n"
                     "size-mib = 2",
                     "5:8: 'places[1].path' is '/a', as that of another place; remove one of them"},
        PanelMistake{"KeyTwice", "downgrade = \"allow\"\ndowngrade = \"refuse\"",
                     "2:13: is not valid TOML: Error while parsing key-value pair: cannot redefine "
                     "existing string 'downgrade'"},
        PanelMistake{"Signatures", "signatures = \"require\"",
                     "1:14: 'signatures' is 'require', which is not known; did you mean "
                     "'required'?"},
        PanelMistake{"SignaturesFlag", "signatures = false",
                     "1:14: 'signatures' must be a text, not a flag; put it in quotes"},
        PanelMistake{"Downgrade", "downgrade = \"\"",
                     "1:13: 'downgrade' is '', which is not known; there are refuse and allow"},
        PanelMistake{"State", "state = \"/var//lib\"",
                     "1:9: 'state' is '/var//lib', which is not a plain full path; write it like "
                     "\"/var/lib/kx-panel\""},
        PanelMistake{"UnsafeUpdater", "updater = \"/usr/$HOME\"",
                     "1:11: 'updater' is '/usr/$HOME', which has characters that are not safe in a "
                     "shell's command; use letters, digits, '.', '_' and '-'"},
        PanelMistake{"StateOnDrive", "state = \"/mnt/usb/state\"",
                     "1:9: 'state' is '/mnt/usb/state', and what is in /mnt/usb does not stay; use "
                     "a folder of the panel's own storage"},
        PanelMistake{"StateOfRecords", "state = \"/var/lib\"",
                     "1:9: 'state' puts /var/lib/KxUserPackages and /var/lib into each other; give "
                     "the state a folder of its own"},
        PanelMistake{"StateOfKeys", "state = \"/etc/kx_Updater/state\"",
                     "1:9: 'state' puts /etc/kx_Updater and /etc/kx_Updater/state into each other; "
                     "give the state a folder of its own"},
        PanelMistake{"UpdaterInState", "updater = \"/var/lib/kx-panel/kx_Updater\"",
                     "1:11: 'updater' puts /var/lib/kx-panel/kx_Updater and /var/lib/kx-panel into "
                     "each other; give the state a folder of its own"},
        PanelMistake{"Limit", "[limits]\nreader-memory-bytes = 1000",
                     "2:23: 'limits.reader-memory-bytes' is 1000; write a number from 16777216 to "
                     "4294967296"},
        PanelMistake{"LimitText", "[limits]\nentries = \"5\"",
                     "2:11: 'limits.entries' must be a whole number, not a text; write a whole "
                     "number"},
        PanelMistake{"Limits", "limits = 5",
                     "1:10: 'limits' must be a table, not a number; write a table"},
        PanelMistake{"Key", "interpreter = []",
                     "1:1: 'interpreter' is not known here; did you mean 'interpreters'?"},
        PanelMistake{"Format", "format = 2",
                     "1:10: 'format' is 2, and this program knows 1 only; use a newer program"},
        PanelMistake{"NewFormatFirst", "format = 2\nnovelty = 1",
                     "1:10: 'format' is 2, and this program knows 1 only; use a newer program"},
        PanelMistake{"FormatText", "format = \"1\"",
                     "1:10: 'format' must be a whole number, not a text; write a whole number"},
        PanelMistake{"FormatZero", "format = 0",
                     "1:10: 'format' is 0; write a number from 1 to 2147483647"},
        PanelMistake{"Processor", "processor = \"arn\"",
                     "1:13: 'processor' is 'arn', which is not known; did you mean 'arm'?"},
        PanelMistake{"Abi", "processor = \"arm\"\nfloat-abi = \"hards\"",
                     "2:13: 'float-abi' is 'hards', which is not known; did you mean 'hard'?"},
        PanelMistake{"AbiOfOther", "processor = \"i386\"\nfloat-abi = \"hard\"",
                     "2:13: 'float-abi' is for panels with the processor arm; remove it, or write "
                     "processor = \"arm\""},
        PanelMistake{"CLibrary", "c-library = \"glibc 2\"",
                     "1:13: 'c-library' is 'glibc 2', which is not a version; write it like "
                     "\"2.31\""},
        PanelMistake{"Root", "root = \"none\"",
                     "1:8: 'root' is 'none', which is not a folder; name the folder with the copy "
                     "of the panel's files"},
        PanelMistake{"Interpreter", "interpreters = [\"sh\"]",
                     "1:16: 'interpreters' contains 'sh', which is not a full path; begin it with "
                     "'/'"},
        PanelMistake{"Shell", "shell = \"zsh\"",
                     "1:9: 'shell' is 'zsh', which is not known; did you mean 'bash'?"},
        PanelMistake{"Place", "[[places]]\npath = \"/mnt\"",
                     "1:1: 'places[0].size-mib' is missing; write how many MiB packages may fill "
                     "there"},
        PanelMistake{"Size", "[[places]]\npath = \"/mnt\"\nsize-mib = -1",
                     "3:12: 'places[0].size-mib' is -1; write a number from 0 to 1099511627776"},
        PanelMistake{"Range", "[settings]\nLevel = { range = [5, 1] }",
                     "2:19: 'settings.Level.range' is not the least and the most number; write it "
                     "like [0, 15]"},
        PanelMistake{"RangeOfTexts", "[settings]\nLevel = { range = [\"1\", 5] }",
                     "2:20: 'settings.Level.range' must be an array of whole numbers, not a text; "
                     "write an array of whole numbers"},
        PanelMistake{"Both", "[settings]\nLevel = { range = [0, 1], values = [] }",
                     "2:19: 'settings.Level.range' is given together with 'values'; keep one of "
                     "them"},
        PanelMistake{"SettingKey", "[settings]\nLevel = { rang = [0, 1] }",
                     "2:11: 'settings.Level.rang' is not known here; did you mean 'range'?"},
        PanelMistake{"SettingText", "[settings]\nLevel = \"8\"",
                     "2:9: 'settings.Level' must be a table, not a text; write a table"}),
    [](const testing::TestParamInfo<PanelMistake>& one) { return one.param.name; });

TEST(PanelFile, ThatCannotBeReadIsTold)
{
    const TempDir dir;

    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadPanelFile(dir / "none.toml")); }),
              "1: " + dir.Path() + "/none.toml: cannot open: No such file or directory");
    EXPECT_EQ(AnswerTo("models = ["),
              "1: DIR/panel.toml:1:11: is not valid TOML: Error while parsing array: encountered "
              "end-of-file");
}

} // namespace kx::format
