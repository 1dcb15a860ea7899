// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "kx-package/manifest/Manifests.h"
#include "manifest/Manifest.h"
#include "support/Environment.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

namespace kx::tool
{

// What is wrong with a manifest: each case is one mistake, and the one line that is said about it.

namespace
{

struct Mistake {
    const char* name;
    const char* text;   ///< behind the identity
    const char* answer; ///< behind the manifest's path
};

struct IdentityMistake {
    const char* name;
    const char* from; ///< piece of the identity
    const char* to;   ///< what stands there instead
    const char* answer;
};

std::string AnswerTo(const std::string& text)
{
    const Environment unset("SOURCE_DATE_EPOCH", nullptr);
    const TempDir dir;
    dir.Write("bytes.sh", std::string("#!/bin/sh\n\xff\n"));
    dir.Write("zero.sh", std::string("#!/bin/sh\n\0\n", 12));
    dir.Write("x.sh", "#!/bin/sh\n");
    const std::string path = dir.Write("package.toml", text);
    std::string answer = Thrown([&] { static_cast<void>(ReadManifest(path)); });
    for (std::size_t at = answer.find(dir.Path()); at != std::string::npos;
         at = answer.find(dir.Path())) {
        answer.replace(at, dir.Path().size(), "DIR");
    }
    return answer;
}

} // namespace

class RefusedIdentity : public ::testing::TestWithParam<IdentityMistake>
{
};

TEST_P(RefusedIdentity, IsToldWithPlaceAndRemedy)
{
    std::string text = kIdentity;
    text.replace(text.find(GetParam().from), std::string(GetParam().from).size(), GetParam().to);

    EXPECT_EQ(AnswerTo(text), std::string("1: DIR/package.toml") + GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(
    Manifests, RefusedIdentity,
    ::testing::Values(
        IdentityMistake{"MistypedKey", "title =", "titlee =",
                        ":3:1: 'package.titlee' is not known here; did you mean 'title'?"},
        IdentityMistake{"MissingTitle", "title = \"Demo\"\n", "",
                        ":1:1: 'package.title' is missing; add it; the panel shows it"},
        IdentityMistake{"MissingVersion", "version = \"1.2\"\n", "",
                        ":1:1: 'package.version' is missing; add it; the panel shows it"},
        IdentityMistake{"MissingModel", "model = \"TP\"\n", "",
                        ":1:1: 'package.model' is missing; name the panel's model"},
        IdentityMistake{"MissingOsVersion", "os-version = \"2.0\"\n", "",
                        ":1:1: 'package.os-version' is missing; name the version of the panel's "
                        "system"},
        IdentityMistake{"MissingDate", "date = \"2026/11/21\"\n", "",
                        ":1:1: 'package.date' is missing; add it, like 2026-11-21, or set "
                        "SOURCE_DATE_EPOCH"},
        IdentityMistake{"MissingProcessor", "processor = \"arm\"\n", "",
                        ":1:1: 'package.processor' is missing; name the panel's; there are "
                        "aarch64, arm, i386, riscv64 and x86_64"},
        IdentityMistake{"NumberForAText", "\"1.2\"", "1.2",
                        ":4:11: 'package.version' must be a text, not a number; put it in quotes"},
        IdentityMistake{"ArrayForAText", "\"1.2\"", "[]",
                        ":4:11: 'package.version' must be a text, not an array; write a text"},
        IdentityMistake{"TimeForADate", "\"2026/11/21\"", "07:32:00",
                        ":7:8: 'package.date' must be a text, not a date or time; put it in "
                        "quotes"},
        IdentityMistake{"ZeroCharacter", "Demo", "De\\u0000mo",
                        ":3:9: 'package.title' contains a zero character; the panel would read the "
                        "text up to it; remove it"},
        IdentityMistake{"UnknownProcessor", "\"arm\"", "\"arn\"",
                        ":8:13: 'package.processor' is 'arn', which is not known; did you mean "
                        "'arm'?"},
        IdentityMistake{"EmptyName", "\"demo\"", "\"\"",
                        ":2:8: the package's name '' is empty; choose another 'package.name'"},
        IdentityMistake{"HiddenName", "\"demo\"", "\".demo\"",
                        ":2:8: the package's name '.demo' begins with '.'; choose another "
                        "'package.name'"},
        IdentityMistake{"NameLikeAnOption", "\"demo\"", "\"-demo\"",
                        ":2:8: the package's name '-demo' begins with '-'; choose another "
                        "'package.name'"},
        IdentityMistake{"NameThatIsCut", "\"demo\"", "\"a.temporary\"",
                        ":2:8: the package's name 'a.temporary' contains '.temp', which the panel "
                        "cuts off; choose another 'package.name'"},
        IdentityMistake{"NameWithASlash", "\"demo\"", "\"a/b\"",
                        ":2:8: the package's name 'a/b' contains characters other than letters, "
                        "digits, '-', '_' and '.'; choose another 'package.name'"},
        IdentityMistake{"NoPackage", "[package]", "[parcel]",
                        ":1:2: 'parcel' is not known here; there are package and steps"},
        IdentityMistake{"PackageIsNoTable", "[package]\n", "package = 1\n[steps]\n",
                        ":1:11: 'package' must be a table, not a number; write a table"},
        IdentityMistake{
            "NoToml", "title =", "title",
            ":3:7: is not valid TOML: Error while parsing key-value pair: expected '=', saw "
            "'\"'"}),
    [](const auto& mistake) { return std::string(mistake.param.name); });

class RefusedStep : public ::testing::TestWithParam<Mistake>
{
};

TEST_P(RefusedStep, IsToldWithPlaceAndRemedy)
{
    EXPECT_EQ(AnswerTo(std::string(kIdentity) + GetParam().text),
              std::string("1: DIR/package.toml") + GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(
    Manifests, RefusedStep,
    ::testing::Values(
        Mistake{"StepsAreNoArray", "[steps]\n",
                ":10:1: 'steps' must be an array of tables, not a table; write an array of "
                "tables"},
        Mistake{"StepsHoldNumbers", "[[steps]]\nkind = \"script\"\ninstall = \"\"\n[[steps]]\n",
                ":13:1: 'steps[1].kind' is missing; add it; there are copy-files, copy-folder, "
                "script, settings and verbatim"},
        Mistake{"UnknownKind", "[[steps]]\nkind = \"copy-file\"\n",
                ":11:8: 'steps[0].kind' is 'copy-file', which is not a known kind; did you mean "
                "'copy-files'?"},
        Mistake{"KeyOfAnotherKind", "[[steps]]\nkind = \"script\"\nrecord = true\n",
                ":12:1: 'steps[0].record' is not known here; there are kind, comment, skip, "
                "install, install-file, uninstall and uninstall-file"},
        Mistake{"TextForAFlag", "[[steps]]\nkind = \"script\"\nskip = \"true\"\n",
                ":12:8: 'steps[0].skip' must be true or false, not a text; write true or false"},
        Mistake{"FastScripts", "[[steps]]\nkind = \"script\"\nfast = true\n",
                ":12:1: 'steps[0].fast' is not known here; there are kind, comment, skip, "
                "install, install-file, uninstall and uninstall-file"},
        Mistake{"FastFiles", "[[steps]]\nkind = \"copy-files\"\nfast = true\n",
                ":12:1: 'steps[0].fast' is not known here; there are kind, comment, skip, record "
                "and files"},
        Mistake{"TextForFast", "[[steps]]\nkind = \"copy-folder\"\nfast = \"yes\"\n",
                ":12:8: 'steps[0].fast' must be true or false, not a text; write true or false"},
        Mistake{"ArchiveOfAPlainFolder",
                "[[steps]]\nkind = \"copy-folder\"\n[[steps.folders]]\nsource = \"a\"\n"
                "target = \"/t\"\narchive = \"/a.tar\"\n",
                ":15:1: 'steps[0].folders[0].archive' is not known here; there are source, target, "
                "exclude, executable, modes, names and origin"},
        Mistake{"RelativeArchive",
                "[[steps]]\nkind = \"copy-folder\"\nfast = true\n[[steps.folders]]\n"
                "source = \"a\"\ntarget = \"/t\"\narchive = \"a.tar\"\n",
                ":16:11: 'steps[0].folders[0].archive' does not begin with '/'; write the full "
                "path on the panel"},
        Mistake{"ArchiveForAShell",
                "[[steps]]\nkind = \"copy-folder\"\nfast = true\n[[steps.folders]]\n"
                "source = \"a\"\ntarget = \"/t\"\narchive = \"/$x.tar\"\n",
                ":16:11: 'steps[0].folders[0].archive' contains $, which the panel's shell "
                "interprets; use another name"},
        Mistake{"ArchiveIsAFolder",
                "[[steps]]\nkind = \"copy-folder\"\nfast = true\n[[steps.folders]]\n"
                "source = \"a\"\ntarget = \"/t\"\narchive = \"/tmp/\"\n",
                ":16:11: 'steps[0].folders[0].archive' names a folder; write the path of a file "
                "that is there for a moment, like \"/tmp/files.tar\""},
        Mistake{"ArchiveIsTheTarget",
                "[[steps]]\nkind = \"copy-folder\"\nfast = true\n[[steps.folders]]\n"
                "source = \"a\"\ntarget = \"/t/\"\narchive = \"/t\"\n",
                ":16:11: 'steps[0].folders[0].archive' names a folder; write the path of a file "
                "that is there for a moment, like \"/tmp/files.tar\""},
        Mistake{"NoFiles", "[[steps]]\nkind = \"copy-files\"\n",
                ":10:1: 'steps[0]' has no 'files'; add [[steps.files]] below it"},
        Mistake{"NoFolders", "[[steps]]\nkind = \"copy-folder\"\n",
                ":10:1: 'steps[0]' has no 'folders'; add [[steps.folders]] below it"},
        Mistake{"NoSettings", "[[steps]]\nkind = \"settings\"\nsettings = []\n",
                ":10:1: 'steps[0]' has no 'settings'; add [[steps.settings]] below it"},
        Mistake{"FilesHoldATextOnly", "[[steps]]\nkind = \"copy-files\"\nfiles = [\"a\"]\n",
                ":12:10: 'steps[0].files' must be an array of tables, not a text; write an array "
                "of tables"},
        Mistake{"NoSource", "[[steps]]\nkind = \"copy-files\"\nfiles = [{ target = \"/a\" }]\n",
                ":12:10: 'steps[0].files[0].source' is missing; name a file, or files by a "
                "pattern like \"bin/*\""},
        Mistake{"EmptySource",
                "[[steps]]\nkind = \"copy-folder\"\nfolders = [{ source = \"\", target = \"/a\" "
                "}]\n",
                ":12:23: 'steps[0].folders[0].source' is empty; name the folder"},
        Mistake{"NoTarget", "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"a\" }]\n",
                ":12:10: 'steps[0].files[0].target' is missing; write the full path on the panel"},
        Mistake{"RelativeTarget",
                "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"a\", target = \"b\" }]\n",
                ":12:35: 'steps[0].files[0].target' does not begin with '/'; write the full path "
                "on the panel"},
        Mistake{
            "TargetForTheShell",
            "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"a\", target = "
            "\"/$HOME/b\" }]\n",
            ":12:35: 'steps[0].files[0].target' contains $, which the panel's shell interprets; "
            "use another name"},
        Mistake{
            "ModeOfLetters",
            "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"a\", target = \"/b\", "
            "mode = \"rwx\" }]\n",
            ":12:48: 'steps[0].files[0].mode' is 'rwx', which is not a mode; write three or four "
            "octal digits, like \"755\""},
        Mistake{
            "ModeTooLong",
            "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"a\", target = \"/b\", "
            "mode = \"00755\" }]\n",
            ":12:48: 'steps[0].files[0].mode' is '00755', which is not a mode; write three or four "
            "octal digits, like \"755\""},
        Mistake{
            "ModeTooShort",
            "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"a\", target = \"/b\", "
            "mode = \"55\" }]\n",
            ":12:48: 'steps[0].files[0].mode' is '55', which is not a mode; write three or four "
            "octal digits, like \"755\""},
        Mistake{"ModeAsANumber",
                "[[steps]]\nkind = \"copy-files\"\nfiles = [{ source = \"a\", target = \"/b\", "
                "mode = 0o755 }]\n",
                ":12:48: 'steps[0].files[0].mode' must be a text, not a number; put it in "
                "quotes"},
        Mistake{"PatternsAreNoArray",
                "[[steps]]\nkind = \"copy-folder\"\nfolders = [{ source = \"a\", target = \"/b\", "
                "exclude = \"x\" }]\n",
                ":12:53: 'steps[0].folders[0].exclude' must be an array of texts, not a text; "
                "write an array of texts"},
        Mistake{"NoScript", "[[steps]]\nkind = \"script\"\n",
                ":10:1: 'steps[0]' has no script; give its text as 'install', or its file as "
                "'install-file'"},
        Mistake{
            "TwoScripts", "[[steps]]\nkind = \"script\"\ninstall = \"\"\ninstall-file = \"x.sh\"\n",
            ":13:16: 'steps[0].install-file' is given together with 'install'; keep one of them"},
        Mistake{"ScriptOfBytes", "[[steps]]\nkind = \"script\"\ninstall-file = \"bytes.sh\"\n",
                ":12:16: 'steps[0].install-file' names 'bytes.sh', which is not UTF-8 text; save "
                "the script as UTF-8"},
        Mistake{"ScriptWithAZeroByte",
                "[[steps]]\nkind = \"script\"\nuninstall-file = \"zero.sh\"\ninstall = \"\"\n",
                ":12:18: 'steps[0].uninstall-file' names 'zero.sh', which is not UTF-8 text; save "
                "the script as UTF-8"},
        Mistake{"UnknownSettingKind",
                "[[steps]]\nkind = \"settings\"\n[[steps.settings]]\nkind = \"back-light\"\n",
                ":13:8: 'steps[0].settings[0].kind' is 'back-light', which is not a known kind; "
                "did you "
                "mean 'backlight'?"},
        Mistake{"ScriptInAnotherSetting",
                "[[steps]]\nkind = \"settings\"\n[[steps.settings]]\nkind = \"sound\"\nscript = "
                "\"x\"\n",
                ":14:1: 'steps[0].settings[0].script' is not known here; there are kind, used and "
                "values"},
        Mistake{"NumberAsAValue",
                "[[steps]]\nkind = \"settings\"\n[[steps.settings]]\nkind = \"sound\"\nvalues = { "
                "Volume = 5 }\n",
                ":14:21: 'steps[0].settings[0].values.Volume' must be a text, not a number; put "
                "it in quotes"},
        Mistake{
            "TwoStartScripts",
            "[[steps]]\nkind = \"settings\"\n[[steps.settings]]\nkind = \"auto-start\"\n"
            "values = { CustomScript = \"x\" }\nscript = \"y\"\n",
            ":14:10: 'steps[0].settings[0].values' contains CustomScript besides the script; keep "
            "one of them"}),
    [](const auto& mistake) { return std::string(mistake.param.name); });

TEST(RefusedManifest, TellsAScriptThatCannotBeReadWithItsPlace)
{
    EXPECT_EQ(AnswerTo(std::string(kIdentity) +
                       "[[steps]]\nkind = \"script\"\ninstall-file = \"none.sh\"\n"),
              "1: DIR/package.toml:12:16: DIR/none.sh: cannot open: No such file or directory");
}

TEST(RefusedManifest, IsBoundedInDepth)
{
    const std::string answer = AnswerTo("x = " + std::string(100000, '['));

    EXPECT_EQ(answer.substr(0, 20), "1: DIR/package.toml:");
    EXPECT_NE(answer.find("is not valid TOML"), std::string::npos);
}

TEST(RefusedManifest, IsLargerThanSixteenMebibytesOrNamesSuchAScript)
{
    constexpr std::uintmax_t kTooMuch = (std::uintmax_t{16} << 20) + 1;
    const TempDir dir;
    const std::string script = dir.Write("x.sh", "x");
    const std::string path =
        dir.Write("package.toml", std::string(kIdentity) +
                                      "[[steps]]\nkind = \"script\"\ninstall-file = \"x.sh\"\n");
    const auto answer = [&path] {
        return Thrown([&path] { static_cast<void>(ReadManifest(path)); });
    };

    std::filesystem::resize_file(script, kTooMuch);
    EXPECT_EQ(answer(), "3: " + path + ":12:16: " + script + ": is larger than 16.0 MiB");
    std::filesystem::resize_file(path, kTooMuch);
    EXPECT_EQ(answer(), "3: " + path + ": is larger than 16.0 MiB");
}

TEST(RefusedManifest, NeedsAPackage)
{
    EXPECT_EQ(AnswerTo(""), "1: DIR/package.toml: there is no [package]; begin with [package] and "
                            "its title");
}

} // namespace kx::tool
