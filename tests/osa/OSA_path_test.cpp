// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "osa/OSA.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace
{

/// What each path function makes of one path.
struct PathRow {
    const char* name;
    const char* path;
    const char* filenameExt;
    const char* ext;
    const char* trimExt;
    const char* filename;
    const char* trimDirMark;
    const char* addDirMark;
};

constexpr PathRow kPaths[] = {
    {"Empty", "", "", "", "", "", "", ""},
    {"BareName", "name", "name", "", "name", "name", "name", "name/"},
    {"OneCharacter", "a", "a", "", "a", "a", "a", "a/"},
    {"NameWithExtension", "a.b", "a.b", ".b", "a", "a", "a.b", "a.b/"},
    {"TwoExtensions", "a.tar.gz", "a.tar.gz", ".gz", "a.tar", "a.tar", "a.tar.gz", "a.tar.gz/"},
    {"PackageFile", "/a/b/pkg.kx-update", "pkg.kx-update", ".kx-update", "/a/b/pkg", "pkg",
     "/a/b/pkg.kx-update", "/a/b/pkg.kx-update/"},
    {"DotFirst", ".profile", ".profile", "", ".profile", ".profile", ".profile", ".profile/"},
    {"DotFirstAndExtension", ".a.b", ".a.b", ".b", ".a", ".a", ".a.b", ".a.b/"},
    {"DotInFolder", "dir.d/file", "file", "", "dir.d/file", "file", "dir.d/file", "dir.d/file/"},
    {"DotBehindRoot", "/x.y", "x.y", ".y", "/x", "x", "/x.y", "/x.y/"},
    // The hidden name's dot is not the path's first character, but it is the name's.
    {"HiddenInFolder", "dir/.hidden", ".hidden", ".hidden", "dir/", ".hidden", "dir/.hidden",
     "dir/.hidden/"},
    {"HiddenInRoot", "/.hidden", ".hidden", ".hidden", "/", ".hidden", "/.hidden", "/.hidden/"},
    {"DotLast", "a.", "a.", ".", "a", "a", "a.", "a./"},
    {"OnlyDot", ".", ".", "", ".", ".", ".", "./"},
    {"OnlyDots", "..", "..", ".", ".", ".", "..", "../"},
    {"DotsInFolder", "x/..", "..", ".", "x/.", ".", "x/..", "x/../"},
    {"TrailingSlash", "dir/", "", "", "dir/", "", "dir", "dir/"},
    {"ExtensionBeforeTrailingSlash", "dir.d/", "", "", "dir.d/", "", "dir.d", "dir.d/"},
    {"TwoTrailingSlashes", "a//", "", "", "a//", "", "a/", "a//"},
    {"Root", "/", "", "", "/", "", "", "/"},
    {"TrailingBackslash", "dir\\", "", "", "dir\\", "", "dir", "dir\\"},
    {"SlashThenBackslash", "a/\\", "", "", "a/\\", "", "a/", "a/\\"},
    {"OnlyBackslash", "\\", "", "", "\\", "", "", "\\"},
    // A colon ends a folder part, but it is no mark that is removed or stands for one.
    {"TrailingColon", "C:", "", "", "C:", "", "C:", "C:/"},
    {"DriveAndName", "C:name.txt", "name.txt", ".txt", "C:name", "name", "C:name.txt",
     "C:name.txt/"},
    {"DesktopPath", "C:\\work\\app.bin", "app.bin", ".bin", "C:\\work\\app", "app",
     "C:\\work\\app.bin", "C:\\work\\app.bin/"},
    {"BackslashBehindDot", "a.b\\c", "c", "", "a.b\\c", "c", "a.b\\c", "a.b\\c/"},
    {"ColonBehindDot", "a.b:c", "c", "", "a.b:c", "c", "a.b:c", "a.b:c/"},
    {"AllSeparators", "a/b\\c:d.e", "d.e", ".e", "a/b\\c:d", "d", "a/b\\c:d.e", "a/b\\c:d.e/"},
    {"Blanks", " a b . c ", " a b . c ", ". c ", " a b ", " a b ", " a b . c ", " a b . c /"},
    {"Percent", "/%s/%d.%n", "%d.%n", ".%n", "/%s/%d", "%d", "/%s/%d.%n", "/%s/%d.%n/"},
    {"Utf8", "/\xE3\x81\x82/\xE3\x81\x84.\xE3\x81\x86", "\xE3\x81\x84.\xE3\x81\x86",
     ".\xE3\x81\x86", "/\xE3\x81\x82/\xE3\x81\x84", "\xE3\x81\x84",
     "/\xE3\x81\x82/\xE3\x81\x84.\xE3\x81\x86", "/\xE3\x81\x82/\xE3\x81\x84.\xE3\x81\x86/"},
    {"NotUtf8", "\xFF/\xFE.\x80", "\xFE.\x80", ".\x80", "\xFF/\xFE", "\xFE", "\xFF/\xFE.\x80",
     "\xFF/\xFE.\x80/"},
    // The second byte of this two-byte character is a backslash, which counts as a separator.
    {"ShiftJis", "\x83\x5C.txt", ".txt", ".txt", "\x83\\", ".txt", "\x83\\.txt", "\x83\\.txt/"},
};

class OsaPath : public ::testing::TestWithParam<PathRow>
{
};

} // namespace

TEST_P(OsaPath, FindsTheFileNameWithItsExtension)
{
    EXPECT_STREQ(OSA_GetFilenameExt(GetParam().path), GetParam().filenameExt);
}

TEST_P(OsaPath, FindsTheExtension)
{
    EXPECT_STREQ(OSA_GetExt(GetParam().path), GetParam().ext);
}

TEST_P(OsaPath, CutsTheExtension)
{
    EXPECT_EQ(OSA_TrimExt(GetParam().path), GetParam().trimExt);
}

TEST_P(OsaPath, FindsTheFileNameWithoutItsExtension)
{
    EXPECT_EQ(OSA_GetFilename(GetParam().path), GetParam().filename);
}

TEST_P(OsaPath, CutsOneTrailingMark)
{
    EXPECT_EQ(OSA_TrimDirMark(GetParam().path), GetParam().trimDirMark);
}

TEST_P(OsaPath, AddsAMissingTrailingMark)
{
    EXPECT_EQ(OSA_AddDirMark(GetParam().path), GetParam().addDirMark);
}

INSTANTIATE_TEST_SUITE_P(Paths, OsaPath, ::testing::ValuesIn(kPaths),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(OsaGetFilenameExt, PointsIntoThePath)
{
    const std::string path = "/a/b.c";

    EXPECT_EQ(OSA_GetFilenameExt(path.c_str()), path.c_str() + 3);
}

TEST(OsaGetFilenameExt, ReturnsThePathItselfWithoutASeparator)
{
    const std::string path = "b.c";

    EXPECT_EQ(OSA_GetFilenameExt(path.c_str()), path.c_str());
}

TEST(OsaGetFilenameExt, PointsToThePathsEndBehindATrailingSeparator)
{
    const std::string path = "dir/";

    EXPECT_EQ(OSA_GetFilenameExt(path.c_str()), path.c_str() + path.size());
}

TEST(OsaGetExt, PointsIntoThePath)
{
    const std::string path = "/a/b.c";

    EXPECT_EQ(OSA_GetExt(path.c_str()), path.c_str() + 4);
}

TEST(OsaGetExt, ReturnsAConstantThatOutlivesAPathWithoutExtension)
{
    const char* ext = nullptr;
    {
        const std::string path = "name";
        ext = OSA_GetExt(path.c_str());
    }

    EXPECT_STREQ(ext, "");
}

TEST(OsaPathStrings, HandleAPathOf5000Bytes)
{
    const std::string folder = "/" + std::string(4990, 'f');
    const std::string path = folder + "/n.ext";

    EXPECT_STREQ(OSA_GetFilenameExt(path.c_str()), "n.ext");
    EXPECT_STREQ(OSA_GetExt(path.c_str()), ".ext");
    EXPECT_EQ(OSA_TrimExt(path.c_str()), folder + "/n");
    EXPECT_EQ(OSA_GetFilename(path.c_str()), "n");
    EXPECT_EQ(OSA_AddDirMark(path.c_str()), path + "/");
    EXPECT_EQ(OSA_TrimDirMark((path + "/").c_str()), path);
}

TEST(OsaErrno, StaysZeroWhateverFails)
{
    SefetyTextBuffer buf;
    std::string text = "text";

    EXPECT_NE(OSA_ReadTextFile("/kx-no-such-folder/file", buf), 0);
    EXPECT_NE(OSA_WriteStringToFile(text, "/kx-no-such-folder/file"), 0);
    EXPECT_FALSE(OSA_IsFileExist("/kx-no-such-folder"));

    EXPECT_EQ(OSA_errno, 0);
}
