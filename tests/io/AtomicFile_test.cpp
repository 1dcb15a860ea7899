// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/AtomicFile.h"
#include "io/Faults.h"
#include "io/Transfer.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

void Write(const AtomicFile& file, const std::string& text)
{
    WriteAll(file.File().Number(), text, "the file");
}

} // namespace

class AtomicFiles : public ::testing::TestWithParam<bool>
{
protected:
    TempDir m_dir;
    /// The parameter says that the file system knows no files without names.
    Faults m_faults{Call::kOpenNameless, GetParam() ? EOPNOTSUPP : 0};
};

INSTANTIATE_TEST_SUITE_P(FileSystems, AtomicFiles, ::testing::Bool(), [](const auto& param) {
    return param.param ? "WithNamesOnly" : "WithFilesWithoutNames";
});

TEST_P(AtomicFiles, AreThereWholeAfterCommit)
{
    const mode_t before = umask(027);
    {
        AtomicFile file(m_dir / "x");
        Write(file, "new");
        file.Commit();
        EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 640 new"));
    }
    umask(before);

    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 640 new"));
}

TEST_P(AtomicFiles, ReplaceAnOlderFileOnlyAtCommit)
{
    m_dir.Write("x", "older");
    AtomicFile file(m_dir / "x");
    Write(file, "new");
    EXPECT_EQ(ReadFile(m_dir / "x"), "older");

    file.Commit();

    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 644 new"));
}

TEST_P(AtomicFiles, AreOnTheDiskBeforeTheyHaveTheirNameAndTheirFolderIsAfterwards)
{
    AtomicFile file(m_dir / "x");
    Write(file, "new");
    std::error_code error;
    const std::string written = std::filesystem::read_symlink(file.File().Path(), error).string();
    const Placing placing;

    file.Commit();

    EXPECT_THAT(placing.Calls(), ElementsAre("sync " + written + ", 3 bytes",
                                             "name " + (m_dir / "x"), "sync " + m_dir.Path()));
}

TEST_P(AtomicFiles, SyncTheFolderTheyAreNamedInWithoutAPath)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_dir.Path());
    AtomicFile file("x");
    const Placing placing;

    file.Commit();

    std::filesystem::current_path(before);
    ASSERT_EQ(placing.Calls().size(), 3U);
    EXPECT_EQ(placing.Calls()[1], "name x");
    EXPECT_EQ(placing.Calls()[2], "sync " + m_dir.Path());
    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 644 "));
}

TEST_P(AtomicFiles, KeepTheOlderFileWhenTheDiskDoesNotTakeTheNewOne)
{
    m_dir.Write("x", "older");
    {
        AtomicFile file(m_dir / "x");
        Write(file, "new");
        const Faults faults(Call::kSync, {{EIO}});

        EXPECT_EQ(Thrown([&] { file.Commit(); }),
                  "3: " + (m_dir / "x") + ": cannot write: Input/output error");
    }

    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 644 older"));
}

TEST_P(AtomicFiles, KeepTheOlderFileWhenTheyCannotTakeItsPlace)
{
    m_dir.Write("x", "older");
    {
        AtomicFile file(m_dir / "x");
        Write(file, "new");
        const Faults faults(Call::kRename, {{ENOSPC}});

        EXPECT_EQ(Thrown([&] { file.Commit(); }),
                  "3: " + (m_dir / "x") + ": cannot write: No space left on device");
    }

    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 644 older"));
}

TEST_P(AtomicFiles, AreInTheirPlaceAlsoWhereFoldersCannotBeSynced)
{
    AtomicFile file(m_dir / "x");
    Write(file, "new");
    const Faults faults(Call::kSync, {{}, {EINVAL}});

    file.Commit();

    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 644 new"));
}

TEST_P(AtomicFiles, LeaveAloneWhoeverHasTheirEarlierNameAfterCommit)
{
    const std::string earlier = ".x." + std::to_string(getpid()) + "-0";
    {
        AtomicFile file(m_dir / "x");
        file.Commit();
        m_dir.Write(earlier, "somebody's");
    }

    EXPECT_THAT(m_dir.Tree(), ElementsAre(earlier + " f 644 somebody's", "x f 644 "));
}

TEST_P(AtomicFiles, AreKeptFromProgramsThatAreStarted)
{
    const AtomicFile file(m_dir / "x");

    EXPECT_NE(fcntl(file.File().Number(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_P(AtomicFiles, LeaveNothingWithoutCommit)
{
    {
        const AtomicFile file(m_dir / "x");
        Write(file, "new");
        EXPECT_EQ(m_dir.Tree().size(), GetParam() ? 1U : 0U);
    }

    EXPECT_THAT(m_dir.Tree(), IsEmpty());
}

TEST_P(AtomicFiles, TakeAnotherNameThanOneThatIsTaken)
{
    const std::string taken = ".x." + std::to_string(getpid()) + "-0";
    m_dir.Write(taken, "somebody's");

    AtomicFile file(m_dir / "x");
    Write(file, "new");
    file.Commit();

    EXPECT_THAT(m_dir.Tree(), ElementsAre(taken + " f 644 somebody's", "x f 644 new"));
}

TEST_P(AtomicFiles, CanHaveTheLongestNames)
{
    const std::string name(255, 'x');

    AtomicFile file(m_dir / name);
    file.Commit();

    EXPECT_THAT(m_dir.Tree(), ElementsAre(name + " f 644 "));
}

TEST_P(AtomicFiles, ReplaceALinkAndNotWhatItLeadsTo)
{
    m_dir.Write("y", "kept");
    std::filesystem::create_symlink("y", m_dir / "x");

    AtomicFile file(m_dir / "x");
    Write(file, "new");
    file.Commit();

    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 644 new", "y f 644 kept"));
}

TEST_P(AtomicFiles, RefuseAFolderThatIsNotThere)
{
    EXPECT_EQ(Thrown([&] { const AtomicFile file(m_dir / "none/x"); }),
              "3: " + (m_dir / "none/x") + ": cannot write: No such file or directory");
}

TEST_P(AtomicFiles, RefuseToReplaceWhatIsNoFile)
{
    m_dir.MakeDir("x");

    EXPECT_EQ(Thrown([&] { const AtomicFile file(m_dir / "x"); }),
              "3: " + (m_dir / "x") + ": is there already, and is not a file; choose another name");
}

TEST_P(AtomicFiles, GoToStandardOutputAtCommit)
{
    testing::internal::CaptureStdout();
    {
        AtomicFile file(AtomicFile::kStandardOutput);
        Write(file, "new");
        file.Commit();
    }

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "new");
}

TEST_P(AtomicFiles, GoToStandardOutputBehindWhatTheProgramPrinted)
{
    testing::internal::CaptureStdout();
    {
        AtomicFile file(AtomicFile::kStandardOutput);
        Write(file, "new");
        std::fputs("printed, ", stdout);
        file.Commit();
        std::fputs(", and more", stdout);
    }

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "printed, new, and more");
}

TEST_P(AtomicFiles, TellThatWhatWasPrintedBeforeIsLost)
{
    AtomicFile file(AtomicFile::kStandardOutput);
    std::fflush(stdout);
    const Descriptor before(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(dup2(full.Number(), STDOUT_FILENO), STDOUT_FILENO);
    std::fputs("printed", stdout);

    // The file itself is empty: nothing but what was printed can fail.
    const std::string told = Thrown([&] { file.Commit(); });

    ASSERT_EQ(dup2(before.Number(), STDOUT_FILENO), STDOUT_FILENO);
    std::clearerr(stdout);
    EXPECT_EQ(told, "3: standard output: cannot write: No space left on device");
}

TEST_P(AtomicFiles, TellThatStandardOutputCannotBeWritten)
{
    AtomicFile file(AtomicFile::kStandardOutput);
    Write(file, "new");
    const Faults faults(Call::kWrite, {{ENOSPC}});

    EXPECT_EQ(Thrown([&] { file.Commit(); }),
              "3: standard output: cannot write: No space left on device");
}

TEST(AtomicFile, LeavesAnOlderFileWhenItGetsNoName)
{
    const TempDir dir;
    dir.Write("x", "older");
    {
        AtomicFile file(dir / "x");
        Write(file, "new");
        const Faults faults(Call::kLink, {{EEXIST}, {EDQUOT}});

        EXPECT_EQ(Thrown([&] { file.Commit(); }),
                  "3: " + (dir / "x") + ": cannot write: Disk quota exceeded");
    }

    EXPECT_THAT(dir.Tree(), ElementsAre("x f 644 older"));
}

TEST(WriteNewFile, BringsTheFileToTheDiskAndThenItsName)
{
    const TempDir dir;
    const mode_t before = umask(0);
    const Placing placing;

    WriteNewFile(dir / "x", "new", 0640);

    umask(before);
    EXPECT_THAT(placing.Calls(),
                ElementsAre("sync " + (dir / "x") + ", 3 bytes", "sync " + dir.Path()));
    EXPECT_THAT(dir.Tree(), ElementsAre("x f 640 new"));
}

TEST(WriteNewFile, LeavesNothingThatIsNotWhole)
{
    const TempDir dir;
    const std::string said = "3: " + (dir / "x") + ": cannot write: ";
    {
        const Faults faults(Call::kWrite, {{0, 1}, {ENOSPC}});

        EXPECT_EQ(Thrown([&] { WriteNewFile(dir / "x", "new", 0600); }),
                  said + "No space left on device");
    }
    const Faults faults(Call::kSync, {{EIO}});

    EXPECT_EQ(Thrown([&] { WriteNewFile(dir / "x", "new", 0600); }), said + "Input/output error");
    EXPECT_THAT(dir.Tree(), IsEmpty());
}

TEST(WriteNewFile, LeavesWhatIsThereAlone)
{
    const TempDir dir;
    dir.Write("x", "older");

    EXPECT_EQ(Thrown([&] { WriteNewFile(dir / "x", "new", 0600); }),
              "3: " + (dir / "x") + ": cannot write: File exists");
    EXPECT_THAT(dir.Tree(), ElementsAre("x f 644 older"));
}

TEST(AtomicFile, TellsAFolderThatCannotBeWritten)
{
    const TempDir dir;
    const Faults faults(Call::kOpenNameless, {{EROFS}});

    EXPECT_EQ(Thrown([&] { const AtomicFile file(dir / "x"); }),
              "3: " + (dir / "x") + ": cannot write: Read-only file system");
}

} // namespace kx::io
