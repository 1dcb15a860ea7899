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

using testing::ElementsAre;
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
