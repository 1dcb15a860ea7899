// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Descriptor.h"
#include "io/Faults.h"
#include "support/Deadline.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <type_traits>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace kx::io
{

using ::testing::ElementsAre;

namespace
{

bool IsOpenNow(int number)
{
    return fcntl(number, F_GETFD) >= 0;
}

bool IsKeptFromPrograms(const Descriptor& file)
{
    return (fcntl(file.Number(), F_GETFD) & FD_CLOEXEC) != 0;
}

Descriptor OpenNull()
{
    return Descriptor(open("/dev/null", O_RDWR | O_CLOEXEC));
}

} // namespace

TEST(Descriptor, ClosesWhatItOwnsAtItsEnd)
{
    int number = -1;
    {
        const Descriptor file = OpenNull();
        number = file.Number();
        EXPECT_TRUE(file.IsOpen());
        EXPECT_TRUE(IsOpenNow(number));
    }

    EXPECT_FALSE(IsOpenNow(number));
}

TEST(Descriptor, MovesWhatItOwnsAndClosesWhatItHad)
{
    Descriptor first = OpenNull();
    const int number = first.Number();
    Descriptor second = OpenNull();
    const int replaced = second.Number();

    second = std::move(first);

    EXPECT_EQ(second.Number(), number);
    EXPECT_TRUE(IsOpenNow(number));
    EXPECT_FALSE(IsOpenNow(replaced));
    EXPECT_FALSE(first.IsOpen()); // NOLINT(bugprone-use-after-move): this is what is tested
    const Descriptor third(std::move(second));
    EXPECT_EQ(third.Number(), number);
    EXPECT_FALSE(std::is_copy_constructible_v<Descriptor>);
}

TEST(Descriptor, GivesItsNumberAway)
{
    int number = -1;
    {
        Descriptor file = OpenNull();
        number = file.Release();
        EXPECT_FALSE(file.IsOpen());
    }

    EXPECT_TRUE(IsOpenNow(number));
    const Descriptor again(number);
}

TEST(Descriptor, ClosesOnceWhenItIsTold)
{
    Descriptor file = OpenNull();
    const int number = file.Number();

    file.Close();
    file.Close();

    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(IsOpenNow(number));
}

TEST(Descriptor, LeavesErrnoAloneWhenItCloses)
{
    constexpr int kNobodys = 1000000; // close refuses it with EBADF
    Descriptor file(kNobodys);
    errno = ENOSPC;

    file.Close();

    EXPECT_EQ(errno, ENOSPC);
}

TEST(Descriptor, HasAPathThatOutlivesTheName)
{
    const TempDir dir;
    const Descriptor file = OpenFile(dir.Write("x", "bytes"));
    ASSERT_EQ(unlink((dir / "x").c_str()), 0);

    EXPECT_EQ(ReadFile(file.Path()), "bytes");
}

TEST(OpenFile, OpensRegularFilesOnly)
{
    const TempDir dir;
    const std::string path = dir.Write("x", "bytes");
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Descriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = dir / "socket";
    ASSERT_LT(name.size(), sizeof(address.sun_path));
    name.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const void* const raw = &address;
    ASSERT_EQ(bind(listening.Number(), static_cast<const sockaddr*>(raw), sizeof(address)), 0);

    const Descriptor file = OpenFile(path);
    EXPECT_EQ(SizeOf(file, path), 5U);
    EXPECT_TRUE(IsKeptFromPrograms(file));
    for (const std::string& other : {dir.Path(), pipe, name, std::string("/dev/null")}) {
        EXPECT_EQ(Thrown([&] { OpenFile(other).Close(); }), "1: " + other + ": is not a file");
    }
    EXPECT_EQ(Thrown([&] { OpenFile(dir / "none").Close(); }),
              "1: " + (dir / "none") + ": cannot open: No such file or directory");
}

TEST(OpenFile, TellsWhyItCannotBeOpened)
{
    const TempDir dir;
    const std::string path = dir.Write("x", "bytes");
    const Faults faults(Call::kOpen, {{EACCES}});

    EXPECT_EQ(Thrown([&] { OpenFile(path, "read the words").Close(); }),
              "3: " + path + ": cannot read the words: Permission denied");
}

TEST(OpenFile, DoesNotWaitForAPipeThatTookTheFilesPlaceMeanwhile)
{
    const TempDir dir;
    static std::string path;
    path = dir.Write("x", "bytes");
    const auto exchange = [] {
        EXPECT_EQ(unlink(path.c_str()), 0);
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    };
    const Faults faults(Call::kOpen, {{0, SIZE_MAX, exchange}});
    const Deadline deadline; // a pipe without a writer is waited for without end

    EXPECT_EQ(Thrown([] { OpenFile(path).Close(); }), "1: " + path + ": is not a file");
}

TEST(CreateFile, MakesAFileWhereNothingIs)
{
    const TempDir dir;
    const std::string path = dir / "x";

    EXPECT_TRUE(IsKeptFromPrograms(CreateFile(path, 0600)));

    EXPECT_THAT(dir.Tree(), ElementsAre("x f 600 "));
    EXPECT_EQ(Thrown([&] { CreateFile(path, 0600).Close(); }),
              "3: " + path + ": cannot write: File exists");
    ASSERT_EQ(symlink("none", (dir / "link").c_str()), 0);
    EXPECT_EQ(Thrown([&] { CreateFile(dir / "link", 0600).Close(); }),
              "3: " + (dir / "link") + ": cannot write: File exists");
}

TEST(SizeOf, TellsWhyThereIsNone)
{
    EXPECT_EQ(Thrown([] { static_cast<void>(SizeOf(Descriptor(), "it")); }),
              "3: it: cannot look at: Bad file descriptor");
}

} // namespace kx::io
