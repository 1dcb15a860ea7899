// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "InProcess.h"
#include "archive/ByteSource.h"
#include "archive/ZipOf.h"
#include "io/Error.h"
#include "io/Faults.h"
#include "road/RunProgram.h"
#include "road/Unpacking.h"
#include "support/Environment.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace kx::guard
{

namespace
{

namespace fs = std::filesystem;
using archive::ZipPart;

StateFolder OpenedFolder(const std::string& path)
{
    fs::create_directory(path);
    return {io::Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), path};
}

/// Unpacks an archive into a folder.
void UnpackInto(const std::string& path, const archive::ByteSource& source)
{
    const StateFolder folder = OpenedFolder(path);
    Unpacking unpacking(folder, [] {});
    InProcess confinement;
    StreamContents(confinement, source, -1, Limits(), unpacking);
    unpacking.Finish();
}

/// Everything below a folder with all that unpacking decides: "name kind mode moment content".
/// Moments from @p start on are the same: nobody decided on them.
std::vector<std::string> Full(const std::string& folder, std::int64_t start)
{
    std::vector<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        struct stat info {
        };
        EXPECT_EQ(lstat(entry.path().c_str(), &info), 0);
        const std::string name = entry.path().lexically_relative(folder).string();
        std::string line = name;
        if (S_ISLNK(info.st_mode)) {
            line += " link to " + fs::read_symlink(entry.path()).string();
        } else {
            line += S_ISDIR(info.st_mode) ? " folder " : " file ";
            line += std::to_string(info.st_mode & 07777U);
            line += " " + std::to_string(std::min<std::int64_t>(info.st_mtim.tv_sec, start));
            line += S_ISDIR(info.st_mode) ? "" : " " + ReadFile(entry.path());
        }
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

/// Unpacks with the device's tool and here, by a clock that is not that of UTC and has a summer
/// time.
void ExpectTheSame(const TempDir& dir, const std::string& archive)
{
    const Environment zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    // The clock of files may be a little behind.
    const std::int64_t start = std::time(nullptr) - 3600;
    ASSERT_EQ(RunProgram({"unzip", "-qo", archive, "-d", dir / "theirs"}), 0);
    UnpackInto(dir / "ours", archive::FileBytes(archive));

    EXPECT_EQ(Full(dir / "ours", start), Full(dir / "theirs", start));
    EXPECT_THAT(Full(dir / "ours", start), testing::Not(testing::IsEmpty()));
}

void SetMoment(const std::string& path, std::int64_t seconds)
{
    const std::array<timespec, 2> times = {timespec{seconds, 0}, timespec{seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0);
}

/// A tree with all kinds of things and modes, last changed in winter and summer.
void MakeTree(const TempDir& dir)
{
    dir.Write("tree/UserPackage.kx-project", "{}");
    dir.Write("tree/kx_Updater", std::string(100000, 'u'), 0755);
    dir.Write("tree/a/b/c/deep", "deep");
    dir.Write("tree/a-b", "between in the order of bytes");
    dir.Write("tree/a/\xe3\x81\x82 name", "text", 0600);
    dir.Write("tree/a/read-only", "r", 0444);
    dir.Write("tree/empty", "");
    dir.MakeDir("tree/empty folder");
    fs::create_symlink("b/c", dir / "tree/a/link");
    fs::create_symlink("/etc/passwd", dir / "tree/absolute");
    fs::create_symlink("nowhere", dir / "tree/loose");
    ASSERT_EQ(chmod((dir / "tree/a/b").c_str(), 0500), 0);
    ASSERT_EQ(chmod((dir / "tree/empty folder").c_str(), 0700), 0);
    ASSERT_EQ(chmod((dir / "tree/empty").c_str(), 04755), 0);
    SetMoment(dir / "tree/kx_Updater", 1700000001);
    SetMoment(dir / "tree/a/b/c/deep", 1690000000);
    SetMoment(dir / "tree/a/b", 1600000000);
    SetMoment(dir / "tree/empty folder", 1500000001);
}

} // namespace

/// One way to pack the tree that is the current folder into the archive "$1".
struct Packer {
    const char* name;
    const char* command;
};

class UnpackingOf : public testing::TestWithParam<Packer>
{
};

TEST_P(UnpackingOf, MakesWhatTheDevicesToolMakes)
{
    const TempDir dir;
    MakeTree(dir);
    const std::string archive = dir / "package.zip";
    ASSERT_EQ(
        RunProgram({"env", "-C", dir / "tree", "sh", "-c", GetParam().command, "sh", archive}), 0);

    ExpectTheSame(dir, archive);
}

const std::vector<Packer> kPackers = {
    {"zip", "zip -qry $1 ."},
    {"withoutTimes", "zip -qryX $1 ."},
    {"withoutFolders", "zip -qryD $1 ."},
    {"linksFollowed", "rm loose; zip -qr $1 ."},
    {"stored", "zip -qry0 $1 ."},
    {"bzip2", "zip -qry -Z bzip2 $1 ."},
    {"zip64", "zip -qry -fz $1 ."},
    {"stream", "zip -qry - . > $1"},
    {"sevenZip", "7z a -tzip -bd -bso0 -snl $1 . </dev/null"},
    {"deflate64", "7z a -tzip -bd -bso0 -snl -mm=Deflate64 $1 . </dev/null"},
    {"bsdtar", "bsdtar -c -f $1 --format zip *"},
    {"bsdtarStored", "bsdtar -c -f $1 --format zip --options zip:compression=store *"},
    {"python", "rm loose absolute; python3 -m zipfile -c $1 *"},
};

INSTANTIATE_TEST_SUITE_P(All, UnpackingOf, testing::ValuesIn(kPackers),
                         [](const auto& packer) { return std::string(packer.param.name); });

TEST(Unpacking, MakesWhatTheDevicesToolMakesOfOddEntries)
{
    const TempDir dir;
    std::vector<ZipPart> parts = {
        {"dos", "made on DOS"}, {"dos read-only", "r"}, {"dos folder/", ""},
        {"con\x01trol", "c"},   {"version;1", "v"},     {"implied/folder/file", "f"},
        {"twice//marks", "m"},  {"./dot", "d"},         {"no mode", "n"}};
    for (std::size_t i = 0; i < 3; ++i) {
        parts[i].madeOn = 0;
        parts[i].mode = 0;
    }
    parts[8].mode = 0100000;
    std::string zip = archive::ZipOf(parts);
    constexpr std::size_t kAttributesAt = 38;
    archive::Patch(zip, archive::kCentral, kAttributesAt, archive::Bytes(1, 4), 1);
    archive::Patch(zip, archive::kCentral, kAttributesAt, archive::Bytes(0x10, 4), 2);
    // 2024-07-01 12:00:02 and 2024-01-15 06:30:00
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::uint64_t moment = i % 2 == 0 ? 0x58e16001 : 0x582f33c0;
        archive::Patch(zip, archive::kCentral, 12, archive::Bytes(moment, 4), i);
        archive::Patch(zip, archive::kLocal, 10, archive::Bytes(moment, 4), i);
    }

    ExpectTheSame(dir, dir.Write("package.zip", zip));
}

class RefusedContents : public testing::Test
{
protected:
    /// What unpacking this into `made` throws.
    std::string Refusal(const std::function<void(IMessages&)>& work)
    {
        const StateFolder folder = OpenedFolder(m_dir / "made");
        Unpacking unpacking(folder, [] {});
        Limits limits;
        limits.unpackedBytes = 10;
        limits.entries = 2;
        return Thrown([&] {
            Saying confinement(work);
            StreamContents(confinement, archive::MemoryBytes(""), -1, limits, unpacking);
        });
    }

    /// A message about a folder (0) or a file (1).
    static void SendNamed(IMessages& messages, std::uint8_t kind, const std::string& name)
    {
        messages.Send(kind, archive::Bytes(0777, 4) + std::string(9, '\0') + name);
    }

    static void SendLinkTo(IMessages& messages, const std::string& name, const std::string& target)
    {
        messages.Send(3, archive::Bytes(name.size(), 4) + name + target);
    }

    TempDir m_dir;

private:
    /// Says something else than what reading would.
    class Saying final : public IConfinement
    {
    public:
        explicit Saying(std::function<void(IMessages&)> work) : m_work(std::move(work)) {}
        void Run(int descriptor, const ConfinedWork& /*work*/, const MessageTaker& take) override
        {
            InProcess().Run(descriptor, m_work, take);
        }

    private:
        std::function<void(IMessages&)> m_work;
    };
};

TEST_F(RefusedContents, AreNamesThatAreNotPlain)
{
    const std::string tooLong(256, 'x');
    for (const std::string& name :
         {std::string(), std::string("/etc/x"), std::string("../x"), std::string("a/../x"),
          std::string("./x"), std::string("a//x"), std::string("a/"), std::string("."),
          std::string("x\0y", 3), tooLong, "a/" + tooLong}) {
        for (const std::uint8_t kind : {std::uint8_t{0}, std::uint8_t{1}}) {
            EXPECT_EQ(Refusal([&](IMessages& messages) { SendNamed(messages, kind, name); }),
                      "1: what unpacks the package told a name that is none")
                << name;
        }
        EXPECT_EQ(Refusal([&](IMessages& messages) { SendLinkTo(messages, name, "x"); }),
                  "1: what unpacks the package told a name that is none")
            << name;
    }
    EXPECT_THAT(m_dir.Tree(), testing::ElementsAre("made d 755"));
}

TEST_F(RefusedContents, AreNamesThatComeTwiceOrTooEarly)
{
    EXPECT_EQ(Refusal([](IMessages& messages) {
                  SendNamed(messages, 1, "a");
                  SendNamed(messages, 1, "a");
              }),
              "1: what unpacks the package told names out of their order");
    EXPECT_EQ(Refusal([](IMessages& messages) { SendNamed(messages, 1, "b/x"); }),
              "1: what unpacks the package told of something in what is no folder");
}

TEST_F(RefusedContents, AreThoseBelowALink)
{
    m_dir.MakeDir("outside");

    EXPECT_EQ(Refusal([](IMessages& messages) {
                  SendLinkTo(messages, "a", "../outside");
                  SendNamed(messages, 1, "a/x");
              }),
              "1: what unpacks the package told of something in what is no folder");
    EXPECT_FALSE(fs::exists(m_dir / "outside/x"));
}

TEST_F(RefusedContents, AreMessagesThatMakeNoSense)
{
    EXPECT_EQ(Refusal([](IMessages& messages) { messages.Send(9, ""); }),
              "1: what unpacks the package told what is not known");
    EXPECT_EQ(Refusal([](IMessages& messages) { messages.Send(0, "short"); }),
              "1: what unpacks the package told half a message");
    EXPECT_EQ(Refusal([](IMessages& messages) { messages.Send(3, archive::Bytes(9, 4) + "a"); }),
              "1: what unpacks the package told half a message");
    EXPECT_EQ(Refusal([](IMessages& messages) { messages.Send(2, "bytes"); }),
              "1: what unpacks the package told bytes of no file");
    EXPECT_EQ(Refusal([](IMessages& messages) { SendLinkTo(messages, "l", ""); }),
              "1: a link in it leads to what is no path");
}

TEST_F(RefusedContents, AreMoreThanTheLimitsAllow)
{
    EXPECT_EQ(Refusal([](IMessages& messages) {
                  SendNamed(messages, 1, "file");
                  messages.Send(2, "01234");
                  messages.Send(2, "012345");
              }),
              "1: it unpacks to more than 10 bytes");
    EXPECT_EQ(Refusal([](IMessages& messages) {
                  for (int i = 0; i < 8; ++i) {
                      SendNamed(messages, 0, "x" + std::to_string(i));
                  }
              }),
              "1: there is more in it than 2 files and folders");
}

/// Unpacks a file of mode 600 in a folder of mode 500, and what makes both is as given.
std::string UnpackingAFileSays(const TempDir& dir, const io::Fault& ofTheSync)
{
    const io::Faults faults(io::Call::kSyncAll, {ofTheSync});
    return Thrown([&] {
        const StateFolder folder = OpenedFolder(dir / "made");
        Unpacking unpacking(folder, [] {});
        unpacking.TakeFolder({"a", 0500, {}});
        unpacking.TakeFile({"a/x", 0600, {}});
        unpacking.TakeBytes("content");
        unpacking.Finish();
    });
}

TEST(Unpacking, HasEverythingOnTheDiskAtItsEnd)
{
    const TempDir dir;
    static const TempDir* made = nullptr;
    made = &dir;
    const auto expectAll = [] {
        EXPECT_THAT(made->Tree(),
                    testing::ElementsAre("made d 755", "made/a d 500", "made/a/x f 600 content"));
    };
    const io::Placing placing;

    EXPECT_EQ(UnpackingAFileSays(dir, {0, SIZE_MAX, expectAll}), "nothing thrown");

    EXPECT_THAT(placing.Calls(), testing::ElementsAre("sync all of " + (dir / "made")));
}

TEST(Unpacking, TellsThatTheDiskDoesNotTakeEverything)
{
    const TempDir dir;

    EXPECT_EQ(UnpackingAFileSays(dir, {EIO}),
              "3: " + (dir / "made") + ": cannot write: Input/output error");
}

TEST(Unpacking, EndsWhenItIsAskedTo)
{
    const TempDir dir;
    const StateFolder folder = OpenedFolder(dir / "made");
    int pieces = 0;
    Unpacking unpacking(folder, [&pieces] {
        if (++pieces == 3) {
            throw io::Error(io::ExitCode::kNoAccess, "", "stopped");
        }
    });
    const std::string zip = archive::ZipOf({{"a", "1"}, {"b", "2"}});
    InProcess confinement;

    EXPECT_EQ(Thrown([&] {
                  StreamContents(confinement, archive::MemoryBytes(zip), -1, Limits(), unpacking);
              }),
              "3: stopped");
}

TEST(Unpacking, WritesThroughNoLinkThatSomebodyPutInItsWay)
{
    const TempDir dir;
    dir.MakeDir("outside");
    const StateFolder folder = OpenedFolder(dir / "made");
    Unpacking unpacking(folder, [] {});
    unpacking.TakeFolder({"a", 0755, {}});
    ASSERT_EQ(rmdir((dir / "made/a").c_str()), 0);
    fs::create_directory_symlink("../outside", dir / "made/a");

    EXPECT_EQ(Thrown([&] {
                  unpacking.TakeFile({"a/x", 0644, {}});
              }),
              "3: " + dir.Path() + "/made/a: cannot open: Not a directory");
    EXPECT_FALSE(fs::exists(dir / "outside/x"));
}

TEST(Unpacking, RefusesDamagedContents)
{
    const TempDir dir;
    std::string zip = archive::ZipOf({{"a", "content"}});
    zip[zip.find("content")] = 'C';

    EXPECT_EQ(Thrown([&] { UnpackInto(dir / "made", archive::MemoryBytes(zip)); }),
              "1: the package:a: cannot read: CRC error");
}

} // namespace kx::guard
